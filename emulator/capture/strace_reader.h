#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/result.h>

#include "capture/capture.h"

namespace tarvo_emu {

// What the reader cannot learn from the capture itself.
struct StraceOptions {
    // The descriptor of /dev/oem_ipc1, for a capture taken without -y and without the open.
    std::optional<int> ipc_fd;
};

// Reads strace's output of the daemon, line by line, into the messages on /dev/oem_ipc1 and
// the states of /dev/umts_boot0. It takes every form strace writes: with or without the pid
// (`-o` with -f, or `[pid N]` on standard error), `-t`, `-tt` or `-ttt` times, strings under
// `-xx`, `-x` or neither, calls split into `<unfinished ...>` and `<... resumed>` (paired by
// thread), errors, interrupted calls, partial writes (joined into the message they belong to).
// A descriptor is known by its `-y` path, by the open that returned it, by the status ioctl
// (the boot node), or by `StraceOptions::ipc_fd`. A buffer that `-s` cut is read from the hex dump
// that `-e read=FD` and `-e write=FD` print after the call, which holds every byte.
class StraceReader {
  public:
    // Gets an event with its Unix time: the capture's own when it has `-ttt` stamps, else now.
    using Sink = std::function<void(const CaptureEvent& event, double unix_time)>;

    // Hands each event to `sink` too, when not empty, the moment its call is complete: a read or
    // a write when its result is in, a message of several partial writes with its last one.
    explicit StraceReader(StraceOptions options = {}, Sink sink = {})
        : options_(options), sink_(std::move(sink)) {}

    // Reads the next line of the capture; an error names the line and what to do.
    android::base::Result<void> Line(std::string_view line);
    // The capture read so far; an error when nothing was known as the IPC node.
    android::base::Result<Capture> Finish();

    // What a descriptor is known to be.
    enum class Node { kOther, kIpc, kBoot };

  private:
    struct Pending {
        std::string head;  // the call up to `<unfinished ...>`
        std::optional<double> time;
    };
    // A call whose buffer -s cut, waiting for the hex dump of `-e read=`/`-e write=`.
    struct Cut {
        std::string call;
        std::optional<double> time;
        size_t size;        // the bytes that the call took
        std::string bytes;  // those of the dump so far
        std::string error;  // what is wrong when no dump follows
    };

    android::base::Result<void> Call(std::string_view text, std::optional<double> time);
    // A line after a cut buffer: a row of its dump, or anything else, which leaves it cut.
    android::base::Result<void> DumpLine(std::string_view line);
    // A read or a write on the IPC node.
    android::base::Result<void> Transfer(std::string_view name, int fd,
                                         const std::vector<std::string_view>& args,
                                         std::string_view result, std::optional<double> time);
    // Adds an event to the capture and hands it to the sink.
    void Add(CaptureEvent::Kind kind, std::optional<double> time, std::string bytes = {},
             std::string text = {}, int state = 0, Fault fault = Fault::kEndOfFile);
    // The descriptor argument `arg` ("5" or "5</dev/oem_ipc1>"), noting the node a path names.
    android::base::Result<int> Descriptor(std::string_view arg);
    Node NodeOf(int fd) const;
    std::optional<double> Time(std::string_view stamp);

    StraceOptions options_;
    size_t line_ = 0;
    std::map<int, Node> nodes_;
    std::map<int, Pending> pending_;       // by thread
    std::map<int, CaptureEvent> partial_;  // a message of partial writes so far, by descriptor
    std::set<int> unknown_;                // descriptors of reads and writes, not known
    std::optional<int> state_;
    std::optional<double> first_time_;
    std::optional<double> last_time_;
    double day_offset_ = 0;  // for `-t` and `-tt` captures that pass midnight
    std::string last_note_;
    Capture capture_;
    Sink sink_;
    std::string_view call_;              // the call being read
    std::optional<Cut> cut_;             // a call waiting for its dump
    std::optional<std::string> dumped_;  // a dump's bytes, for the call that waited for them
};

// The files that `strace -ff -o PREFIX` writes, one per thread (PREFIX.PID), as one capture: each
// line given its thread's pid, as `-f -o` writes it, and all merged by their time stamps (a
// line without one, a row of a hex dump, stays after the line before it). Fails on a file that
// cannot be read, one not named PREFIX.PID, or lines without times (-t, -tt or -ttt).
android::base::Result<std::string> MergeStraceFiles(const std::vector<std::string>& paths);

}  // namespace tarvo_emu
