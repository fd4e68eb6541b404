#pragma once

namespace tarvo_emu {

// The text of proto/tarvo_message.proto as it was when the rig was built, so that what the rig
// writes for other tools carries the schema that reads it.
extern const char kMessageSchema[];

}  // namespace tarvo_emu
