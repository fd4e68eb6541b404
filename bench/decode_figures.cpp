// decode.strace: how fast `tarvo-emu decode` reads strace's output of 64 KiB blocks, against a
// loop that only takes the same lines and unescapes their buffers.

#include <array>
#include <chrono>
#include <random>
#include <sstream>

#include <android-base/stringprintf.h>

#include "bench_figures.h"
#include "capture/capture_reader.h"
#include "device/device_facts.h"

using android::base::Error;
using android::base::Result;
using android::base::StringAppendF;
using android::base::StringPrintf;

namespace tarvo_bench {

namespace {

// The largest message the daemon reads, as a device's capture shows each of its reads.
constexpr size_t kCaptureBlock = tarvo_emu::kLargestMessage;
constexpr char kHexDigits[] = "0123456789abcdef";
constexpr double kEpoch = 1700000000;

// `\xNN` for every byte, as strace's -xx writes strings (and the -y path).
std::string Escaped(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size() * 4);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {'\\', 'x', kHexDigits[byte >> 4], kHexDigits[byte & 0xf]};
    }
    return text;
}

// A capture under `strace -f -ttt -y -xx -s 70000 -o`: the daemon reading and writing `blocks`
// messages of 65,568 random bytes each, in turn.
std::string StraceCapture(uint64_t blocks, std::string* last_block) {
    const std::string fd = "5<" + Escaped("/dev/oem_ipc1") + ">";
    std::mt19937 random(static_cast<uint32_t>(blocks));
    std::string block(kCaptureBlock, '\0');
    std::string text;
    for (uint64_t i = 0; i < blocks; ++i) {
        for (char& c : block) c = static_cast<char>(random());
        StringAppendF(&text, "4242  %.6f %s(%s, \"", kEpoch + i * 1e-3, i % 2 ? "write" : "read",
                      fd.c_str());
        text += Escaped(block);
        StringAppendF(&text, "\", %zu) = %zu\n", kCaptureBlock, kCaptureBlock);
    }
    *last_block = block;
    return text;
}

// The floor: each line taken as the reader takes it, and its buffer's `\xNN` turned into bytes.
size_t UnescapeLines(std::istream& in) {
    std::array<uint8_t, 256> value{};
    for (int digit = 0; digit < 16; ++digit) value[static_cast<uint8_t>(kHexDigits[digit])] = digit;
    std::string line;
    std::string bytes;
    size_t total = 0;
    while (std::getline(in, line)) {
        bytes.clear();
        const char* p = line.data() + line.find('"') + 1;
        while (*p != '"') {
            if (p[0] == '\\' && p[1] == 'x') {
                bytes.push_back(static_cast<char>(value[static_cast<uint8_t>(p[2])] << 4 |
                                                  value[static_cast<uint8_t>(p[3])]));
                p += 4;
            } else {
                bytes.push_back(*p++);
            }
        }
        total += bytes.size();
    }
    return total;
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

Figures DecodeFigures(const BenchSettings& settings) {
    std::string last_block;
    const std::string text = StraceCapture(settings.decode_blocks, &last_block);
    double reader_s = 0;
    double floor_s = 0;
    for (int round = 0; round < settings.rounds; ++round) {
        std::istringstream in(text);
        auto start = std::chrono::steady_clock::now();
        Result<tarvo_emu::Capture> capture = tarvo_emu::ReadCapture(in, {});
        reader_s += SecondsSince(start);
        if (!capture.ok()) return Error() << "the reader refused the capture: " << capture.error();
        if (capture->events.size() != settings.decode_blocks ||
            capture->events.back().bytes != last_block) {
            return Error() << "the reader did not read back the blocks it was given";
        }

        std::istringstream floor_in(text);
        start = std::chrono::steady_clock::now();
        const size_t unescaped = UnescapeLines(floor_in);
        floor_s += SecondsSince(start);
        if (unescaped != settings.decode_blocks * kCaptureBlock) {
            return Error() << "the floor unescaped " << unescaped << " bytes";
        }
    }
    const double mib = static_cast<double>(text.size()) * settings.rounds / (1 << 20);
    Figure figure = RatioAtLeast("decode.strace", "MiB/s", mib / reader_s, mib / floor_s, 0.5);
    figure.note = StringPrintf(
        "%zu MiB of -xx text per round, %.0f blocks of 65,568 bytes/s", text.size() >> 20,
        static_cast<double>(settings.decode_blocks) * settings.rounds / reader_s);
    return std::vector<Figure>{figure};
}

}  // namespace tarvo_bench
