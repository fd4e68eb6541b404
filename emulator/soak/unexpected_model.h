#pragma once

#include "proto/tarvo_message.pb.h"
#include "soak/model_steps.h"

namespace tarvo_emu {

// What the daemon must do with messages that no service of its takes: a type other than a
// request or an indication (a response is paired by token, and one for a token that no request
// of the daemon's awaits is dropped), a payload that its type's dispatch does not route, a file
// or UE-capability request whose operation is not a request. None is answered; the dispatch logs
// the unsupported id.
class UnexpectedModel {
  public:
    explicit UnexpectedModel(ModelSteps& steps) : steps_(steps) {}

    // Writes what the daemon must do with `message` when no service takes it; false when one
    // does, and the message is its family's.
    bool Play(const tarvo_message::TarvoMessage& message);

  private:
    ModelSteps& steps_;
};

}  // namespace tarvo_emu
