#include "scenario/scenario_setup.h"

#include "scenario/generated_data.h"

namespace tarvo_emu {

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

RigOptions RigOptionsOf(const tarvo_scenario::Scenario& scenario, std::ostream* transcript,
                        std::ostream* full_transcript) {
    RigOptions options;
    options.initial_state = scenario.initial_state();
    for (const tarvo_scenario::SeedFile& file : scenario.file()) {
        options.files.push_back({file.path(), SeedContent(file), SeedMode(file)});
    }
    for (const tarvo_scenario::Property& property : scenario.property()) {
        options.properties.emplace_back(property.name(), property.value());
    }
    options.remove.assign(scenario.remove().begin(), scenario.remove().end());
    options.ril.absent = scenario.ril().absent();
    options.ril.omit_symbol = scenario.ril().omit_symbol();
    options.ril.open_fails = scenario.ril().open_fails();
    if (scenario.has_tput()) {
        const tarvo_scenario::TputModem& tput = scenario.tput();
        if (tput.has_downlink_block_size()) {
            options.tput.downlink_block_size = tput.downlink_block_size();
        }
        options.tput.downlink_bytes_per_s = tput.downlink_bytes_per_s();
        options.tput.no_downlink = tput.no_downlink();
        options.tput.fail_writes.assign(tput.fail_write().begin(), tput.fail_write().end());
    }
    options.data_size_limit_kib = scenario.data_size_limit_kib();
    options.read_only.assign(scenario.read_only().begin(), scenario.read_only().end());
    options.own_mounts.assign(scenario.own_mount().begin(), scenario.own_mount().end());
    options.transcript = transcript;
    options.full_transcript = full_transcript;
    return options;
}

}  // namespace tarvo_emu
