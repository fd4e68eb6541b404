#!/bin/sh
# Writes the seed corpus of the received_message target: one serialised TarvoMessage per file,
# encoded by protoc from the text below with the daemon's own schema. The names are those of the
# files that received_message_fuzzer.cpp and run_fuzz_target.sh put in the sandbox. Run it again after changing
# the list or the schema, and commit the files.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
schema=$here/../../proto
out=$here/received_message
rm -rf "$out"
mkdir -p "$out"

seed() {
    printf '%s\n' "$2" |
        protoc --proto_path="$schema" --encode=tarvo_message.TarvoMessage tarvo_message.proto \
            >"$out/$1"
}

seed property_read 'type: REQUEST message_id: 7 token: 1
    property { read_request { name: "vendor.modem.mode" } }'
seed property_write 'type: REQUEST message_id: 7 token: 2
    property { write_request { name: "vendor.modem.mode" value: "on" } }'
seed modem_temperature 'type: REQUEST message_id: 10 token: 3
    modem_temperature { set_request { sensors { sensor: 1 temperature: 45000 update: true }
                                      sensors { sensor: 2 temperature: -5 update: false } } }'
seed uecap_file_read 'type: REQUEST message_id: 12 token: 4 uecap_file { read_request {
    file_name: "uecap.bin" read_size: 4096 block_size: 1024 directory: FILE_DIR_UECAP } }'
seed file_write_first 'type: REQUEST message_id: 9 token: 5 file { write_request {
    file_name: "log.bin" data: "0123456789" total_size: 20 offset: 0 file_dir: FILE_DIR_MDS } }'
seed file_write_last 'type: REQUEST message_id: 9 token: 6 file { write_request {
    file_name: "log.bin" data: "abcdefghij" total_size: 20 offset: 10 file_dir: FILE_DIR_MDS } }'
seed file_write_replay 'type: REQUEST message_id: 9 token: 7 file { write_request {
    file_name: "replay.dat" data: "replay" total_size: 6 offset: 0 file_dir: FILE_DIR_REPLAY } }'
seed file_write_old 'type: REQUEST message_id: 9 token: 8 file { write_request {
    file_path: "/data/vendor/radio/mds/old.bin" data: "x" total_size: 1 } }'
seed file_append 'type: REQUEST message_id: 9 token: 9 file { append_request {
    file_name: "append.txt" data: "line\n" file_dir: FILE_DIR_MDS } }'
seed file_read 'type: REQUEST message_id: 9 token: 10 file { read_request {
    file_name: "append.txt" max_data_size: 4096 offset: 0 file_dir: FILE_DIR_MDS } }'
seed file_read_block 'type: REQUEST message_id: 9 token: 14 file { read_request {
    file_name: "append.txt" max_data_size: 7 offset: 7 file_dir: FILE_DIR_MDS } }'
seed file_read_replay 'type: REQUEST message_id: 9 token: 15 file { read_request {
    file_name: "replay.dat" max_data_size: 100 offset: 200 file_dir: FILE_DIR_REPLAY } }'
seed uecap_file_read_block_size_zero 'type: REQUEST message_id: 12 token: 16 uecap_file {
    read_request { file_name: "uecap.bin" read_size: 16 block_size: 0 directory: FILE_DIR_UECAP } }'
seed file_write_indication 'type: INDICATION message_id: 9 file { write_indication {
    file_name: "ind.bin" data: "0123" total_size: 4 offset: 0 file_dir: FILE_DIR_REPLAY } }'
seed modem_stat_report 'type: INDICATION message_id: 5
    modem_stat { report_indication { data: "rrc: 12 attach: 3\n" offset: 0 } }'
seed modem_stat_report_next 'type: INDICATION message_id: 5
    modem_stat { report_indication { data: "more\n" offset: 18 } }'
seed extended_log 'type: INDICATION message_id: 6
    extended_log { indication { name: "ext.log" data: "piece of a log\n" } }'
seed userspace_log 'type: INDICATION message_id: 8
    userspace_log { indication { log: "modem says hello" level: 1 } }'
seed modem_stat_enable_response 'type: RESPONSE message_id: 5 token: 11 result: RESULT_SUCCESS
    modem_stat { enable_response {} }'
seed userspace_log_enable_response 'type: RESPONSE message_id: 8 token: 11
    result: RESULT_SUCCESS userspace_log { enable_response {} }'
seed tput_request 'type: REQUEST message_id: 11 token: 13
    modem_test { tput_request { downlink: true param_a: 1 param_b: 2 param_c: 3 } }'
