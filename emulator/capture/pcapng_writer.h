#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <android-base/result.h>

#include "capture/capture.h"
#include "nodes/ipc_node.h"
#include "process/log_line.h"
#include "rig/rig.h"

namespace tarvo_emu {

// Writes a session as a pcapng file that Wireshark reads with the message schema: each message
// is a packet of link type 252 (exported PDU) whose tags name the `protobuf` dissector and a UDP
// port pair (40001 the modem, 40002 the daemon), addresses that a name resolution block calls
// "modem" and "tarvo", and the direction in the packet's flags; log lines are packets for the
// `logcat_text_threadtime` dissector in the same timeline. Safe to call from several threads.
//
// As a rig's observer it writes a live session, each packet stamped when it happens: the modem's
// messages when the daemon reads them and the daemon's when it writes them, each injected fault
// when it takes effect, and the log lines of every process in the sandbox.
class PcapngWriter : public IpcObserver {
  public:
    static constexpr uint16_t kModemPort = 40001;
    static constexpr uint16_t kDaemonPort = 40002;

    static android::base::Result<std::unique_ptr<PcapngWriter>> Open(const std::string& path);
    ~PcapngWriter();

    // One message, its bytes as they were (parsed or not), at `time` (Unix seconds). A fault
    // is a message of no bytes whose `comment` says what happened.
    void Message(bool to_daemon, std::string_view bytes, double time,
                 const std::string& comment = {});
    void Log(const LogLine& line, double time);

    // Has the rig that takes `hooks` report to this writer, which must outlive it.
    void Attach(RigHooks* hooks);
    void OnRead(std::string_view bytes) override;
    void OnWrite(std::string_view bytes) override;
    void OnFault(Fault fault) override;
    // A line of the rig's own (a step that failed) in the same timeline.
    void OnNote(const std::string& text);
    // Flushes and closes; an error when anything could not be written.
    android::base::Result<void> Close();

  private:
    PcapngWriter(FILE* file, std::string path) : file_(file), path_(std::move(path)) {}
    void Packet(const std::string& pdu, uint32_t flags, double time, const std::string& comment);
    void Block(uint32_t type, const std::string& body);

    std::mutex mutex_;
    FILE* file_;
    std::string path_;
};

// Writes one event of a capture at `time` (Unix seconds): a message as a packet, a fault as a
// packet of no bytes with its comment, anything else as a log line of the rig's own.
void WriteEvent(PcapngWriter* writer, const CaptureEvent& event, double time);

// Writes a whole capture; times without a date start at the Unix epoch.
android::base::Result<void> WritePcapng(const Capture& capture, const std::string& path);

// The name under which a profile is meant to be kept in Wireshark's profiles folder.
constexpr char kWiresharkProfileName[] = "tarvo";

// Writes a Wireshark configuration profile into `dir` (made when missing) that decodes the pcapng
// files of PcapngWriter: a copy of the message schema, the protobuf dissector's search path
// pointing at it with every file preloaded, the UDP ports of both ends mapped to TarvoMessage,
// fields as filterable items, and addresses shown by the names the files give them. The search
// path is absolute: a profile moved elsewhere is written again.
android::base::Result<void> WriteWiresharkProfile(const std::string& dir);

}  // namespace tarvo_emu
