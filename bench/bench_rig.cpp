#include "bench_rig.h"

#include <android-base/parsedouble.h>
#include <android-base/strings.h>

#include "device/device_facts.h"
#include "proto/tarvo_message.pb.h"

using android::base::Error;
using android::base::Result;
using tarvo_message::TarvoMessage;

namespace tarvo_bench {

namespace {

constexpr char kEchoResponseFile[] = "/data/vendor/radio/bench_echo_response";

// A property read that any healthy daemon answers; the first message of each run, untimed.
std::string Probe() {
    TarvoMessage message;
    message.set_type(tarvo_message::REQUEST);
    message.set_token(0xFFFF);
    message.mutable_property()->mutable_read_request()->set_name("ro.bench.probe");
    return message.SerializeAsString();
}

}  // namespace

std::string BenchBinary(const std::string& name) { return TARVO_BINARY_DIR "/bench/" + name; }

bool ResponseCounter::OnUplink(std::string_view bytes) {
    TarvoMessage message;
    if (!message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) ||
        message.type() != tarvo_message::RESPONSE) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        if (message.result() != tarvo_message::RESULT_SUCCESS) ++failures_;
        last_.assign(bytes.data(), bytes.size());
    }
    arrived_.notify_all();
    return true;
}

bool ResponseCounter::WaitFor(uint64_t count, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return count_ >= count; });
}

uint64_t ResponseCounter::count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return count_;
}

uint64_t ResponseCounter::failures() {
    std::lock_guard<std::mutex> lock(mutex_);
    return failures_;
}

std::string ResponseCounter::last() {
    std::lock_guard<std::mutex> lock(mutex_);
    return last_;
}

Result<std::unique_ptr<BenchRig>> BenchRig::Create() {
    auto responses = std::make_shared<ResponseCounter>();
    tarvo_emu::RigOptions options;
    options.initial_state = 4;
    options.start_daemon = false;
    options.properties = {{"ro.bench.probe", "1"}, {"persist.vendor.radio.bench", "1"}};
    tarvo_emu::RigHooks hooks;
    hooks.keep_logs = false;
    hooks.uplink_tap = [responses](std::string_view bytes) { return responses->OnUplink(bytes); };
    std::unique_ptr<BenchRig> bench(new BenchRig(responses, std::move(options), std::move(hooks)));
    if (Result<void> started = bench->rig_.Start(); !started.ok()) return started.error();
    return bench;
}

BenchRig::BenchRig(std::shared_ptr<ResponseCounter> responses, tarvo_emu::RigOptions options,
                   tarvo_emu::RigHooks hooks)
    : responses_(std::move(responses)), rig_(std::move(options), std::move(hooks)) {}

BenchRig::~BenchRig() { StopPeer(); }

Result<void> BenchRig::AwaitFirstAnswer() {
    const uint64_t expected = responses_->count() + 1;
    rig_.emulator().ipc().Push(Probe());
    if (!responses_->WaitFor(expected, kResponseTimeout)) {
        return Error() << "no answer to the first message";
    }
    return {};
}

Result<void> BenchRig::StartDaemon() {
    if (Result<void> started = rig_.StartDaemon(); !started.ok()) return started.error();
    if (Result<void> answered = AwaitFirstAnswer(); !answered.ok()) return answered.error();
    if (!rig_.AwaitDaemonPid(kResponseTimeout)) return Error() << "no daemon pid";
    return {};
}

void BenchRig::StopDaemon() { rig_.StopDaemon(); }

Result<void> BenchRig::StartPeer(const std::vector<std::string>& args) {
    std::vector<std::string> command = {BenchBinary("tarvo-bench-peer")};
    command.insert(command.end(), args.begin(), args.end());
    // Its log lines are taken as the daemon's are: in bulk, and not kept.
    Result<std::unique_ptr<tarvo_emu::ChildProcess>> peer = tarvo_emu::ChildProcess::Start(
        rig_.sandbox().Command(command),
        {.keep_output = false, .read_interval = std::chrono::milliseconds(10)});
    if (!peer.ok()) return Error() << args[0] << " peer: " << peer.error();
    peer_ = std::move(*peer);
    return AwaitFirstAnswer();
}

Result<void> BenchRig::StartEcho(const std::string& response,
                                 const std::vector<std::string>& steps) {
    if (!rig_.WriteFile(kEchoResponseFile, response).ok()) {
        return Error() << "cannot write response";
    }
    std::vector<std::string> args = {"echo", kEchoResponseFile};
    args.insert(args.end(), steps.begin(), steps.end());
    return StartPeer(args);
}

Result<void> BenchRig::StartSteps() { return StartPeer({"steps"}); }

void BenchRig::StopPeer() { peer_.reset(); }

pid_t BenchRig::peer_group() const { return peer_ ? peer_->pid() : 0; }

Result<double> BenchRig::RoundTrips(uint64_t count, const MessageMaker& make) {
    tarvo_emu::IpcNode& ipc = rig_.emulator().ipc();
    uint64_t expected = responses_->count();
    const uint64_t failures = responses_->failures();
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t i = 0; i < count; ++i) {
        std::string bytes;
        make(i, &bytes);
        if (bytes.size() > tarvo_emu::kLargestMessage) {
            return Error() << "message " << i << " has " << bytes.size()
                           << " bytes, more than the daemon reads";
        }
        ipc.Push(std::move(bytes));
        if (!responses_->WaitFor(++expected, kResponseTimeout)) {
            return Error() << "no answer to message " << i;
        }
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (responses_->failures() != failures) {
        return Error() << responses_->failures() - failures << " answers reported a failure";
    }
    return seconds;
}

Result<void> BenchRig::Batch(const std::vector<std::string>& messages, int answered) {
    tarvo_emu::IpcNode& ipc = rig_.emulator().ipc();
    const uint64_t expected = responses_->count() + answered;
    for (const std::string& bytes : messages) ipc.Push(bytes);
    if (!responses_->WaitFor(expected, kResponseTimeout)) return Error() << "batch not answered";
    return {};
}

Result<double> BenchRig::PlainWrite(const std::string& path, uint64_t total, uint64_t block) {
    const Result<tarvo_emu::ProcessResult> result =
        rig_.Run({BenchBinary("tarvo-bench-peer"), "write", path, std::to_string(total),
                  std::to_string(block)});
    if (!result.ok()) return Error() << "plain write failed: " << result.error();
    double seconds;
    if (result->status != 0 ||
        !android::base::ParseDouble(android::base::Trim(result->output), &seconds)) {
        return Error() << "plain write failed: " << result->output;
    }
    return seconds;
}

}  // namespace tarvo_bench
