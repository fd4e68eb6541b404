// tarvo-micro-bench: the daemon's in-process steps against bare protobuf doing the same work.
//
//   tarvo-micro-bench [--rounds N] [--min-time SECONDS] [--out FILE]
//
// Each pair runs its daemon side and its floor one after the other, `rounds` times, and the
// median processor time of each side is kept. One line per figure goes to FILE (stdout by default),
// tab-separated: "pair NAME DAEMON_NS FLOOR_NS" or "info NAME NS". Run it inside the sandbox
// (tarvo-emu exec, or tarvo-bench does it), where the property store is at the daemon's path.

#include <android/log.h>
#include <benchmark/benchmark.h>
#include <stdio.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <android-base/parsedouble.h>
#include <android-base/parseint.h>
#include <android-base/stringprintf.h>

#include "properties.h"
#include "request_list.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"
#include "vek_message.h"

namespace tarvo {

using tarvo_message::TarvoMessage;

namespace {

constexpr char kProperty[] = "persist.vendor.radio.bench";
constexpr uint32_t kToken = 0x1234;
constexpr size_t kFileBlock = 64 * 1024;
constexpr size_t kUecapBlock = 4 * 1024;

TarvoMessage PropertyRequest() {
    TarvoMessage message;
    message.set_type(tarvo_message::REQUEST);
    message.set_message_id(TarvoMessage::kProperty);
    message.set_token(kToken);
    message.mutable_property()->mutable_read_request()->set_name(kProperty);
    return message;
}

TarvoMessage FileBlock() {
    TarvoMessage message;
    message.set_type(tarvo_message::REQUEST);
    message.set_message_id(TarvoMessage::kFile);
    message.set_token(kToken);
    auto* write = message.mutable_file()->mutable_write_request();
    write->set_file_name("b");
    write->set_file_dir(tarvo_message::FILE_DIR_MDS);
    write->set_total_size(64 << 20);
    write->set_offset(3 * kFileBlock);
    write->set_data(std::string(kFileBlock, '\x5a'));
    return message;
}

TarvoMessage UecapBlock() {
    TarvoMessage message;
    message.set_type(tarvo_message::RESPONSE);
    message.set_message_id(TarvoMessage::kUecapFile);
    message.set_token(kToken);
    message.set_result(tarvo_message::RESULT_SUCCESS);
    auto* read = message.mutable_uecap_file()->mutable_read_response();
    read->set_data(std::string(kUecapBlock, '\xa5'));
    read->set_offset(2 * kUecapBlock);
    read->set_last(false);
    return message;
}

const std::map<std::string, TarvoMessage>& Messages() {
    static const auto* messages = new std::map<std::string, TarvoMessage>{
        {"property_request", PropertyRequest()},
        {"file_block_64k", FileBlock()},
        {"uecap_block_4k", UecapBlock()},
    };
    return *messages;
}

std::string Bytes(const std::string& name) { return Messages().at(name).SerializeAsString(); }

void ParseVek(benchmark::State& state, const std::string& name) {
    const std::string bytes = Bytes(name);
    for (auto _ : state) {
        VekMessage message(bytes.data(), static_cast<int>(bytes.size()));
        benchmark::DoNotOptimize(message.GetType());
    }
}

void ParseProtobuf(benchmark::State& state, const std::string& name) {
    const std::string bytes = Bytes(name);
    for (auto _ : state) {
        TarvoMessage message;
        message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
        benchmark::DoNotOptimize(message.type());
    }
}

void SerializeVek(benchmark::State& state, const std::string& name) {
    const std::string bytes = Bytes(name);
    const VekMessage message(bytes.data(), static_cast<int>(bytes.size()));
    std::vector<char> buffer(bytes.size());
    for (auto _ : state) {
        const int length = message.GetProtobufSerialDataLength();
        benchmark::DoNotOptimize(message.SerializeSendMessage(buffer.data(), length));
    }
}

void SerializeProtobuf(benchmark::State& state, const std::string& name) {
    const TarvoMessage& message = Messages().at(name);
    std::vector<char> buffer(message.ByteSizeLong());
    for (auto _ : state) {
        const int length = static_cast<int>(message.ByteSizeLong());
        benchmark::DoNotOptimize(message.SerializeToArray(buffer.data(), length));
    }
}

void CloneVek(benchmark::State& state, const std::string& name) {
    const std::string bytes = Bytes(name);
    const VekMessage message(bytes.data(), static_cast<int>(bytes.size()));
    for (auto _ : state) benchmark::DoNotOptimize(message.Clone());
}

void CloneProtobuf(benchmark::State& state, const std::string& name) {
    const TarvoMessage& message = Messages().at(name);
    for (auto _ : state) benchmark::DoNotOptimize(std::make_unique<TarvoMessage>(message));
}

TarvoMessage PropertyResponse() {
    TarvoMessage message;
    message.set_type(tarvo_message::RESPONSE);
    message.set_message_id(TarvoMessage::kProperty);
    message.set_token(kToken);
    message.set_result(tarvo_message::RESULT_SUCCESS);
    message.mutable_property()->mutable_read_response()->set_value("1");
    return message;
}

// One request's life in the list: added when written, its response stored, a copy taken by the
// requester, removed.
void RequestListCycle(benchmark::State& state) {
    const std::string bytes = PropertyResponse().SerializeAsString();
    const VekMessage response(bytes.data(), static_cast<int>(bytes.size()));
    RequestList list;
    // A few requests outstanding beside the one that cycles, as while a test runs.
    for (uint32_t token = 1; token <= 4; ++token) list.AddRecord(RequestRecord(token));
    uint32_t token = 100;
    for (auto _ : state) {
        list.AddRecord(RequestRecord(token));
        list.UpdateResponseMessage(token, &response);
        const RequestRecord record = list.GetRecord(token);
        benchmark::DoNotOptimize(record.GetResponse());
        list.RemoveRecord(token);
        ++token;
    }
}

// The protobuf work the cycle cannot do without: the stored copy and the requester's copy.
void RequestListFloor(benchmark::State& state) {
    const TarvoMessage response = PropertyResponse();
    for (auto _ : state) {
        auto stored = std::make_unique<TarvoMessage>(response);
        auto copy = std::make_unique<TarvoMessage>(*stored);
        benchmark::DoNotOptimize(copy);
    }
}

// The daemon's message path from the received bytes to the response's bytes, with the channel's
// write left out.
class BenchMessageHandler : public TarvoMessageHandler {
  public:
    BenchMessageHandler() { service_handler_ = std::make_unique<TarvoServiceHandler>(this); }

    int SendResponse(VekMessage* response) override {
        if (response == nullptr || !response->IsResponse()) return tarvo_message::RESULT_INVALID;
        return SerializeMessage(response, &bytes_);
    }

    const std::vector<char>& bytes() const { return bytes_; }

  private:
    std::vector<char> bytes_;
};

void DispatchDaemon(benchmark::State& state) {
    const std::string bytes = Bytes("property_request");
    BenchMessageHandler handler;
    for (auto _ : state) {
        handler.ProcessReceivedMessage(bytes.data(), bytes.size());
        benchmark::DoNotOptimize(handler.bytes().data());
    }
    state.counters["response_bytes"] = static_cast<double>(handler.bytes().size());
}

void DispatchProtobuf(benchmark::State& state) {
    const std::string bytes = Bytes("property_request");
    std::vector<char> out;
    for (auto _ : state) {
        TarvoMessage request;
        request.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
        TarvoMessage response;
        response.set_type(tarvo_message::RESPONSE);
        response.set_message_id(TarvoMessage::kProperty);
        response.set_token(request.token());
        response.mutable_property()->mutable_read_response()->set_value("1");
        response.set_result(tarvo_message::RESULT_SUCCESS);
        out.resize(response.ByteSizeLong());
        response.SerializeToArray(out.data(), static_cast<int>(out.size()));
        benchmark::DoNotOptimize(out.data());
    }
}

// The shares of the dispatch that are not protobuf: the property lookup as the handler makes it,
// and its two log lines (formatted, then dropped by the logger installed in main).
void DispatchShareProperty(benchmark::State& state) {
    for (auto _ : state) {
        char value[PROPERTY_VALUE_MAX] = {};
        benchmark::DoNotOptimize(__system_property_find(kProperty));
        benchmark::DoNotOptimize(property_get(kProperty, value, ""));
    }
}

void DispatchShareLog(benchmark::State& state) {
    for (auto _ : state) {
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "Get property request");
        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "Read property %s with value %s", kProperty,
                            "1");
    }
}

void DiscardLog(const __android_logger_data*, const char*) {}

struct Pair {
    std::string name;
    std::string daemon;
    std::string floor;
};

// Keeps the processor time per iteration of every run it is shown: on a busy machine the wall
// time also counts the moments the benchmark waited for a processor.
class Collector : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred || run.iterations == 0) continue;
            times_[run.benchmark_name()].push_back(run.GetAdjustedCPUTime());
        }
    }
    double Median(const std::string& name) const {
        auto it = times_.find(name);
        if (it == times_.end() || it->second.empty()) return 0;
        std::vector<double> times = it->second;
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    }

  private:
    std::map<std::string, std::vector<double>> times_;
};

std::vector<Pair> RegisterBenchmarks() {
    std::vector<Pair> pairs;
    const auto add = [](const std::string& name, auto function) {
        benchmark::RegisterBenchmark(name.c_str(), function)->Unit(benchmark::kNanosecond);
    };
    const auto add_pair = [&](const std::string& name, auto daemon, auto floor) {
        add(name + "/daemon", daemon);
        add(name + "/protobuf", floor);
        pairs.push_back({name, name + "/daemon", name + "/protobuf"});
    };
    for (const auto& [message, unused] : Messages()) {
        const std::string name = message;
        add_pair(
            "vek_message.parse." + name, [name](benchmark::State& s) { ParseVek(s, name); },
            [name](benchmark::State& s) { ParseProtobuf(s, name); });
        add_pair(
            "vek_message.serialise." + name, [name](benchmark::State& s) { SerializeVek(s, name); },
            [name](benchmark::State& s) { SerializeProtobuf(s, name); });
        add_pair(
            "vek_message.clone." + name, [name](benchmark::State& s) { CloneVek(s, name); },
            [name](benchmark::State& s) { CloneProtobuf(s, name); });
    }
    add_pair("request_list.add_update_get_remove", RequestListCycle, RequestListFloor);
    add_pair("dispatch.property_read", DispatchDaemon, DispatchProtobuf);
    add("dispatch.property_read.share.property_lookup", DispatchShareProperty);
    add("dispatch.property_read.share.log_lines", DispatchShareLog);
    return pairs;
}

}  // namespace
}  // namespace tarvo

int main(int argc, char** argv) {
    using namespace tarvo;
    int rounds = 5;
    double min_time = 0.2;
    std::string out_path;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string flag = argv[i];
        if (flag == "--rounds" && android::base::ParseInt(argv[i + 1], &rounds, 1)) continue;
        if (flag == "--min-time" && android::base::ParseDouble(argv[i + 1], &min_time)) continue;
        if (flag == "--out") {
            out_path = argv[i + 1];
            continue;
        }
        fprintf(stderr, "usage: %s [--rounds N] [--min-time SECONDS] [--out FILE]\n", argv[0]);
        return 2;
    }

    // The daemon logs at every priority; the lines are formatted as in the daemon and dropped.
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(DiscardLog);
    const bool property_ready = property_set(kProperty, "1") == 0;

    std::string min_time_flag = android::base::StringPrintf("--benchmark_min_time=%g", min_time);
    char* flags[] = {argv[0], min_time_flag.data()};
    int flag_count = 2;
    benchmark::Initialize(&flag_count, flags);
    const std::vector<Pair> pairs = RegisterBenchmarks();

    Collector collector;
    for (int round = 0; round < rounds; ++round) {
        for (const Pair& pair : pairs) {
            benchmark::RunSpecifiedBenchmarks(&collector, "^" + pair.daemon + "$");
            benchmark::RunSpecifiedBenchmarks(&collector, "^" + pair.floor + "$");
        }
        benchmark::RunSpecifiedBenchmarks(&collector, "\\.share\\.");
    }

    FILE* out = out_path.empty() ? stdout : fopen(out_path.c_str(), "w");
    if (out == nullptr) {
        perror(out_path.c_str());
        return 1;
    }
    for (const Pair& pair : pairs) {
        fprintf(out, "pair\t%s\t%.2f\t%.2f\n", pair.name.c_str(), collector.Median(pair.daemon),
                collector.Median(pair.floor));
    }
    for (const char* share : {"dispatch.property_read.share.property_lookup",
                              "dispatch.property_read.share.log_lines"}) {
        fprintf(out, "info\t%s\t%.2f\n", share, collector.Median(share));
    }
    if (!property_ready) fprintf(out, "warning\tthe property store is not the daemon's\n");
    if (out != stdout) fclose(out);
    benchmark::Shutdown();
    return 0;
}
