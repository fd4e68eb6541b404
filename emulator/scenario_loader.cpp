#include "scenario_loader.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>

#include <android-base/file.h>
#include <android-base/stringprintf.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using tarvo_scenario::Scenario;

namespace tarvo_emu {

namespace {

// Collects parse errors with their line numbers.
class ErrorCollector : public google::protobuf::io::ErrorCollector {
  public:
    void AddError(int line, int column, const std::string& message) override {
        errors += android::base::StringPrintf("line %d column %d: %s\n", line + 1, column + 1,
                                              message.c_str());
    }
    std::string errors;
};

}  // namespace

Result<Scenario> ParseScenario(const std::string& text, const std::string& source) {
    google::protobuf::TextFormat::Parser parser;
    ErrorCollector errors;
    parser.RecordErrorsTo(&errors);
    Scenario scenario;
    if (!parser.ParseFromString(text, &scenario)) return Error() << source << ": " << errors.errors;
    return scenario;
}

Result<Scenario> LoadScenario(const std::string& path) {
    std::string text;
    if (!android::base::ReadFileToString(path, &text)) {
        return ErrnoError() << "cannot read " << path;
    }
    return ParseScenario(text, path);
}

}  // namespace tarvo_emu
