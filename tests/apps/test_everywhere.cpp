// A session prints and logs the same for the same seed: beside other threads, at any time of day, and in a process with
// a decimal comma.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <locale>
#include <thread>

#include "korvane/listing.h"
#include "program_run.h"
#include "support/virtual_clock.h"

#if defined(__SANITIZE_ADDRESS__)
// The C library keeps the parts of LOCPATH for the life of the process.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:argz";
}
#endif

namespace korvane::program {
namespace {

/// What it prints, and its tune logs without the lines that tell a time.
std::string session(const ProgramTest& program, int seed, double start_second = 36000) {
    Platform system = make_platform(nullptr);
    system.clock = std::make_shared<VirtualClock>(start_second);
    std::string text;
    program.scene(R"({"instrument": {"spectrum_duration_ns": 66000}})");
    for (const char* command :
         {"calibration fit --spectra 1", "measure --mass 566.8885", "params list", "abort request", "abort reset",
          "adjust QuadAMU --mz 566.8885 --target 20000 --raise-to-reduce --fast"}) {
        const Outcome run = program.run("--seed " + std::to_string(seed) + " " + command, system);
        EXPECT_EQ(run.code, 0) << command << ": " << run.err;
        text += run.out;
    }
    for (const std::string& log : names_in(program.base / "Logfiles"))
        for (const std::string& line : read_lines(program.base / "Logfiles" / log))
            if (!line.starts_with("===TUNE ")) text += line + "\n";
    return text;
}

TEST(Everywhere, ASeedDecidesBesideOtherThreadsAndAtAnyTimeOfDay) {
    constexpr int threads = 2;
    std::vector<std::string> alone, together(threads);
    for (int seed = 0; seed < threads; ++seed) alone.push_back(session(ProgramTest(), seed));
    std::vector<std::thread> running;
    for (int seed = 0; seed < threads; ++seed)
        running.emplace_back([&together, seed] { together[seed] = session(ProgramTest(), seed); });
    for (std::thread& thread : running) thread.join();
    EXPECT_EQ(together, alone);
    EXPECT_EQ(session(ProgramTest(), 1, 86395), alone[1]);
    EXPECT_NE(alone[0], alone[1]) << "the seed changes nothing";
}

TEST(Everywhere, ABaseFolderMadeWithADecimalCommaWorksThereAndOnlyStoredNumbersDiffer) {
    std::string classic = session(ProgramTest(), 1);
    const ProgramTest points;
    const std::locale before;
#ifndef _WIN32  // there it is the user's setting, which a process cannot change
    const std::string name = "de_DE.UTF-8", made = points.folder.file(name);
    if (std::setlocale(LC_ALL, name.c_str()) == nullptr &&
        std::system(("localedef -i de_DE -f UTF-8 '" + made + "' >/dev/null 2>&1").c_str()) == 0)
        setenv("LOCPATH", points.folder.path().c_str(), 1);
    if (std::setlocale(LC_ALL, name.c_str())) std::locale::global(std::locale(name));
#endif
    if (stored_number("0.5") != "0,5") GTEST_SKIP() << "no locale with a decimal comma";
    const ProgramTest commas;
    std::string german = session(commas, 1);
    EXPECT_NE(german.find("0,5"), std::string::npos) << "the file has points";
    const bool began_with_points = classic.find("0,5") == std::string::npos;
    std::replace(german.begin(), german.end(), ',', '.');
    std::replace(classic.begin(), classic.end(), ',', '.');
    EXPECT_EQ(german, classic);
    EXPECT_EQ(points.run("measure").code, began_with_points ? 3 : 0) << "a number with a point was taken";
    EXPECT_EQ(commas.run("params set PeakHandling PeakFindWindowInPercentT 0.25").out, "0.25\n");
    EXPECT_EQ(commas.run("masslist set 158.964 294.9388 566.8885 838.8381").code, 0);
    EXPECT_EQ(commas.run("masslist check").code, 0);
    EXPECT_EQ(commas.run("measure").code, 0);
    std::locale::global(before);
    std::setlocale(LC_ALL, "C");
}

}  // namespace
}  // namespace korvane::program
