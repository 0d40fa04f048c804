// What reading, saving and logging cost beside the bare calls they are made of.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <pugixml.hpp>

#include "bench/ratio.h"
#include "frame/text.h"
#include "korvane/tune_globals.h"
#include "korvane/tune_params_xml.h"
#include "platform/safe_save.h"
#include "support/test_platform.h"

namespace korvane::bench {
namespace {

/// Parameters of about 5 kB a group of fillers, with the group that is read before them.
struct LargeParameters {
    explicit LargeParameters(int groups = 40) {
        test.trace().on = false;
        for (int group = 0; group < groups; ++group)
            for (int key = 0; key < 100; ++key)
                entries += "<Key_" + std::to_string(group) + "_" + std::to_string(key) + ">123.456</Key_" +
                           std::to_string(group) + "_" + std::to_string(key) + ">\n";
        test.raw_parameters("<Filler>\n" + entries + "</Filler>\n");
        test.limit("Calibration", "BinarySearchAbTolerance", "20000");
        path = (test.base() / "TuneParams.xml").string();
        bytes = read_text(path);
    }
    TestPlatform test;
    std::string entries, path, bytes;
};

void parameter_read(benchmark::State& state, int groups) {
    LargeParameters world(groups);
    clsTuneParamsXML store(world.test.platform());
    for (auto _ : state)
        benchmark::DoNotOptimize(store.GetAutotuneLimitValue("Calibration", "BinarySearchAbTolerance", true));
}
void parameter_read_200kb(benchmark::State& state) {
    parameter_read(state, 40);
}
void parameter_read_10kb(benchmark::State& state) {
    parameter_read(state, 2);
}
void parameter_read_10mb(benchmark::State& state) {
    parameter_read(state, 2000);
}
BENCHMARK(parameter_read_200kb);
BENCHMARK(parameter_read_10kb);
BENCHMARK(parameter_read_10mb);

void parameter_read_bare(benchmark::State& state) {
    LargeParameters world;
    pugi::xml_document document;
    for (auto _ : state) {
        document.load_file(world.path.c_str());
        const auto node = document.select_node("/QTOFTuneParams/TOF/AutotuneParameters/Calibration").node();
        benchmark::DoNotOptimize(node.select_node("BinarySearchAbTolerance").node().text().as_double());
    }
}
BENCHMARK(parameter_read_bare);

void safe_save_of_a_parameter_file(benchmark::State& state) {
    LargeParameters world;
    for (auto _ : state) safe_save(*world.test.files, world.path, world.bytes);
}
BENCHMARK(safe_save_of_a_parameter_file)->UseRealTime();

void bare_calls_of_a_save(benchmark::State& state) {
    LargeParameters world;
    const std::string folder = world.test.base().string(), temporary = world.path + ".tmp";
    for (auto _ : state) {
        const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        std::size_t written = 0;
        while (written < world.bytes.size())
            written +=
                static_cast<std::size_t>(write(file, world.bytes.data() + written, world.bytes.size() - written));
        fsync(file);
        close(file);
        rename(temporary.c_str(), world.path.c_str());
        const int handle = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        fsync(handle);
        close(handle);
    }
}
BENCHMARK(bare_calls_of_a_save)->UseRealTime();

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
const RatioRow save_row({"save that survives a crash / the bare system calls it is made of",
                         "safe_save_of_a_parameter_file", "bare_calls_of_a_save", 1.1});
const RatioRow log_row({"tune-log line with two numbers / std::to_chars and one write", "log_line", "log_line_bare",
                        1.5});

}  // namespace
}  // namespace korvane::bench
