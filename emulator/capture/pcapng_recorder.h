#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <android-base/result.h>

#include "capture/pcapng_writer.h"
#include "nodes/ipc_node.h"
#include "process/log_line.h"
#include "rig/rig.h"

namespace tarvo_emu {

// Writes a live session of the rig as pcapng, each packet stamped when it happens: the modem's
// messages when the daemon reads them and the daemon's when it writes them (bytes as they were,
// parsed or not), each injected fault when it takes effect as a packet of no bytes whose comment
// names it, and the log lines of every process in the sandbox (the daemon's and its RIL
// library's) in the same timeline.
class PcapngRecorder : public IpcObserver {
  public:
    static android::base::Result<std::unique_ptr<PcapngRecorder>> Open(const std::string& path);

    // Has the rig that takes `hooks` report to this recorder, which must outlive it.
    void Attach(RigHooks* hooks);

    void OnRead(std::string_view bytes) override;
    void OnWrite(std::string_view bytes) override;
    void OnFault(Fault fault) override;
    void OnLog(const LogLine& line);
    // A line of the rig's own (a step that failed) in the same timeline.
    void OnNote(const std::string& text);
    // Once the rig is gone; an error when anything could not be written.
    android::base::Result<void> Close() { return writer_->Close(); }

  private:
    explicit PcapngRecorder(std::unique_ptr<PcapngWriter> writer) : writer_(std::move(writer)) {}

    std::unique_ptr<PcapngWriter> writer_;
};

}  // namespace tarvo_emu
