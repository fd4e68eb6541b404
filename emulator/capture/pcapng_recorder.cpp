#include "capture/pcapng_recorder.h"

#include <chrono>

#include "peers/transcript_codec.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

// Unix time in seconds, as pcapng stamps packets.
double Now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

Result<std::unique_ptr<PcapngRecorder>> PcapngRecorder::Open(const std::string& path) {
    Result<std::unique_ptr<PcapngWriter>> writer = PcapngWriter::Open(path);
    if (!writer.ok()) return writer.error();
    return std::unique_ptr<PcapngRecorder>(new PcapngRecorder(std::move(*writer)));
}

void PcapngRecorder::Attach(RigHooks* hooks) {
    hooks->ipc_observer = this;
    hooks->log_sink = [this](const LogLine& line) { OnLog(line); };
}

void PcapngRecorder::OnRead(std::string_view bytes) { writer_->Message(true, bytes, Now()); }

void PcapngRecorder::OnWrite(std::string_view bytes) { writer_->Message(false, bytes, Now()); }

void PcapngRecorder::OnFault(Fault fault) {
    // Named as decode names the faults of a device's capture.
    writer_->Message(fault != Fault::kWriteError, {}, Now(), FaultNote(fault, {}));
}

void PcapngRecorder::OnLog(const LogLine& line) { writer_->Log(line, Now()); }

void PcapngRecorder::OnNote(const std::string& text) {
    CaptureEvent event;
    event.kind = CaptureEvent::Kind::kNote;
    event.text = text;
    WriteEvent(writer_.get(), event, Now());
}

}  // namespace tarvo_emu
