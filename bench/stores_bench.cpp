// What reading, saving and logging cost beside the bare calls they are made of.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <pugixml.hpp>

#include "bench/interleaved.h"
#include "korvane/tune_globals.h"
#include "korvane/tune_params_xml.h"
#include "platform/files.h"
#include "platform/text.h"
#include "support/test_platform.h"

namespace korvane::bench {
namespace {

/// Parameters with `groups` times 3500 bytes of fillers before the group that is read.
struct LargeParameters {
    explicit LargeParameters(int groups = 3) {
        test.trace().on = false;
        std::string entries;
        for (int key = 0; key < 100 * groups; ++key) {
            const std::string name = "Key_" + std::to_string(1'000'000 + key);
            entries += "<" + name + ">123.456</" + name + ">\n";
        }
        test.raw_parameters("<Filler>\n" + entries + "</Filler>\n");
        test.limit("Calibration", "BinarySearchAbTolerance", "20000");
        path = (test.base() / "TuneParams.xml").string();
    }
    TestPlatform test;
    std::string path;
};

double read_parameter(clsTuneParamsXML& store) {
    return store.GetAutotuneLimitValue("Calibration", "BinarySearchAbTolerance", true);
}

void parameter_read(benchmark::State& state, int groups) {
    LargeParameters world(groups);
    clsTuneParamsXML store(world.test.platform());
    for (auto _ : state) benchmark::DoNotOptimize(read_parameter(store));
}
void parameter_read_10kb(benchmark::State& state) {
    parameter_read(state, 3);
}
void parameter_read_10mb(benchmark::State& state) {
    parameter_read(state, 3000);
}
BENCHMARK(parameter_read_10kb);
BENCHMARK(parameter_read_10mb);

const ExternalTimes read_times([] {
    LargeParameters world(57);
    clsTuneParamsXML store(world.test.platform());
    pugi::xml_document document;
    const auto bare_read = [&] {
        document.load_file(world.path.c_str());
        const auto node = document.select_node("/QTOFTuneParams/TOF/AutotuneParameters/Calibration").node();
        benchmark::DoNotOptimize(node.select_node("BinarySearchAbTolerance").node().text().as_double());
    };
    return interleaved(
        "parameter_read_200kb", [&] { benchmark::DoNotOptimize(read_parameter(store)); }, "parameter_read_bare",
        bare_read, 1);
});

/// A save against the same durable sequence of bare calls: temporary file, flush, rename, flush of the folder. In
/// elapsed time, since what a save does is wait for the disk.
std::vector<std::pair<std::string, double>> saves(const std::string& name, std::size_t size) {
    const TemporaryFolder safe_folder, bare_folder;
    const std::string bytes(size, 'x'), safe_path = safe_folder.file("saved.xml"), folder = bare_folder.path().string(),
                                        path = bare_folder.file("saved.xml"), temporary = path + ".tmp";
    const auto files = make_system_files();
    const auto bare_save = [&] {
        const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        std::size_t written = 0;
        while (written < bytes.size())
            written += static_cast<std::size_t>(write(file, bytes.data() + written, bytes.size() - written));
        fsync(file);
        close(file);
        rename(temporary.c_str(), path.c_str());
        const int handle = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        fsync(handle);
        close(handle);
    };
    return interleaved(
        "safe_save_" + name, [&] { safe_save(*files, safe_path, bytes); }, "bare_save_" + name, bare_save, 1);
}
const ExternalTimes small_saves([] { return saves("300b", 300); });
const ExternalTimes large_saves([] { return saves("200kb", 200'000); });

void log_line(benchmark::State& state) {
    LargeParameters world;
    TuneGlobals globals(world.test.platform());
    double value = 1.25;
    std::string line;
    for (auto _ : state) {
        line.clear();
        value += 0.37;
        append_text(line, "AUTOTUNE LOG: STATUS: start[", value, "], end[", value * 3, "]");
        globals.WriteLineToTuneLogFile(line);
    }
}
BENCHMARK(log_line);

void log_line_bare(benchmark::State& state) {
    LargeParameters world;
    const int file = open((world.test.base() / "Logfiles/bare.txt").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    double value = 1.25;
    std::string line;
    char digits[32];
    for (auto _ : state) {
        line = "AUTOTUNE LOG: STATUS: start[";
        line.append(digits, std::to_chars(digits, digits + sizeof digits, value += 0.37).ptr);
        line += "], end[";
        line.append(digits, std::to_chars(digits, digits + sizeof digits, value * 3).ptr);
        line += "]\n";
        benchmark::DoNotOptimize(write(file, line.data(), line.size()));
    }
    close(file);
}
BENCHMARK(log_line_bare);

const RatioRow read_row({"parameter read with reload (200 kB file) / bare pugixml load, XPath, text",
                         "parameter_read_200kb", "parameter_read_bare", 1.15});
const RatioRow file_growth({"growth: parameter file of 10 MB / 10 kB", "parameter_read_10mb", "parameter_read_10kb",
                            1000});
const RatioRow save_row({"save that survives a crash (200 kB) / the bare system calls it is made of", "safe_save_200kb",
                         "bare_save_200kb", 1.1});
const RatioRow small_save_row({"save that survives a crash (300 bytes) / the bare system calls it is made of",
                               "safe_save_300b", "bare_save_300b", 1.1});
const RatioRow log_row({"tune-log line with two numbers / std::to_chars and one write", "log_line", "log_line_bare",
                        1.5});

}  // namespace
}  // namespace korvane::bench
