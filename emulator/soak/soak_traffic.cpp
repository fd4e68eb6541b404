#include "soak/soak_traffic.h"

#include <signal.h>

#include <google/protobuf/text_format.h>

#include "device/device_facts.h"
#include "scenario/payload_fields.h"
#include "scenario/step_handlers.h"
#include "soak/mid_run_faults.h"

using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// Tokens of one message and the answers it may get (a train of UE-capability blocks).
constexpr uint32_t kTokenStride = 1024;
// Data up to this size is written out in the step; longer data is generated.
constexpr size_t kLiteralData = 64;
// The largest data block the soak sends, below the largest message.
constexpr uint32_t kLargeBlock = 65000;
// Names the modem sends: plain ones, one beside the whitelist's directories, one in a directory
// that does not exist, one that climbs out and back in.
const std::vector<std::string>& FileNames() {
    static const auto* const kNames = new std::vector<std::string>{
        "a.bin",       "b.bin",         "c.dat",
        "seed.bin",    "log.txt",       "../x.bin",
        "nodir/y.bin", "../mds/up.bin", std::string("../../../..") + kMdsDirectory + "/esc.bin"};
    return *kNames;
}

constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

// `message` sent by the modem as it is.
Step SendStep(TarvoMessage message) {
    Step step;
    *step.mutable_send() = std::move(message);
    return step;
}

}  // namespace

SoakTraffic::SoakTraffic(uint64_t seed, std::set<tarvo_emu::Fault> faults)
    : random_(seed), faults_(std::move(faults)) {}

uint64_t SoakTraffic::Uniform(uint64_t low, uint64_t high) {
    return std::uniform_int_distribution<uint64_t>(low, high)(random_);
}

bool SoakTraffic::Chance(double probability) {
    return std::bernoulli_distribution(probability)(random_);
}

std::string SoakTraffic::Text(size_t size) {
    std::string text(size, ' ');
    for (char& c : text) c = kAlphabet[Uniform(0, sizeof(kAlphabet) - 2)];
    return text;
}

std::string SoakTraffic::Name() {
    // Mostly the few plain names, so that transfers meet and files are read back.
    constexpr size_t kPlainNames = 4;
    if (Chance(0.8)) return FileNames()[Uniform(0, kPlainNames - 1)];
    return FileNames()[Uniform(0, FileNames().size() - 1)];
}

uint32_t SoakTraffic::Directory() {
    const uint64_t pick = Uniform(0, 99);
    if (pick < 60) return tarvo_message::FILE_DIR_MDS;
    if (pick < 85) return tarvo_message::FILE_DIR_REPLAY;
    if (pick < 95) return tarvo_message::FILE_DIR_UECAP;
    // Outside the whitelist.
    constexpr uint32_t kUnknown[] = {0, 4, 7};
    return kUnknown[Uniform(0, 2)];
}

uint32_t SoakTraffic::BlockSize() {
    const uint64_t pick = Uniform(0, 99);
    if (pick < 55) return Uniform(1, 256);
    if (pick < 85) return Uniform(257, 4096);
    return Uniform(4097, kLargeBlock);
}

uint32_t SoakTraffic::TotalSize() {
    const uint64_t pick = Uniform(0, 99);
    if (pick < 50) return Uniform(1, 2048);
    if (pick < 85) return Uniform(2049, 100000);
    return Uniform(100001, 400000);
}

SoakTraffic::Transfer SoakTraffic::NewTransfer() {
    return {Directory(), Name(), TotalSize(), Chance(0.25)};
}

TarvoMessage SoakTraffic::NewMessage(tarvo_message::TarvoMessageType type) {
    TarvoMessage message;
    message.set_type(type);
    message.set_token(next_token_);
    next_token_ += kTokenStride;
    return message;
}

Step SoakTraffic::Send(TarvoMessage message, size_t size) {
    if (size <= kLiteralData) {
        std::string data(size, '\0');
        for (char& c : data) c = static_cast<char>(Uniform(0, 255));
        SetPayloadData(&message, data);
        return SendStep(std::move(message));
    }
    Step step;
    *step.mutable_send_generated()->mutable_message() = std::move(message);
    step.mutable_send_generated()->mutable_data()->set_random_seed(random_());
    step.mutable_send_generated()->mutable_data()->set_size(size);
    return step;
}

Step SoakTraffic::Next(const SoakModel& model) {
    const uint64_t pick = Uniform(0, 99);
    if (pick < 30) return Block(model);
    if (pick < 38) return Append();
    if (pick < 50) return Read(model);
    if (pick < 62) return Property();
    if (pick < 68) return Temperature();
    if (pick < 73) return Uecap();
    if (pick < 87) return Diagnostics(MidRunFaults::DiskFull(model.files()));
    if (pick < 89) return Malformed();
    if (pick < 93 || faults_.empty()) return Unexpected(model);
    ++faults_given_;
    return Fault(model);
}

Step SoakTraffic::Block(const SoakModel& model) {
    constexpr size_t kTransfers = 3;
    if (transfers_.size() < kTransfers) transfers_.push_back(NewTransfer());
    Transfer& transfer = transfers_[Uniform(0, transfers_.size() - 1)];
    std::optional<size_t> staged = model.StagedSize(transfer.name);
    // Completed, failed or taken over by another transfer of the same name: a new file.
    if (!staged && transfer.started && Chance(0.7)) {
        transfer = NewTransfer();
        staged.reset();
    }
    transfer.started = true;
    uint32_t total = transfer.total;
    uint32_t offset = staged.value_or(0);
    bool overshoot = false;
    const uint64_t pick = Uniform(0, 99);
    if (pick < 70) {
        // The next block; now and then one that starts a transfer at a later offset.
        if (!staged && Chance(0.1)) offset = Uniform(0, total - 1);
    } else if (pick < 78) {
        // Repeated or out of order.
        offset = staged ? Uniform(0, *staged) : 0;
    } else if (pick < 85) {
        // A block missing before this one.
        offset += Uniform(1, 1000);
    } else if (pick < 90) {
        // The wrong total: larger, smaller, or ending where this block starts.
        const uint64_t wrong = Uniform(0, 2);
        total = wrong == 0 ? total + Uniform(1, 100) : wrong == 1 ? Uniform(0, total) : offset;
    } else if (pick < 95) {
        offset = 0;
    } else {
        overshoot = true;
    }
    uint32_t size = BlockSize();
    if (!overshoot && offset < total) size = std::min(size, total - offset);
    // Now and then the rest of the file, as far as a block goes, so that files complete in few
    // blocks; often on a full disk, where the copy needs pages too.
    if (pick < 70 && offset < total && Chance(MidRunFaults::DiskFull(model.files()) ? 0.5 : 0.2)) {
        size = std::min(total - offset, kLargeBlock);
    }

    TarvoMessage message =
        NewMessage(transfer.indication ? tarvo_message::INDICATION : tarvo_message::REQUEST);
    const auto fill = [&](auto* request) {
        request->set_file_name(transfer.name);
        request->set_file_dir(static_cast<tarvo_message::FileDirectory>(transfer.directory));
        request->set_total_size(total);
        request->set_offset(offset);
    };
    if (transfer.indication) {
        fill(message.mutable_file()->mutable_write_indication());
    } else {
        fill(message.mutable_file()->mutable_write_request());
    }
    if (Chance(0.03)) {
        // The largest message the daemon reads, or one byte more.
        const size_t header = message.ByteSizeLong() + 4;
        size = kLargestMessage - header + (Chance(0.5) ? 1 : 0);
    }
    return Send(std::move(message), size);
}

Step SoakTraffic::Append() {
    TarvoMessage message = NewMessage(tarvo_message::REQUEST);
    tarvo_message::FileAppendRequest* append = message.mutable_file()->mutable_append_request();
    append->set_file_name(Name());
    append->set_file_dir(static_cast<tarvo_message::FileDirectory>(Directory()));
    return Send(std::move(message), Chance(0.1) ? 0 : BlockSize());
}

Step SoakTraffic::Read(const SoakModel& model) {
    TarvoMessage message = NewMessage(tarvo_message::REQUEST);
    tarvo_message::FileReadRequest* read = message.mutable_file()->mutable_read_request();
    const uint32_t directory = Directory();
    const std::string name = Name();
    read->set_file_name(name);
    read->set_file_dir(static_cast<tarvo_message::FileDirectory>(directory));
    // An answer is one message: reads stay below the largest.
    constexpr uint64_t kLargestRead = 60000;
    const uint64_t size = model.FileSize(directory, name).value_or(0);
    const uint64_t offset = Uniform(0, size);
    uint64_t length = Uniform(0, std::min(size - offset, kLargestRead));
    // Past the end now and then, which fails the whole read. A read of 0 bytes stays within the
    // file: past its end the stream's answer is not the daemon's to give.
    if (Chance(0.15)) length += Uniform(1, 64);
    read->set_offset(offset);
    read->set_max_data_size(length);
    return SendStep(std::move(message));
}

Step SoakTraffic::Property() {
    static const auto* const kNames = new std::vector<std::string>{
        "vendor.modem.soak",    "persist.vendor.modem.mode", "vendor.modem.x:y@z-1",
        "ro.vendor.modem.once", ModelSteps::kPingProperty,   "bad name",
        "vendor..modem",        "vendor.modem.unset"};
    TarvoMessage message = NewMessage(tarvo_message::REQUEST);
    std::string name = (*kNames)[Uniform(0, kNames->size() - 1)];
    if (name == "ro.vendor.modem.once") name += std::to_string(Uniform(0, 9));
    if (Chance(0.5)) {
        message.mutable_property()->mutable_read_request()->set_name(name);
    } else {
        // Now and then longer than a value may be.
        const size_t size = Chance(0.1) ? Uniform(90, 120) : Uniform(0, 40);
        tarvo_message::PropertyWriteRequest* write =
            message.mutable_property()->mutable_write_request();
        write->set_name(name);
        write->set_value(Text(size));
    }
    return SendStep(std::move(message));
}

Step SoakTraffic::Temperature() {
    TarvoMessage message = NewMessage(tarvo_message::REQUEST);
    tarvo_message::ModemTemperatureSetRequest* request =
        message.mutable_modem_temperature()->mutable_set_request();
    for (uint64_t i = Uniform(0, 4); i > 0; --i) {
        tarvo_message::ModemTemperatureSensor* sensor = request->add_sensors();
        sensor->set_sensor(Uniform(0, 20));
        sensor->set_temperature(static_cast<int64_t>(Uniform(0, 170000)) - 40000);
        sensor->set_update(Chance(0.5));
    }
    return SendStep(std::move(message));
}

Step SoakTraffic::Uecap() {
    TarvoMessage message = NewMessage(tarvo_message::REQUEST);
    tarvo_message::UecapFileReadRequest* request =
        message.mutable_uecap_file()->mutable_read_request();
    if (Chance(0.95)) request->set_file_name(Chance(0.8) ? "uecap.bin" : "missing.bin");
    if (Chance(0.95)) {
        constexpr uint32_t kOthers[] = {0, 1, 2, 5};
        request->set_directory(static_cast<tarvo_message::FileDirectory>(
            Chance(0.8) ? uint32_t{tarvo_message::FILE_DIR_UECAP} : kOthers[Uniform(0, 3)]));
    }
    request->set_read_size(Chance(0.1) ? 0 : Uniform(1, 3500));
    // Never 0: the daemon then sends empty blocks until a send fails, by design, and a train
    // stays within the tokens left after each message.
    request->set_block_size(Uniform(8, 4096));
    return SendStep(std::move(message));
}

Step SoakTraffic::Diagnostics(bool disk_full) {
    TarvoMessage message = NewMessage(tarvo_message::INDICATION);
    Step step;
    // The first writes its file under /data.
    switch (Uniform(disk_full ? 1 : 0, 5)) {
        case 0: {
            tarvo_message::ModemStatReportIndication* report =
                message.mutable_modem_stat()->mutable_report_indication();
            const uint64_t pick = Uniform(0, 9);
            if (pick < 3) report->set_offset(0);
            if (pick >= 6) report->set_offset(Uniform(1, 100000));
            return Send(std::move(message), Uniform(1, 2000));
        }
        case 1: {
            static const auto* const kNames =
                new std::vector<std::string>{"main", "radio", "", "sub/x"};
            tarvo_message::ExtendedLogIndication* indication =
                message.mutable_extended_log()->mutable_indication();
            indication->set_name((*kNames)[Uniform(0, kNames->size() - 1)]);
            const uint64_t size = Chance(0.3) ? Uniform(10000, kLargeBlock) : Uniform(0, 300);
            if (size <= kLiteralData) {
                indication->set_data(Text(size));
                return SendStep(std::move(message));
            }
            // Letters and digits, so that the log's content can be matched around its time
            // stamps.
            *step.mutable_send_generated()->mutable_message() = std::move(message);
            step.mutable_send_generated()->mutable_data()->set_pattern(Text(Uniform(1, 40)));
            step.mutable_send_generated()->mutable_data()->set_size(size);
            return step;
        }
        case 2: {
            tarvo_message::UserspaceLogIndication* indication =
                message.mutable_userspace_log()->mutable_indication();
            indication->set_log(Text(Uniform(1, 80)));
            if (Chance(0.9)) indication->set_level(Uniform(0, 3));
            return SendStep(std::move(message));
        }
        case 3:
        case 4:
            step.set_signal_daemon(Chance(0.5) ? SIGUSR1 : SIGUSR2);
            return step;
        default: {
            constexpr int kCases[] = {TarvoMessage::kModemStat, TarvoMessage::kExtendedLog,
                                      TarvoMessage::kUserspaceLog};
            tarvo_scenario::AutoReply* reply = step.mutable_auto_reply();
            reply->set_payload_case(kCases[Uniform(0, 2)]);
            const uint64_t pick = Uniform(0, 9);
            if (pick >= 9) {
                reply->set_no_reply(true);
            } else if (pick >= 6) {
                reply->set_result(tarvo_message::RESULT_FAILURE);
            }
            return step;
        }
    }
}

Step SoakTraffic::Malformed() {
    TarvoMessage message = NewMessage(tarvo_message::REQUEST);
    const std::string legacy =
        "file_path: '/data/legacy' file_dir: FILE_DIR_MDS file_name: '" + Name() + "' ";
    // A file operation without one of the fields that it requires.
    const std::string half = Chance(0.5) ? "file_name: '" + Name() + "'" : "file_dir: FILE_DIR_MDS";
    size_t size = 0;
    std::string text;
    switch (Uniform(0, 5)) {
        case 0: {
            // Field 1 with wire type 7, which no message has.
            Step step;
            step.set_send_raw("\x0f" + Text(Uniform(0, 40)));
            return step;
        }
        case 1:
            text = "file { write_request { total_size: 4 " + legacy + "} }";
            size = 4;
            break;
        case 2:
            // Only a request's legacy field is looked at.
            message.set_type(tarvo_message::INDICATION);
            text = "file { write_indication { total_size: " + std::to_string(Uniform(1, 64)) + " " +
                   legacy + "} }";
            size = Uniform(1, 64);
            break;
        case 3:
            text = "file { read_request { " + half + " } }";
            break;
        case 4:
            text = "file { append_request { " + half + " } }";
            size = 3;
            break;
        default:
            // A property message with neither a read nor a write.
            text = "property {}";
            break;
    }
    google::protobuf::TextFormat::MergeFromString(text, &message);
    return size > 0 ? Send(std::move(message), size) : SendStep(std::move(message));
}

Step SoakTraffic::Unexpected(const SoakModel& model) {
    const auto kind = static_cast<UnexpectedKind>(Uniform(0, kUnexpectedKinds - 1));
    ++unexpected_given_[UnexpectedName(kind)];
    const uint32_t earlier_token = 1 + kTokenStride * Uniform(0, next_token_ / kTokenStride);
    return UnexpectedStimulus(kind, random_, Property().send(), earlier_token,
                              model.LastDaemonToken());
}

Step SoakTraffic::Fault(const SoakModel& model) {
    // The node's faults are common, a modem restart or a daemon restart rarer; a tree turns full
    // or read-only, and back, in between.
    std::vector<std::pair<tarvo_emu::Fault, uint64_t>> weighted;
    for (tarvo_emu::Fault fault : faults_) {
        const bool rare =
            fault == tarvo_emu::Fault::kOffline || fault == tarvo_emu::Fault::kRestart;
        const bool remount =
            fault == tarvo_emu::Fault::kFull || fault == tarvo_emu::Fault::kReadOnly;
        weighted.emplace_back(fault, rare ? 1 : remount ? 2 : 3);
    }
    uint64_t total = 0;
    for (const auto& [_, weight] : weighted) total += weight;
    uint64_t pick = Uniform(0, total - 1);
    tarvo_emu::Fault chosen = weighted.front().first;
    for (const auto& [fault, weight] : weighted) {
        if (pick < weight) {
            chosen = fault;
            break;
        }
        pick -= weight;
    }
    Step step;
    switch (chosen) {
        case tarvo_emu::Fault::kFull: {
            // Full at once, or after some writes: a transfer then stops part-way, or its copy.
            constexpr uint64_t kMostFreePages = 64;
            return MidRunFaults::Full(model.files(), Chance(0.5) ? 0 : Uniform(1, kMostFreePages));
        }
        case tarvo_emu::Fault::kReadOnly:
            return MidRunFaults::ReadOnly(
                model.own_mounts()[Uniform(0, model.own_mounts().size() - 1)], model.files());
        case tarvo_emu::Fault::kOffline:
            step.set_modem_state(0);
            break;
        case tarvo_emu::Fault::kRestart:
            step.set_restart_daemon(true);
            break;
        default:
            step.set_fault(SchemaFault(chosen));
            break;
    }
    return step;
}

}  // namespace tarvo_emu
