#include "cli/tput_command.h"

#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <thread>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "rig/rig.h"

using android::base::StringAppendF;
using android::base::StringPrintf;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

constexpr const char* kSamplePrefix = "Modem_IPC_Test DL:Tput : ";
constexpr const char* kResultPrefix = "Modem_IPC_Test DL Results: ";
constexpr double kSampleSeconds = 0.1;
constexpr milliseconds kTestTimeout = std::chrono::minutes(10);
constexpr milliseconds kProgressInterval{500};

double Gbps(double bytes_per_s) { return bytes_per_s * 8 / 1e9; }
// The block sizes of the uplink schedule measured, without the single opening write.
std::set<uint64_t> UplinkSizes(const TputReport& report) {
    std::set<uint64_t> sizes;
    for (const auto* rates : {&report.pump, &report.bare_writer}) {
        for (const auto& [size, rate] : *rates) {
            if (size != UplinkSchedule::kOpeningWrite) sizes.insert(size);
        }
    }
    return sizes;
}

// Not a number, which gnuplot leaves out, when the size was not measured.
double RateGbps(const std::map<uint64_t, NodeRate>& rates, uint64_t size) {
    const auto it = rates.find(size);
    return it == rates.end() ? NAN : Gbps(it->second.bytes_per_s());
}

// gnuplot draws nothing for a rate that could not be measured.
double Finite(double value) { return std::isfinite(value) ? value : 0; }

NodeRate RateOf(uint64_t transfers, uint64_t bytes, const TestNode::Span& span) {
    return {transfers, bytes, transfers == 0 ? 0 : span.seconds()};
}

std::map<uint64_t, NodeRate> RatesBySize(const TestNode::Uplink& uplink) {
    std::map<uint64_t, NodeRate> rates;
    for (const auto& [size, writes] : uplink.writes_by_size) {
        rates[size] = RateOf(writes, writes * size, uplink.span_by_size.at(size));
    }
    return rates;
}

// Where the test stands, from the daemon's requests to the modem.
struct Phase {
    int requests = 0;  // throughput requests so far
    bool uplink_end = false;
    const char* name() const {
        static const char* const kNames[] = {"starting", "downlink", "downlink end", "uplink",
                                             "uplink end"};
        return kNames[std::min(requests, 4)];
    }
};

Phase PhaseOf(const std::vector<tarvo_message::TarvoMessage>& messages) {
    Phase phase;
    for (const tarvo_message::TarvoMessage& message : messages) {
        if (message.type() != tarvo_message::REQUEST || !message.modem_test().has_tput_request()) {
            continue;
        }
        ++phase.requests;
        if (TputModem::IsTputRequest(message, false, true)) phase.uplink_end = true;
    }
    return phase;
}

bool StartsWith(const std::string& text, const char* prefix) {
    return android::base::StartsWith(text, prefix);
}

// Runs the daemon's test and waits for its end, showing progress on stderr when `progress`.
// False on a timeout.
bool RunDaemonTest(Rig& rig, bool progress, std::string* error) {
    rig.emulator().test().ResetStats();
    const android::base::Result<ProcessResult> client = rig.RunClient({"-t"});
    if (!client.ok()) {
        *error = "tarvo -t: " + client.error().message();
        return false;
    }
    if (client->status != 0) {
        *error = "tarvo -t exited with " + std::to_string(client->status);
        return false;
    }
    const auto start = std::chrono::steady_clock::now();
    const auto answered = [](const LogLine& line) {
        return StartsWith(line.text, "Got modem test response ") ||
               StartsWith(line.text, "Failed to send request, status:");
    };
    const auto failed = [](const LogLine& line) {
        return line.text == "Failed to run UL tput test";
    };
    // A terminal gets one line drawn again and again; a file or pipe a line per phase.
    const bool terminal = isatty(STDERR_FILENO) != 0;
    const char* shown_phase = nullptr;
    while (true) {
        const Phase phase = PhaseOf(rig.modem().received());
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const TestNode::Downlink down = rig.emulator().test().downlink();
        const TestNode::Uplink up = rig.emulator().test().uplink();
        if (progress && (terminal || phase.name() != shown_phase)) {
            fprintf(stderr, "%s%-12s %6.1f s   downlink %9.1f MB   uplink %9.1f MB%s",
                    terminal ? "\r" : "", phase.name(), seconds, down.bytes / 1e6, up.bytes / 1e6,
                    terminal ? " " : "\n");
            shown_phase = phase.name();
        }
        const bool done = rig.log_events().Count(failed) > 0 ||
                          (phase.uplink_end &&
                           rig.log_events().Count(answered) >= static_cast<size_t>(phase.requests));
        if (done) break;
        if (seconds * 1000 > kTestTimeout.count()) {
            *error = "the test did not end within 10 minutes";
            return false;
        }
        std::this_thread::sleep_for(kProgressInterval);
    }
    if (progress && terminal) fprintf(stderr, "\n");
    return true;
}

// A plain read loop in the sandbox, the node streaming as it did for the daemon.
NodeRate MeasureBareReader(Rig& rig, const TputCommandOptions& options, uint64_t reads) {
    TestNode& node = rig.emulator().test();
    node.ResetStats();
    node.StartDownlink(options.block_size, options.bytes_per_s);
    rig.Run({"/usr/bin/dd", "if=/dev/oem_test", "of=/dev/null", "bs=65568",
             StringPrintf("count=%llu", static_cast<unsigned long long>(reads)), "status=none"});
    node.StopDownlink();
    const TestNode::Downlink down = node.downlink();
    return RateOf(down.reads, down.bytes, down.span);
}

// The daemon's uplink schedule written by dd in the sandbox, one process per block size.
std::map<uint64_t, NodeRate> MeasureBareWriter(Rig& rig) {
    TestNode& node = rig.emulator().test();
    node.ResetStats();
    using Schedule = UplinkSchedule;
    const std::string script = fmt::format(
        "dd if=/dev/zero of=/dev/oem_test bs={} count=1 conv=notrunc status=none && "
        "for size in $(seq {} {} {}); do "
        "dd if=/dev/zero of=/dev/oem_test bs=$size count={} conv=notrunc status=none || exit 1; "
        "done",
        Schedule::kOpeningWrite, Schedule::kFirstBlockSize, Schedule::kBlockSizeStep,
        Schedule::kLastBlockSize, Schedule::kWritesPerSize);
    rig.Run({"/bin/sh", "-c", script}, std::chrono::minutes(10));
    return RatesBySize(node.uplink());
}

// Rates by block size, keyed by the size's decimal text.
nlohmann::ordered_json JsonRates(const std::map<uint64_t, NodeRate>& rates) {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    for (const auto& [size, rate] : rates) json[std::to_string(size)] = rate.bytes_per_s();
    return json;
}

uint64_t TotalBytes(const std::map<uint64_t, NodeRate>& rates) {
    uint64_t bytes = 0;
    for (const auto& [size, rate] : rates) bytes += rate.bytes;
    return bytes;
}

uint64_t TotalWrites(const std::map<uint64_t, NodeRate>& rates) {
    uint64_t writes = 0;
    for (const auto& [size, rate] : rates) writes += rate.transfers;
    return writes;
}

}  // namespace

bool WritePlot(const TputReport& report, const std::string& svg, std::string* error) {
    char dir_template[] = "/tmp/tarvo-tput.XXXXXX";
    if (mkdtemp(dir_template) == nullptr) {
        *error = "cannot create a directory for the plot's data";
        return false;
    }
    const std::string dir = dir_template;
    // The first sample covers everything read before sampling began; the daemon leaves it out
    // of its figures, and the plot shows it only in the key.
    std::string samples;
    for (size_t i = 1; i < report.samples_gbps.size(); ++i) {
        StringAppendF(&samples, "%.1f %.6f\n", (i + 1) * kSampleSeconds, report.samples_gbps[i]);
    }
    std::string uplink;
    for (uint64_t size : UplinkSizes(report)) {
        StringAppendF(&uplink, "%llu %.6f %.6f\n", static_cast<unsigned long long>(size),
                      RateGbps(report.pump, size), RateGbps(report.bare_writer, size));
    }
    const std::string script = PlotScript(report, dir, svg);
    bool ok = android::base::WriteStringToFile(samples, dir + "/downlink.dat") &&
              android::base::WriteStringToFile(uplink, dir + "/uplink.dat") &&
              android::base::WriteStringToFile(script, dir + "/plot.gp");
    if (!ok) {
        *error = "cannot write the plot's data in " + dir;
    } else {
        const std::string command = "gnuplot " + dir + "/plot.gp";
        ok = system(command.c_str()) == 0;
        if (!ok) *error = "gnuplot failed (is gnuplot-nox installed? make deps)";
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return ok;
}

namespace {

// A rate for the table: "-" when there is none.
std::string Cell(double value, const char* format) {
    return std::isfinite(value) ? StringPrintf(format, value) : StringPrintf("%8s", "-");
}

}  // namespace

double NodeRate::bytes_per_s() const { return seconds > 0 ? bytes / seconds : NAN; }

bool ParseSampleLine(const std::string& text, double* gbps) {
    int bytes = 0;
    return StartsWith(text, kSamplePrefix) &&
           sscanf(text.c_str(), "Modem_IPC_Test DL:Tput : %lf (GBps) | byte_counter: %d", gbps,
                  &bytes) == 2;
}

bool ParseResultLine(const std::string& text, double* average, double* max) {
    if (!StartsWith(text, kResultPrefix)) return false;
    char average_text[32] = {};
    if (sscanf(text.c_str(),
               "Modem_IPC_Test DL Results: Average Tput: %31s Gbps, Max Tput: %lf Gbps",
               average_text, max) != 2) {
        return false;
    }
    // "nan" or "-nan" when no sample came.
    *average = strtod(average_text, nullptr);
    return true;
}

std::string ReportTable(const TputReport& report) {
    std::string out = StringPrintf(
        "Downlink block size %llu bytes, rate %s\n\n",
        static_cast<unsigned long long>(report.block_size),
        report.bytes_per_s == 0
            ? "as fast as read"
            : StringPrintf("%llu bytes/s", static_cast<unsigned long long>(report.bytes_per_s))
                  .c_str());
    out += "Downlink, the daemon's 100-ms samples (Gbit/s):\n";
    for (size_t i = 0; i < report.samples_gbps.size(); ++i) {
        StringAppendF(&out, "%s%5.1f s %8.3f", i % 5 == 0 ? "  " : "   ", (i + 1) * kSampleSeconds,
                      report.samples_gbps[i]);
        if (i % 5 == 4 || i + 1 == report.samples_gbps.size()) out += "\n";
    }
    if (report.samples_gbps.empty()) out += "  (no sample)\n";
    StringAppendF(&out, "  %s\n\n",
                  report.result_line.empty() ? "(no result line)" : report.result_line.c_str());

    out += "Downlink at the node               reads         bytes   seconds     MB/s   Gbit/s\n";
    for (const auto& [name, rate] :
         {std::pair<const char*, const NodeRate&>{"daemon's monitor", report.monitor},
          {"bare reader (dd)", report.bare_reader}}) {
        StringAppendF(&out, "  %-28s %9llu %13llu %9.2f %s %s\n", name,
                      static_cast<unsigned long long>(rate.transfers),
                      static_cast<unsigned long long>(rate.bytes), rate.seconds,
                      Cell(rate.bytes_per_s() / 1e6, "%8.1f").c_str(),
                      Cell(Gbps(rate.bytes_per_s()), "%8.3f").c_str());
    }

    out +=
        "\nUplink at the node    daemon's pump                  bare writer (dd)"
        "               again\n";
    out +=
        "  block size          writes     MB/s   Gbit/s        writes     MB/s   Gbit/s"
        "        MB/s\n";
    struct Row {
        NodeRate pump;
        NodeRate bare;
        NodeRate again;
    };
    std::map<uint64_t, Row> rows;
    for (const auto& [size, rate] : report.pump) rows[size].pump = rate;
    for (const auto& [size, rate] : report.bare_writer) rows[size].bare = rate;
    for (const auto& [size, rate] : report.bare_writer_again) rows[size].again = rate;
    for (const auto& [size, row] : rows) {
        StringAppendF(&out, "  %10llu      %10llu %s %s    %10llu %s %s    %s\n",
                      static_cast<unsigned long long>(size),
                      static_cast<unsigned long long>(row.pump.transfers),
                      Cell(row.pump.bytes_per_s() / 1e6, "%8.1f").c_str(),
                      Cell(Gbps(row.pump.bytes_per_s()), "%8.3f").c_str(),
                      static_cast<unsigned long long>(row.bare.transfers),
                      Cell(row.bare.bytes_per_s() / 1e6, "%8.1f").c_str(),
                      Cell(Gbps(row.bare.bytes_per_s()), "%8.3f").c_str(),
                      Cell(row.again.bytes_per_s() / 1e6, "%8.1f").c_str());
    }
    StringAppendF(&out, "  total           %10llu writes, %llu bytes, %llu failed\n",
                  static_cast<unsigned long long>(TotalWrites(report.pump)),
                  static_cast<unsigned long long>(TotalBytes(report.pump)),
                  static_cast<unsigned long long>(report.pump_failed));
    return out;
}

std::string ReportJson(const TputReport& report) {
    // Keys in the order written; a rate that could not be measured (not a number) becomes null.
    nlohmann::ordered_json json;
    json["block_size"] = report.block_size;
    json["rate_bytes_per_s"] = report.bytes_per_s;
    nlohmann::ordered_json& down = json["downlink"];
    down["daemon_samples_gbps"] = report.samples_gbps;
    down["daemon_result"] = report.result_line;
    down["daemon_average_gbps"] = report.average_gbps;
    down["daemon_max_gbps"] = report.max_gbps;
    down["monitor_bytes"] = report.monitor.bytes;
    down["monitor_bytes_per_s"] = report.monitor.bytes_per_s();
    down["bare_reader_bytes"] = report.bare_reader.bytes;
    down["bare_reader_bytes_per_s"] = report.bare_reader.bytes_per_s();
    nlohmann::ordered_json& up = json["uplink"];
    up["pump_writes"] = TotalWrites(report.pump);
    up["pump_bytes"] = TotalBytes(report.pump);
    up["pump_failed"] = report.pump_failed;
    up["pump_bytes_per_s_by_size"] = JsonRates(report.pump);
    up["bare_writer_bytes_per_s_by_size"] = JsonRates(report.bare_writer);
    up["bare_writer_again_bytes_per_s_by_size"] = JsonRates(report.bare_writer_again);
    // The result line is the daemon's text: bytes that are not UTF-8 are replaced, not fatal.
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string PlotScript(const TputReport& report, const std::string& data_dir,
                       const std::string& svg) {
    const double monitor = Gbps(report.monitor.bytes_per_s());
    const double bare = Gbps(report.bare_reader.bytes_per_s());
    std::string script =
        "set terminal svg size 960,820 dynamic enhanced font 'sans,12' background rgb 'white'\n";
    StringAppendF(&script, "set output '%s'\n", svg.c_str());
    script +=
        "set multiplot layout 2,1 title 'tarvo IPC throughput test against the emulated modem'\n"
        "set grid\n"
        "set key outside bottom center horizontal\n"
        "set yrange [0:*]\n"
        "set title 'Downlink (modem to daemon): the daemon''s 100-ms samples'\n"
        "set xlabel 'seconds since the downlink start'\n"
        "set ylabel 'Gbit/s'\n";
    const std::string first =
        report.samples_gbps.empty()
            ? std::string("no sample")
            : StringPrintf("first sample %.2f Gbit/s, left out", report.samples_gbps[0]);
    script += "set xrange [0:10.5]\n";
    if (report.samples_gbps.size() > 1) {
        StringAppendF(&script,
                      "plot '%s/downlink.dat' using 1:2 with linespoints pt 7 ps 0.4 lw 1.5 "
                      "title 'daemon, per sample (%s)', \\\n     ",
                      data_dir.c_str(), first.c_str());
    } else {
        StringAppendF(&script, "set label 1 'daemon: %s' at graph 0.05, graph 0.9\nplot ",
                      first.c_str());
    }
    StringAppendF(&script,
                  "%f with lines dt 2 lw 2 title 'node: daemon''s monitor, %.2f Gbit/s', \\\n"
                  "     %f with lines dt 3 lw 2 title 'node: bare reader, %.2f Gbit/s'\n"
                  "unset label 1\n",
                  Finite(monitor), monitor, Finite(bare), bare);
    if (UplinkSizes(report).empty()) return script + "unset multiplot\n";
    script +=
        "set title 'Uplink (daemon to modem): rate at the node per block size'\n"
        "set xlabel 'block size (bytes)'\n"
        "set ylabel 'Gbit/s'\n"
        "set xrange [0:21000]\n";
    StringAppendF(&script,
                  "plot '%s/uplink.dat' using 1:2 with linespoints pt 7 lw 1.5 "
                  "title 'daemon''s pump', \\\n"
                  "     '' using 1:3 with linespoints pt 5 lw 1.5 title 'bare writer (dd)'\n",
                  data_dir.c_str());
    script += "unset multiplot\n";
    return script;
}

RigOptions TputRigOptions(const TputCommandOptions& options) {
    RigOptions rig_options;
    rig_options.tput.downlink_block_size = options.block_size;
    rig_options.tput.downlink_bytes_per_s = options.bytes_per_s;
    return rig_options;
}

bool MeasureTput(Rig& rig, const TputCommandOptions& options, bool progress, TputReport* report,
                 std::string* error) {
    if (!rig.log_events().Wait(IsDaemonStarted, kDefaultWait)) {
        *error = "the daemon did not start";
        return false;
    }
    rig.SetModemState(kModemOnline);
    if (!rig.log_events().Wait(IsOnlineReport, kDefaultWait)) {
        *error = "the daemon did not see the modem online";
        return false;
    }
    if (!RunDaemonTest(rig, progress, error)) return false;

    *report = {};
    report->block_size = options.block_size;
    report->bytes_per_s = options.bytes_per_s;
    for (const LogLine& line : rig.logs()) {
        double gbps = 0;
        if (ParseSampleLine(line.text, &gbps)) report->samples_gbps.push_back(gbps);
        if (ParseResultLine(line.text, &report->average_gbps, &report->max_gbps)) {
            report->result_line = line.text;
        }
    }
    TestNode& node = rig.emulator().test();
    const TestNode::Downlink down = node.downlink();
    report->monitor = RateOf(down.reads, down.bytes, down.span);
    const TestNode::Uplink up = node.uplink();
    report->pump = RatesBySize(up);
    report->pump_failed = up.failed;

    if (progress) {
        fprintf(stderr, "measuring a bare reader of the node, and a bare writer twice...\n");
    }
    const uint64_t reads = std::clamp<uint64_t>(down.reads / 5, 50, 20000);
    report->bare_reader = MeasureBareReader(rig, options, reads);
    report->bare_writer = MeasureBareWriter(rig);
    report->bare_writer_again = MeasureBareWriter(rig);
    return true;
}

int RunTputCommand(const TputCommandOptions& options) {
    Rig rig(TputRigOptions(options));
    if (android::base::Result<void> started = rig.Start(); !started.ok()) {
        fprintf(stderr, "tarvo-emu: %s\n", started.error().message().c_str());
        return 1;
    }
    TputReport report;
    std::string error;
    if (!MeasureTput(rig, options, true, &report, &error)) {
        fprintf(stderr, "\ntarvo-emu: %s\n", error.c_str());
        return 1;
    }

    std::cout << ReportTable(report) << std::flush;
    if (!options.json.empty()) {
        const std::string json = ReportJson(report);
        if (options.json == "-") {
            std::cout << json << std::flush;
        } else if (!android::base::WriteStringToFile(json, options.json)) {
            fprintf(stderr, "tarvo-emu: cannot write %s\n", options.json.c_str());
            return 1;
        }
    }
    if (!options.plot.empty()) {
        if (!WritePlot(report, options.plot, &error)) {
            fprintf(stderr, "tarvo-emu: %s\n", error.c_str());
            return 1;
        }
        printf("plot written to %s\n", options.plot.c_str());
    }
    return 0;
}

}  // namespace tarvo_emu
