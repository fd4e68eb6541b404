#include "capture/pcapng_writer.h"

#include <arpa/inet.h>
#include <time.h>

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <system_error>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <fmt/format.h>

#include "capture/capture_reader.h"
#include "capture/message_schema.h"

using android::base::ErrnoError;
using android::base::Result;

namespace tarvo_emu {

namespace {

// Block types and options of pcapng.
constexpr uint32_t kSectionHeader = 0x0a0d0d0a;
constexpr uint32_t kByteOrderMagic = 0x1a2b3c4d;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kNameResolution = 4;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint16_t kOptionEnd = 0;
constexpr uint16_t kOptionComment = 1;
constexpr uint16_t kOptionFlags = 2;
constexpr uint16_t kNameRecordIpv4 = 1;
// LINKTYPE_WIRESHARK_UPPER_PDU: each packet names the dissector that reads it.
constexpr uint16_t kLinkTypeUpperPdu = 252;
constexpr uint32_t kFlagInbound = 1;
constexpr uint32_t kFlagOutbound = 2;

// Tags of an exported PDU, big-endian: the dissector by name, the addresses and ports.
constexpr uint16_t kTagEnd = 0;
constexpr uint16_t kTagProtocolName = 12;
constexpr uint16_t kTagIpv4Source = 20;
constexpr uint16_t kTagIpv4Destination = 21;
constexpr uint16_t kTagPortType = 24;
constexpr uint16_t kTagSourcePort = 25;
constexpr uint16_t kTagDestinationPort = 26;
constexpr uint32_t kPortTypeUdp = 3;

// How the rig's own lines (states, signals, notes) are shown among the daemon's: info, tagged as
// the command.
constexpr int kNotePriority = 4;
constexpr char kNoteTag[] = "tarvo-emu";

// Loopback addresses that stand for the two ends; nothing is sent to them.
constexpr std::string_view kModemAddress("\x7f\0\0\x01", 4);
constexpr std::string_view kDaemonAddress("\x7f\0\0\x02", 4);

// A number in the host's byte order, as the section header's magic tells the reader.
template <typename Number>
void Put(std::string* out, Number value) {
    out->append(reinterpret_cast<const char*>(&value), sizeof(value));
}

void PadTo4(std::string* out) { out->append((4 - out->size() % 4) % 4, '\0'); }

void PutOption(std::string* out, uint16_t code, std::string_view value) {
    Put(out, code);
    Put(out, static_cast<uint16_t>(value.size()));
    out->append(value);
    PadTo4(out);
}

void PutTag(std::string* out, uint16_t tag, std::string_view value) {
    Put(out, htons(tag));
    Put(out, htons(static_cast<uint16_t>(value.size())));
    out->append(value);
}

std::string BigEndian32(uint32_t value) {
    std::string bytes;
    Put(&bytes, htonl(value));
    return bytes;
}

// The dissector's name, padded with zeros to a multiple of four as Wireshark writes it.
std::string ProtocolName(std::string name) {
    name.append(4 - name.size() % 4, '\0');
    return name;
}

constexpr char kSchemaFolder[] = "proto";
constexpr char kSchemaFile[] = "tarvo_message.proto";
constexpr char kMessageType[] = "tarvo_message.TarvoMessage";

// The files of a profile that Wireshark reads: its preferences, and one per table ("UAT") of
// quoted, comma-separated fields, named after the table.
constexpr char kPreferences[] = "preferences";
constexpr char kSearchPaths[] = "protobuf_search_paths";
constexpr char kUdpMessageTypes[] = "protobuf_udp_message_types";
constexpr char kHeader[] = "# Written by tarvo-emu wireshark-profile.\n";

}  // namespace

Result<std::unique_ptr<PcapngWriter>> PcapngWriter::Open(const std::string& path) {
    FILE* file = fopen(path.c_str(), "we");
    if (file == nullptr) return ErrnoError() << "cannot write " << path;
    std::unique_ptr<PcapngWriter> writer(new PcapngWriter(file, path));

    std::string section;
    Put<uint32_t>(&section, kByteOrderMagic);
    Put<uint16_t>(&section, 1);  // version 1.0
    Put<uint16_t>(&section, 0);
    Put<uint32_t>(&section, 0xffffffff);  // section length not given
    Put<uint32_t>(&section, 0xffffffff);
    writer->Block(kSectionHeader, section);

    std::string interface;
    Put<uint16_t>(&interface, kLinkTypeUpperPdu);
    Put<uint16_t>(&interface, 0);
    Put<uint32_t>(&interface, 0);  // no snapshot length: messages are up to 65,568 bytes
    writer->Block(kInterfaceDescription, interface);

    std::string names;
    for (const auto& [address, name] :
         {std::pair{kModemAddress, "modem"}, std::pair{kDaemonAddress, "tarvo"}}) {
        PutOption(&names, kNameRecordIpv4, std::string(address) + name + '\0');
    }
    Put<uint32_t>(&names, kOptionEnd);
    writer->Block(kNameResolution, names);
    return writer;
}

PcapngWriter::~PcapngWriter() {
    if (file_ != nullptr) fclose(file_);
}

void PcapngWriter::Message(bool to_daemon, std::string_view bytes, double time,
                           const std::string& comment) {
    std::string pdu;
    PutTag(&pdu, kTagProtocolName, ProtocolName("protobuf"));
    PutTag(&pdu, kTagIpv4Source, to_daemon ? kModemAddress : kDaemonAddress);
    PutTag(&pdu, kTagIpv4Destination, to_daemon ? kDaemonAddress : kModemAddress);
    PutTag(&pdu, kTagPortType, BigEndian32(kPortTypeUdp));
    PutTag(&pdu, kTagSourcePort, BigEndian32(to_daemon ? kModemPort : kDaemonPort));
    PutTag(&pdu, kTagDestinationPort, BigEndian32(to_daemon ? kDaemonPort : kModemPort));
    PutTag(&pdu, kTagEnd, {});
    pdu.append(bytes);
    Packet(pdu, to_daemon ? kFlagInbound : kFlagOutbound, time, comment);
}

void PcapngWriter::Log(const LogLine& line, double time) {
    // logcat's threadtime form: "MM-DD HH:MM:SS.mmm  PID  TID P TAG: text".
    const time_t seconds = static_cast<time_t>(std::floor(time));
    struct tm utc = {};
    gmtime_r(&seconds, &utc);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &utc);
    const int millis = static_cast<int>((time - std::floor(time)) * 1000);
    std::string pdu;
    PutTag(&pdu, kTagProtocolName, ProtocolName("logcat_text_threadtime"));
    PutTag(&pdu, kTagEnd, {});
    pdu += android::base::StringPrintf("%s.%03d %5d %5d %c %s: %s\n", stamp, millis, line.pid,
                                       line.tid, PriorityLetter(line.priority), line.tag.c_str(),
                                       line.text.c_str());
    Packet(pdu, 0, time, {});
}

void PcapngWriter::Attach(RigHooks* hooks) {
    hooks->ipc_observer = this;
    hooks->log_sink = [this](const LogLine& line) { Log(line, UnixNow()); };
}

void PcapngWriter::OnRead(std::string_view bytes) { Message(true, bytes, UnixNow()); }

void PcapngWriter::OnWrite(std::string_view bytes) { Message(false, bytes, UnixNow()); }

void PcapngWriter::OnFault(Fault fault) {
    CaptureEvent event;
    event.kind = CaptureEvent::Kind::kFault;
    event.fault = fault;
    WriteEvent(this, event, UnixNow());
}

void PcapngWriter::OnNote(const std::string& text) {
    CaptureEvent event;
    event.kind = CaptureEvent::Kind::kNote;
    event.text = text;
    WriteEvent(this, event, UnixNow());
}

void PcapngWriter::Packet(const std::string& pdu, uint32_t flags, double time,
                          const std::string& comment) {
    const uint64_t micros = static_cast<uint64_t>(std::llround(time * 1e6));
    std::string body;
    Put<uint32_t>(&body, 0);  // interface 0
    Put<uint32_t>(&body, micros >> 32);
    Put<uint32_t>(&body, micros & 0xffffffff);
    Put<uint32_t>(&body, pdu.size());
    Put<uint32_t>(&body, pdu.size());
    body += pdu;
    PadTo4(&body);
    if (flags != 0) {
        PutOption(&body, kOptionFlags, std::string_view(reinterpret_cast<char*>(&flags), 4));
    }
    if (!comment.empty()) PutOption(&body, kOptionComment, comment);
    Put<uint32_t>(&body, kOptionEnd);
    std::lock_guard<std::mutex> lock(mutex_);
    Block(kEnhancedPacket, body);
}

void PcapngWriter::Block(uint32_t type, const std::string& body) {
    const uint32_t length = static_cast<uint32_t>(body.size() + 12);
    std::string block;
    Put<uint32_t>(&block, type);
    Put<uint32_t>(&block, length);
    block += body;
    Put<uint32_t>(&block, length);
    fwrite(block.data(), 1, block.size(), file_);
    // Whole blocks at once: a live reader (Wireshark on a fifo) sees each packet as it happens.
    fflush(file_);
}

Result<void> PcapngWriter::Close() {
    std::lock_guard<std::mutex> lock(mutex_);
    const bool failed = ferror(file_) != 0;
    const int closed = fclose(file_);
    file_ = nullptr;
    if (failed || closed != 0) return ErrnoError() << "cannot write " << path_;
    return {};
}

void WriteEvent(PcapngWriter* writer, const CaptureEvent& event, double time) {
    using Kind = CaptureEvent::Kind;
    switch (event.kind) {
        case Kind::kToDaemon:
        case Kind::kFromDaemon:
            writer->Message(event.kind == Kind::kToDaemon, event.bytes, time);
            break;
        case Kind::kFault:
            writer->Message(event.fault != Fault::kWriteError, {}, time,
                            DescribeEvent(event, false).second);
            break;
        case Kind::kLog:
            writer->Log(event.log, time);
            break;
        case Kind::kModemState:
        case Kind::kSignal:
        case Kind::kNote: {
            // Shown in the timeline as the rig's own line.
            LogLine line;
            line.priority = kNotePriority;
            line.tag = kNoteTag;
            line.text = DescribeEvent(event, false).second;
            writer->Log(line, time);
            break;
        }
    }
}

Result<void> WritePcapng(const Capture& capture, const std::string& path) {
    Result<std::unique_ptr<PcapngWriter>> writer = PcapngWriter::Open(path);
    if (!writer.ok()) return writer.error();
    const double epoch = capture.epoch.value_or(0);
    double last = 0;
    for (const CaptureEvent& event : capture.events) {
        // Events of a capture without times keep their order a microsecond apart.
        last = event.time ? *event.time : last + 1e-6;
        WriteEvent(writer->get(), event, epoch + last);
    }
    return (*writer)->Close();
}

Result<void> WriteWiresharkProfile(const std::string& dir) {
    std::error_code error;
    const std::string absolute = std::filesystem::absolute(dir, error).lexically_normal();
    const std::string schema_dir = fmt::format("{}/{}", absolute, kSchemaFolder);
    std::filesystem::create_directories(schema_dir, error);
    if (error)
        return android::base::Error() << "cannot make " << schema_dir << ": " << error.message();

    // A table's second field says whether to load every file under the path at start, which
    // the message type mapping needs.
    const std::string files[][2] = {
        {fmt::format("{}/{}", schema_dir, kSchemaFile), kMessageSchema},
        {fmt::format("{}/{}", absolute, kSearchPaths),
         fmt::format("{}\"{}\",\"TRUE\"\n", kHeader, schema_dir)},
        {fmt::format("{}/{}", absolute, kUdpMessageTypes),
         fmt::format("{}\"{}-{}\",\"{}\"\n", kHeader, PcapngWriter::kModemPort,
                     PcapngWriter::kDaemonPort, kMessageType)},
        {fmt::format("{}/{}", absolute, kPreferences), fmt::format("{}"
                                                                   "protobuf.preload_protos: TRUE\n"
                                                                   "protobuf.pbf_as_hf: TRUE\n"
                                                                   "nameres.network_name: TRUE\n",
                                                                   kHeader)},
    };
    for (const auto& [path, text] : files) {
        if (!android::base::WriteStringToFile(text, path)) {
            return ErrnoError() << "cannot write " << path;
        }
    }
    return {};
}

}  // namespace tarvo_emu
