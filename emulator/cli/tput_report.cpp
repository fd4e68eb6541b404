#include "cli/tput_report.h"

#include <cmath>
#include <map>
#include <set>

#include <android-base/file.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "process/child_process.h"

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr char kGnuplot[] = "/usr/bin/gnuplot";
constexpr std::chrono::milliseconds kGnuplotTimeout = std::chrono::minutes(1);

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

// Rates by block size, keyed by the size's decimal text.
nlohmann::ordered_json JsonRates(const std::map<uint64_t, NodeRate>& rates) {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    for (const auto& [size, rate] : rates) json[std::to_string(size)] = rate.bytes_per_s();
    return json;
}

// The sum of one field (transfers or bytes) over all block sizes.
uint64_t Total(const std::map<uint64_t, NodeRate>& rates, uint64_t NodeRate::*field) {
    uint64_t total = 0;
    for (const auto& [size, rate] : rates) total += rate.*field;
    return total;
}

// A rate for the table, `decimals` after the point: "-" when there is none.
std::string Cell(double value, int decimals) {
    return std::isfinite(value) ? fmt::format("{:8.{}f}", value, decimals)
                                : fmt::format("{:>8}", "-");
}

// The gnuplot script that draws the report into `svg`, reading its data from `data_dir`.
std::string PlotScript(const TputReport& report, const std::string& data_dir,
                       const std::string& svg) {
    const double monitor = Gbps(report.monitor.bytes_per_s());
    const double bare = Gbps(report.bare_reader.bytes_per_s());
    std::string script =
        "set terminal svg size 960,820 dynamic enhanced font 'sans,12' background rgb 'white'\n";
    script += fmt::format("set output '{}'\n", svg);
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
            : fmt::format("first sample {:.2f} Gbit/s, left out", report.samples_gbps[0]);
    script += "set xrange [0:10.5]\n";
    if (report.samples_gbps.size() > 1) {
        script += fmt::format(
            "plot '{}/downlink.dat' using 1:2 with linespoints pt 7 ps 0.4 lw 1.5 "
            "title 'daemon, per sample ({})', \\\n     ",
            data_dir, first);
    } else {
        script += fmt::format("set label 1 'daemon: {}' at graph 0.05, graph 0.9\nplot ", first);
    }
    script += fmt::format(
        "{:f} with lines dt 2 lw 2 title 'node: daemon''s monitor, {:.2f} Gbit/s', \\\n"
        "     {:f} with lines dt 3 lw 2 title 'node: bare reader, {:.2f} Gbit/s'\n"
        "unset label 1\n",
        Finite(monitor), monitor, Finite(bare), bare);
    if (UplinkSizes(report).empty()) return script + "unset multiplot\n";
    script +=
        "set title 'Uplink (daemon to modem): rate at the node per block size'\n"
        "set xlabel 'block size (bytes)'\n"
        "set ylabel 'Gbit/s'\n"
        "set xrange [0:21000]\n";
    script += fmt::format(
        "plot '{}/uplink.dat' using 1:2 with linespoints pt 7 lw 1.5 title 'daemon''s pump', "
        "\\\n"
        "     '' using 1:3 with linespoints pt 5 lw 1.5 title 'bare writer (dd)'\n",
        data_dir);
    script += "unset multiplot\n";
    return script;
}

}  // namespace

Result<void> WritePlot(const TputReport& report, const std::string& svg) {
    TemporaryDir tmp;
    const std::string dir = tmp.path;
    // The first sample covers everything read before sampling began; the daemon leaves it out
    // of its figures, and the plot shows it only in the key.
    std::string samples;
    for (size_t i = 1; i < report.samples_gbps.size(); ++i) {
        samples += fmt::format("{:.1f} {:.6f}\n", (i + 1) * kSampleSeconds, report.samples_gbps[i]);
    }
    std::string uplink;
    for (uint64_t size : UplinkSizes(report)) {
        uplink += fmt::format("{} {:.6f} {:.6f}\n", size, RateGbps(report.pump, size),
                              RateGbps(report.bare_writer, size));
    }
    if (!android::base::WriteStringToFile(samples, dir + "/downlink.dat") ||
        !android::base::WriteStringToFile(uplink, dir + "/uplink.dat") ||
        !android::base::WriteStringToFile(PlotScript(report, dir, svg), dir + "/plot.gp")) {
        return Error() << "cannot write the plot's data in " << dir;
    }
    Result<ProcessResult> gnuplot = RunProcess({kGnuplot, dir + "/plot.gp"}, {}, kGnuplotTimeout);
    if (!gnuplot.ok() || gnuplot->status != 0) {
        return Error() << "gnuplot failed (is gnuplot-nox installed? make deps): "
                       << (gnuplot.ok() ? gnuplot->output : gnuplot.error().message());
    }
    return {};
}

std::string ReportTable(const TputReport& report) {
    std::string out =
        fmt::format("Downlink block size {} bytes, rate {}\n\n", report.block_size,
                    report.bytes_per_s == 0 ? "as fast as read"
                                            : fmt::format("{} bytes/s", report.bytes_per_s));
    out += "Downlink, the daemon's 100-ms samples (Gbit/s):\n";
    for (size_t i = 0; i < report.samples_gbps.size(); ++i) {
        out += fmt::format("{}{:5.1f} s {:8.3f}", i % 5 == 0 ? "  " : "   ",
                           (i + 1) * kSampleSeconds, report.samples_gbps[i]);
        if (i % 5 == 4 || i + 1 == report.samples_gbps.size()) out += "\n";
    }
    if (report.samples_gbps.empty()) out += "  (no sample)\n";
    out += fmt::format("  {}\n\n",
                       report.result_line.empty() ? "(no result line)" : report.result_line);

    out += "Downlink at the node               reads         bytes   seconds     MB/s   Gbit/s\n";
    for (const auto& [name, rate] :
         {std::pair<const char*, const NodeRate&>{"daemon's monitor", report.monitor},
          {"bare reader (dd)", report.bare_reader}}) {
        out += fmt::format("  {:<28} {:9} {:13} {:9.2f} {} {}\n", name, rate.transfers, rate.bytes,
                           rate.seconds, Cell(rate.bytes_per_s() / 1e6, 1),
                           Cell(Gbps(rate.bytes_per_s()), 3));
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
        out += fmt::format(
            "  {:10}      {:10} {} {}    {:10} {} {}    {}\n", size, row.pump.transfers,
            Cell(row.pump.bytes_per_s() / 1e6, 1), Cell(Gbps(row.pump.bytes_per_s()), 3),
            row.bare.transfers, Cell(row.bare.bytes_per_s() / 1e6, 1),
            Cell(Gbps(row.bare.bytes_per_s()), 3), Cell(row.again.bytes_per_s() / 1e6, 1));
    }
    out += fmt::format("  total           {:10} writes, {} bytes, {} failed\n",
                       Total(report.pump, &NodeRate::transfers),
                       Total(report.pump, &NodeRate::bytes), report.pump_failed);
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
    up["pump_writes"] = Total(report.pump, &NodeRate::transfers);
    up["pump_bytes"] = Total(report.pump, &NodeRate::bytes);
    up["pump_failed"] = report.pump_failed;
    up["pump_bytes_per_s_by_size"] = JsonRates(report.pump);
    up["bare_writer_bytes_per_s_by_size"] = JsonRates(report.bare_writer);
    up["bare_writer_again_bytes_per_s_by_size"] = JsonRates(report.bare_writer_again);
    // The result line is the daemon's text: bytes that are not UTF-8 are replaced, not fatal.
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tarvo_emu
