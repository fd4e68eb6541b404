#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "process/log_line.h"
#include "proto/tarvo_message.pb.h"

namespace tarvo_emu {

// What a failed expectation came nearest to, for its failure message: what the daemon did that
// no step took, nearest first with how each differs, or what a file held.

// The message without its header: what an exact payload is compared on.
tarvo_message::TarvoMessage PayloadOnly(const tarvo_message::TarvoMessage& message);

// "; nearest of the N messages that no step took:" and the nearest of `untaken` to `expected`,
// each with how it differs field by field (its payload compared whole when `exact_payload`).
std::string NearestMessages(const std::vector<tarvo_message::TarvoMessage>& untaken,
                            const tarvo_message::TarvoMessage& expected, bool exact_payload);

// "; nearest of the N log lines that no step took:" and the nearest of `untaken` by tag,
// priority (0: any) and text, each with how it differs.
std::string NearestLogLines(std::vector<LogLine> untaken, int priority, const std::string& tag,
                            const std::string& text);

// Where two contents first differ and the bytes around it on both sides, for a failure that
// does not print megabytes: "first difference at byte 51200 (204800 bytes on both sides); from
// byte 51184: "..." here, "..." expected". Offsets are counted from `base`, where `actual` starts
// in a larger whole.
std::string FirstDifference(const std::string& actual, const std::string& expected,
                            uint64_t base = 0);

// A file's size, mode and first bytes, for a failed expectation on it.
std::string Holdings(const std::string& content, std::optional<mode_t> mode);

}  // namespace tarvo_emu
