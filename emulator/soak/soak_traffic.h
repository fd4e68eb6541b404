#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "device/fault.h"
#include "scenario/scenario.pb.h"
#include "soak/soak_model.h"
#include "soak/unexpected_traffic.h"

namespace tarvo_emu {

// Random modem traffic for a soak run, one stimulus at a time: the modem's messages of every
// family, malformed and unexpected ones, signals for the daemon's own requests, the modem's answers
// to them, and faults between them. The same seed gives the same stimuli against the same model.
class SoakTraffic {
  public:
    SoakTraffic(uint64_t seed, std::set<tarvo_emu::Fault> faults);

    // The next stimulus; `model` says what the daemon holds, so that blocks continue transfers
    // and reads find files.
    tarvo_scenario::Step Next(const SoakModel& model);
    // How many of the stimuli so far were faults.
    size_t faults_given() const { return faults_given_; }
    // The unexpected traffic among them, by kind.
    const std::map<std::string, size_t>& unexpected_given() const { return unexpected_given_; }

  private:
    // A file that the modem sends in blocks.
    struct Transfer {
        uint32_t directory;
        std::string name;
        uint32_t total;
        bool indication;
        bool started = false;
    };

    uint64_t Uniform(uint64_t low, uint64_t high);
    bool Chance(double probability);
    std::string Text(size_t size);
    std::string Name();
    uint32_t Directory();
    uint32_t BlockSize();
    uint32_t TotalSize();
    Transfer NewTransfer();
    // A message of `type` with the next token; room is left after it for a train of answers.
    tarvo_message::TarvoMessage NewMessage(tarvo_message::TarvoMessageType type);
    // `message` sent with `size` bytes of data: written out when short, generated when long.
    tarvo_scenario::Step Send(tarvo_message::TarvoMessage message, size_t size);

    tarvo_scenario::Step Block(const SoakModel& model);
    tarvo_scenario::Step Append();
    tarvo_scenario::Step Read(const SoakModel& model);
    tarvo_scenario::Step Property();
    tarvo_scenario::Step Temperature();
    tarvo_scenario::Step Uecap();
    // While /data is full, none that writes a file there.
    tarvo_scenario::Step Diagnostics(bool disk_full);
    tarvo_scenario::Step Malformed();
    tarvo_scenario::Step Unexpected(const SoakModel& model);
    tarvo_scenario::Step Fault(const SoakModel& model);

    std::mt19937_64 random_;
    std::set<tarvo_emu::Fault> faults_;
    size_t faults_given_ = 0;
    std::map<std::string, size_t> unexpected_given_;
    std::vector<Transfer> transfers_;
    uint32_t next_token_ = 1;
};

}  // namespace tarvo_emu
