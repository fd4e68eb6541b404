#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// What a real modem may send beside the protocol's usual exchanges. Each kind is counted in the
// soak's report by its name.
enum class UnexpectedKind {
    // A request under the token of an earlier request of the modem's own.
    kRepeatedToken,
    // The daemon's last request answered a second time.
    kAnsweredTwice,
    // A response under a token that the daemon never drew.
    kUnrequestedResponse,
    // From now on the modem answers a kind of the daemon's requests under a token never drawn.
    kForeignTokenReply,
    // A payload that the daemon does not take with that type, or none at all; or no known type.
    kUnknownFamily,
    // A file or UE-capability request whose operation is not a request.
    kUnknownOperation,
    // A message cut at the end of one of its fields, or inside its first.
    kTruncated,
    // A message longer than the daemon's read buffer.
    kOversized,
    // A payload that does not parse, written before the header.
    kUnparsablePayload,
};
inline constexpr size_t kUnexpectedKinds = 9;

std::string UnexpectedName(UnexpectedKind kind);

// Makes a stimulus of each kind from the soak's random source.
class UnexpectedTraffic {
  public:
    explicit UnexpectedTraffic(std::mt19937_64& random) : random_(random) {}

    // A stimulus of `kind`. `ordinary` is a message of the modem's usual traffic with a fresh
    // token, `earlier_token` the token of an earlier one, `daemon_token` that of the daemon's
    // last request, when it made one.
    tarvo_scenario::Step Make(UnexpectedKind kind, tarvo_message::TarvoMessage ordinary,
                              uint32_t earlier_token, std::optional<uint32_t> daemon_token);

  private:
    uint64_t Uniform(uint64_t low, uint64_t high);
    // A response that the daemon's own requests get, under `token`.
    tarvo_message::TarvoMessage Response(uint32_t token);
    tarvo_scenario::Step UnknownFamily(tarvo_message::TarvoMessage message);
    tarvo_scenario::Step UnknownOperation(tarvo_message::TarvoMessage message);
    tarvo_scenario::Step Truncated(const tarvo_message::TarvoMessage& message);

    std::mt19937_64& random_;
};

}  // namespace tarvo_emu
