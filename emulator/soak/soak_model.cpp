#include "soak/soak_model.h"

#include "device/device_facts.h"
#include "scenario/generated_data.h"
#include "scenario/payload_fields.h"
#include "soak/mid_run_faults.h"
#include "soak/unexpected_traffic.h"

using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// Resident memory may grow this much over a run before the soak calls it a leak.
constexpr uint32_t kRssGrowthKib = 16384;
// A usage check after this many stimuli.
constexpr size_t kUsageCheckEvery = 100;
constexpr char kMark[] = "soak";

}  // namespace

tarvo_scenario::Scenario SoakModel::Setup(uint64_t seed) {
    tarvo_scenario::Scenario setup;
    setup.set_initial_state(kModemOnline);
    const auto file = [&setup](const std::string& path, const std::string& content,
                               mode_t mode) -> tarvo_scenario::SeedFile& {
        tarvo_scenario::SeedFile* seeded = setup.add_file();
        seeded->set_path(path);
        seeded->set_content(content);
        seeded->set_mode(mode);
        return *seeded;
    };
    file(kStatConfigFile, DiagnosticsModel::kStatConfig, 0664);
    file(kUserspaceConfigFile, DiagnosticsModel::kUserspaceConfig, 0664);
    file(std::string(kMdsDirectory) + "/seed.bin", "seed contents", 0644);
    file(std::string(kReplayDirectory) + "/a.bin", "replayed", 0600);
    file(std::string(kUecapDirectory) + "/uecap.bin", "", 0644)
        .mutable_content()
        ->assign(GeneratedBytes([] {
            tarvo_scenario::Generated generated;
            generated.set_random_seed(7);
            generated.set_size(3001);
            return generated;
        }()));
    // Exactly at the rotation threshold: the next piece is appended, the one after rotates.
    file(std::string(kExtendedLogPrefix) + "main.txt", "m", 0664)
        .set_size(DiagnosticsModel::kRotationSize);
    tarvo_scenario::Property* ping = setup.add_property();
    ping->set_name(ModelSteps::kPingProperty);
    ping->set_value(ModelSteps::kPingValue);
    tarvo_scenario::Property* mode = setup.add_property();
    mode->set_name("persist.vendor.modem.mode");
    mode->set_value("auto");
    // One run in four has the replay directory on a read-only mount.
    constexpr uint64_t kReadOnlyVariants = 4;
    if (seed % kReadOnlyVariants == kReadOnlyVariants - 1) {
        setup.add_read_only(kReplayDirectory);
    }
    MidRunFaults::Setup(&setup);
    return setup;
}

SoakModel::SoakModel(const tarvo_scenario::Scenario& setup)
    : files_(DeviceTree(),
             [&setup] {
                 std::vector<std::string> read_only{"/vendor"};
                 read_only.insert(read_only.end(), setup.read_only().begin(),
                                  setup.read_only().end());
                 return read_only;
             }()),
      steps_(files_),
      file_transfers_(files_, steps_),
      requests_(setup, files_, steps_),
      diagnostics_(files_, steps_),
      own_mounts_(setup.own_mount().begin(), setup.own_mount().end()) {
    for (const std::string& tree : own_mounts_) files_.AddMount(tree);
    for (const tarvo_scenario::SeedFile& seeded : setup.file()) {
        std::string content = seeded.content();
        if (seeded.has_size()) {
            tarvo_scenario::Generated generated;
            generated.set_pattern(seeded.content());
            generated.set_size(seeded.size());
            content = GeneratedBytes(generated);
        }
        files_.Open(seeded.path(), seeded.mode()).content = std::move(content);
    }
}

void SoakModel::UsageCheck() {
    if (++steps_since_mark_ % kUsageCheckEvery != 0) return;
    Step step;
    step.mutable_expect_usage()->set_mark(kMark);
    step.mutable_expect_usage()->set_rss_growth_below_kib(kRssGrowthKib);
    steps_.Add(std::move(step));
}

void SoakModel::Started() {
    steps_.ForgetRequests();
    steps_.Log(kLogInfo, StateChangeText(-1, kModemOnline));
    diagnostics_.Configuration();
    Step mark;
    mark.set_mark(kMark);
    steps_.Add(std::move(mark));
    steps_since_mark_ = 0;
}

std::vector<Step> SoakModel::Start() {
    steps_.Take();
    Started();
    return AllTaken();
}

std::vector<Step> SoakModel::AllTaken() {
    Step step;
    step.set_expect_all_taken(true);
    steps_.Add(std::move(step));
    return steps_.Take();
}

std::vector<Step> SoakModel::Play(const Step& stimulus) {
    steps_.Take();
    steps_.Add(stimulus);
    switch (stimulus.action_case()) {
        case Step::kSend:
            Message(stimulus.send());
            break;
        case Step::kSendGenerated: {
            TarvoMessage message = stimulus.send_generated().message();
            SetPayloadData(&message, GeneratedBytes(stimulus.send_generated().data()));
            Message(message);
            break;
        }
        case Step::kSendRaw: {
            // What parsed before an error is handled as a whole message would be.
            TarvoMessage message;
            if (!message.ParseFromString(stimulus.send_raw())) {
                steps_.Log(kLogError, "ParseFromArray failed");
            }
            Message(message);
            break;
        }
        case Step::kFault:
            Fault(stimulus.fault());
            break;
        case Step::kModemState:
            diagnostics_.OfflineAndBack();
            CheckStaged();
            break;
        case Step::kRestartDaemon:
            // Started as init starts it: what is kept is what the files hold.
            Started();
            CheckStaged();
            return AllTaken();
        case Step::kRemount:
            MidRunFaults::Play(stimulus.remount(), files_);
            break;
        case Step::kSignalDaemon:
            diagnostics_.Signal(stimulus.signal_daemon());
            break;
        case Step::kAutoReply:
            diagnostics_.SetReply(stimulus.auto_reply());
            break;
        default:
            break;
    }
    UsageCheck();
    return AllTaken();
}

void SoakModel::Fault(tarvo_scenario::Fault fault) {
    switch (fault) {
        case tarvo_scenario::READ_ERROR:
            steps_.Log(kLogError, "Read channel error, size:-1, errno:5");
            break;
        case tarvo_scenario::WRITE_ERROR:
            // The answer to the first ping is lost on the failing write; the node still takes
            // the next.
            steps_.Ping();
            steps_.steps().pop_back();
            break;
        default:
            // A read of 0 bytes sets no errno: the line shows the thread's last one.
            steps_.LogRegex(kLogError, "Read channel error, size:0, errno:[0-9]+");
            break;
    }
    steps_.Ping();
    CheckStaged();
}

void SoakModel::CheckStaged() {
    for (const std::string& path : files_.FilesUnder(std::string(kStagingDirectory) + "/")) {
        steps_.CheckFile(path);
    }
}

void SoakModel::Message(const TarvoMessage& message) {
    if (message.ByteSizeLong() > kLargestMessage) {
        // The read ends inside the message, which then does not parse.
        steps_.Log(kLogError, "ParseFromArray failed");
        steps_.Ping();
        return;
    }
    if (ModelUnrouted(message, steps_)) return;
    const uint32_t token = message.token();
    if (message.has_file()) {
        file_transfers_.Play(message.file(), token, message.type() == tarvo_message::REQUEST);
    } else if (message.has_property()) {
        steps_.Log(kLogInfo, "Get property request");
        requests_.Property(message.property(), token);
    } else if (message.has_modem_temperature()) {
        steps_.Log(kLogInfo, "Got modem temperature request");
        requests_.Temperature(message.modem_temperature(), token);
    } else if (message.has_uecap_file()) {
        steps_.Log(kLogInfo, "Got Uecap File message request");
        requests_.UecapRead(message.uecap_file(), token);
    } else if (message.has_modem_stat()) {
        steps_.Log(kLogInfo, "Got modemstat report indication");
        diagnostics_.StatReport(message.modem_stat());
    } else if (message.has_extended_log()) {
        steps_.Log(kLogInfo, "Got extended log indication");
        diagnostics_.ExtendedLog(message.extended_log());
    } else if (message.has_userspace_log()) {
        steps_.Log(kLogInfo, "Got userspace log indication");
        diagnostics_.UserspaceLog(message.userspace_log());
    }
}

}  // namespace tarvo_emu
