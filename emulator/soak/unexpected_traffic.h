#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include "scenario/scenario.pb.h"
#include "soak/model_steps.h"

namespace tarvo_emu {

// What a real modem may send beside the protocol's usual exchanges, each kind counted in the
// soak's report by its name (docs/soak.md tells what the daemon must do with each).
enum class UnexpectedKind {
    kRepeatedToken,        // a request under the token of an earlier one of the modem's own
    kAnsweredTwice,        // the daemon's last request answered once more
    kUnrequestedResponse,  // a response under a token that the daemon never drew
    kForeignTokenReply,    // from now on, answers to a kind of request under such a token
    kUnknownFamily,        // a payload that its type's dispatch does not route, or no type
    kUnknownOperation,     // a file or UE-capability operation that is no request
    kTruncated,            // cut after a field of the header, or inside the first
    kOversized,            // longer than the daemon's read buffer
    kUnparsablePayload,    // a payload that does not parse, before the header
};
inline constexpr size_t kUnexpectedKinds = 9;

std::string UnexpectedName(UnexpectedKind kind);

// A stimulus of `kind` from the soak's random source. `ordinary` is a request of the modem's
// usual traffic with a fresh token, `earlier_token` the token of an earlier one, `daemon_token`
// that of the daemon's last request, when it made one.
tarvo_scenario::Step UnexpectedStimulus(UnexpectedKind kind, std::mt19937_64& random,
                                        tarvo_message::TarvoMessage ordinary,
                                        uint32_t earlier_token,
                                        std::optional<uint32_t> daemon_token);

// Writes what the daemon must do with `message` when its dispatch routes it to no service, and
// says whether it did: a type other than a request or an indication (a response for a token that
// no request awaits is dropped), a payload that its type does not route, an operation that is no
// request. None is answered; each dispatch logs what it does not support.
bool ModelUnrouted(const tarvo_message::TarvoMessage& message, ModelSteps& steps);

}  // namespace tarvo_emu
