#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "capture/pcapng_writer.h"
#include "capture/strace_reader.h"
#include "process/child_process.h"
#include "scenario/scenario.pb.h"
#include "scenario/scenario_loader.h"
#include "scenario/scenario_player.h"

namespace tarvo_emu {

// The live sources of Wireshark's capture interfaces: a phone's daemon under strace, and a rig
// session. Each writes a pcapng stream (a fifo that Wireshark reads) as things happen.

// The shell command that prints strace's lines of the daemon on a phone, over adb (`-s serial`
// when not empty), with the capture guide's strace line writing to standard output. Each thing
// that stops it first (no adb, no device or several without a serial, a user build, `adb root`
// refused, the daemon not running) is said on standard error with its fix, and the command fails.
// With `from_start`, init stops the daemon's next start until strace has attached
// (`ctl.sigstop_on`), and the daemon is restarted.
std::string AdbDeviceCommand(const std::string& serial, bool from_start);

// The serials of the devices that `adb devices` lists as ready; none without adb.
std::vector<std::string> AdbSerials();

// What to add to a device command's error line that names a cause with a fix of its own
// (strace refused to trace the daemon); nothing for another line.
std::optional<std::string> DeviceErrorAdvice(const std::string& line);

// A device's daemon captured as it happens: a command (AdbDeviceCommand's, or one of the user's,
// e.g. over ssh) prints strace's lines, and each message goes to a pcapng stream as a packet as
// soon as the strace call it comes from is complete.
class LiveDevice {
  public:
    // Opens `output` (blocking until a fifo's reader opens it) and runs `command` with sh;
    // `on_error_line` gets each line of its standard error, and each line that the reader
    // refuses.
    static android::base::Result<std::unique_ptr<LiveDevice>> Start(
        const std::string& command, const std::string& output,
        std::function<void(const std::string&)> on_error_line);

    // Waits for the command's end; its exit status, 128 + the signal's number when Stop ended it.
    int Wait();
    // Ends the command; callable from a signal handler.
    void Stop();
    // Closes the stream; an error when it could not be written.
    android::base::Result<void> Close();

  private:
    LiveDevice(std::unique_ptr<PcapngWriter> writer,
               std::function<void(const std::string&)> on_error_line);
    void Line(const std::string& line);

    std::unique_ptr<PcapngWriter> writer_;
    std::function<void(const std::string&)> on_error_line_;
    StraceReader reader_;
    bool refused_ = false;
    std::unique_ptr<ChildProcess> command_;
    pid_t group_ = 0;
};

// A rig session captured as it happens: a scenario played with every message, fault and log line
// written to a pcapng stream (a fifo that Wireshark reads) the moment it happens, exactly as
// `run --pcapng` writes them; then the daemon left running, so that what it does next (a
// restart, a client's request, nothing) is captured too, until Stop.
class LiveRig {
  public:
    // Opens `output` (blocking until a fifo's reader opens it) and starts the rig with the
    // scenario's setup.
    static android::base::Result<std::unique_ptr<LiveRig>> Start(
        const tarvo_scenario::Scenario& scenario, const ScenarioOrigin& origin,
        const std::string& output);

    // Plays the scenario's steps, then runs `tarvo` with `client`'s arguments when not empty. A
    // step that fails ends the steps; it is a note in the capture and the error says which.
    android::base::Result<void> Play(const std::string& client);
    // Ends the step being played at its next wait; callable from a signal handler.
    void Stop();
    // Stops the daemon and the rig, then closes the stream; an error when it could not be
    // written.
    android::base::Result<void> Close();

  private:
    LiveRig(const tarvo_scenario::Scenario& scenario, const ScenarioOrigin& origin,
            std::unique_ptr<PcapngWriter> recorder);

    tarvo_scenario::Scenario scenario_;
    ScenarioOrigin origin_;
    std::unique_ptr<PcapngWriter> recorder_;
    std::unique_ptr<ScenarioSession> session_;
};

}  // namespace tarvo_emu
