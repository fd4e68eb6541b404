#include "scenario/step_text.h"

#include "peers/transcript.h"
#include "scenario/scenario.pb.h"

namespace tarvo_emu {

namespace {

class StepText : public OneLineText {
  public:
    explicit StepText(bool shorten) : OneLineText(shorten) {
        ShowInOctal(tarvo_scenario::SeedFile::descriptor()->FindFieldByName("mode"));
        ShowInOctal(tarvo_scenario::ExpectFile::descriptor()->FindFieldByName("mode"));
    }
};

}  // namespace

std::string ShortStepText(const google::protobuf::Message& message) {
    static const StepText text(true);
    return text(message);
}

std::string FullStepText(const google::protobuf::Message& message) {
    static const StepText text(false);
    return text(message);
}

}  // namespace tarvo_emu
