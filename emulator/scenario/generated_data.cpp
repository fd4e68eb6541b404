#include "scenario/generated_data.h"

#include <algorithm>
#include <cstdint>
#include <random>

namespace tarvo_emu {

std::string GeneratedBytes(const tarvo_scenario::Generated& generated) {
    std::string bytes;
    bytes.reserve(generated.size());
    if (generated.has_random_seed()) {
        std::mt19937_64 random(generated.random_seed());
        while (bytes.size() < generated.size()) {
            const uint64_t word = random();
            bytes.append(reinterpret_cast<const char*>(&word), sizeof(word));
        }
    } else if (generated.pattern().empty()) {
        bytes.assign(generated.size(), '\0');
    } else {
        const std::string& pattern = generated.pattern();
        const uint64_t run = std::max<uint64_t>(generated.has_run() ? generated.run() : 1, 1);
        if (run == 1) {
            // Whole patterns at a time: seed files of hundreds of MiB are made this way.
            while (bytes.size() < generated.size()) bytes += pattern;
        } else {
            for (size_t i = 0; bytes.size() < generated.size(); i = (i + 1) % pattern.size()) {
                bytes.append(std::min(run, generated.size() - bytes.size()), pattern[i]);
            }
        }
    }
    bytes.resize(generated.size());
    return bytes;
}

std::string SeedContent(const tarvo_scenario::SeedFile& file) {
    if (!file.has_size()) return file.content();
    tarvo_scenario::Generated generated;
    generated.set_pattern(file.content());
    generated.set_size(file.size());
    return GeneratedBytes(generated);
}

mode_t SeedMode(const tarvo_scenario::SeedFile& file) {
    return file.has_mode() ? static_cast<mode_t>(file.mode()) : kDefaultFileMode;
}

}  // namespace tarvo_emu
