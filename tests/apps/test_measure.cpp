// What measuring prints.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "program_run.h"

namespace korvane::program {
namespace {

const std::set<std::string> record_names{"pkApexX", "pkStart",  "pkArea",       "pkCentroid",
                                         "pkWidth", "pkHeight", "pkResolution", "pkEnd"};

std::set<std::string> keys_of(const nlohmann::json& object) {
    std::set<std::string> keys;
    for (const auto& [key, value] : object.items()) keys.insert(key);
    return keys;
}

TEST(Measure, FindsTheTenCalibrantsOfBothPolaritiesWithinFivePpm) {
    for (const char* polarity : {"0", "1"}) {
        const ProgramTest program;
        ASSERT_EQ(program.run({"setpoint", "set", "Polarity", polarity}).code, 0);
        const nlohmann::json measured = program.run({"measure", "--json"}).json();
        EXPECT_EQ(measured["polarity"], *polarity == '0' ? "Positive" : "Negative");
        ASSERT_EQ(measured["peaks"].size(), 10U);
        for (const auto& peak : measured["peaks"]) {
            EXPECT_TRUE(peak["found"].get<bool>()) << peak["mass"];
            EXPECT_LT(std::abs(peak["ppm"].get<double>()), 5) << peak["mass"];
        }
    }
}

TEST(Measure, JsonHasWhatScriptsReadFromIt) {
    const ProgramTest program;
    const nlohmann::json measured = program.run({"measure", "--json", "--mass", "566.8885"}).json();
    EXPECT_EQ(keys_of(measured), (std::set<std::string>{"source", "polarity", "state", "peaks"}));
    EXPECT_EQ(measured["source"], "ESI");
    const auto& peak = measured["peaks"].at(0);
    const std::set<std::string> always{"mass", "found", "ppm", "ns", "amu"};
    for (const std::string& key : always) EXPECT_TRUE(peak.contains(key)) << key;
    EXPECT_EQ(keys_of(peak["ns"]), record_names);
    EXPECT_EQ(keys_of(peak["amu"]), record_names);
    const double centroid = peak["amu"]["pkCentroid"];
    EXPECT_NEAR(peak["ppm"].get<double>(), (centroid - 566.8885) / 566.8885 * 1e6, 1e-9);
    if (!peak.contains("ppm_error")) GTEST_SKIP() << "the peak finder states no errors";
    // d m / m = 2 d t / (t - t0)
    EXPECT_GT(peak["ions"].get<double>(), 100);
    EXPECT_GT(peak["ppm_error"].get<double>(), 0.01);
    EXPECT_LT(peak["ppm_error"].get<double>(), 5);
}

TEST(Measure, AMassWithoutPeakIsReportedAsSuch) {
    ProgramTest program;
    program.scene(R"({"background": {"count": 0}})");
    const nlohmann::json measured = program.run({"measure", "--json", "--mass", "2000", "--mass", "566.8885"}).json();
    ASSERT_EQ(measured["peaks"].size(), 2U);
    const auto& missing = measured["peaks"].at(0);
    EXPECT_FALSE(missing["found"].get<bool>());
    EXPECT_TRUE(missing["ppm"].is_null());
    EXPECT_EQ(missing["ns"]["pkHeight"], 0);
    EXPECT_TRUE(measured["peaks"].at(1)["found"].get<bool>());
    const Outcome table = program.run({"measure", "--mass", "2000"});
    EXPECT_NE(table.out.find("no peak"), std::string::npos) << table.out;
}

TEST(Measure, AMassThatTheSpectrumDoesNotReachIsRefusedByName) {
    ProgramTest program;
    program.scene(R"({"instrument": {"spectrum_duration_ns": 35000}})");  // ends at m/z 409
    const Outcome run = program.run({"measure", "--mass", "294.9388", "--mass", "566.8885"});
    EXPECT_EQ(run.code, 2);
    EXPECT_NE(run.err.find("566.8885"), std::string::npos) << run.err;
    const nlohmann::json listed = program.run({"measure", "--json"}).json();
    EXPECT_TRUE(listed["peaks"][1]["found"].get<bool>());
    EXPECT_FALSE(listed["peaks"][2]["found"].get<bool>()) << "a list may hold masses that the spectrum does not reach";
}

TEST(Measure, SameSeedPrintsTheSameBytesAndAnotherSeedDoesNot) {
    const ProgramTest program;
    const Outcome first = program.run({"measure", "--seed", "7"});
    EXPECT_EQ(first.code, 0) << first.err;
    EXPECT_EQ(program.run({"measure", "--seed", "7"}).out, first.out);
    EXPECT_NE(program.run({"measure", "--seed", "8"}).out, first.out);
}

TEST(Measure, TalkNamesTheRunAndItsTuneLog) {
    const ProgramTest program;
    const Outcome run = program.run({"measure"});
    for (const char* word : {"ESI", "Positive", "2 GHz", "m/z Mass Range", "TuneLog_"})
        EXPECT_NE(run.err.find(word), std::string::npos) << word << " in " << run.err;
    const auto begin = run.err.find("tune log ") + 9;
    EXPECT_TRUE(std::filesystem::exists(run.err.substr(begin, run.err.find('\n') - begin))) << run.err;
}

TEST(Measure, RowsAreTheMassesOfTheBaseFoldersList) {
    const ProgramTest program;
    ASSERT_EQ(program.run({"masslist", "set", "566.8885", "158.9640", "294.9388", "838.8381"}).code, 0);
    const nlohmann::json measured = program.run({"measure", "--json"}).json();
    std::vector<double> masses;
    for (const auto& peak : measured["peaks"]) masses.push_back(peak["mass"]);
    EXPECT_EQ(masses, (std::vector<double>{158.964, 294.9388, 566.8885, 838.8381}));
}

TEST(Measure, MinimumColumnFollowsTheParameter) {
    const ProgramTest program;
    const std::vector<std::string> measure{"measure", "--mass", "566.8885"};
    EXPECT_NE(program.run(measure).out.find(" yes\n"), std::string::npos);
    ASSERT_EQ(program.run({"params", "set", "RampParams", "MinimumAcceptableAbundance", "1e9"}).code, 0);
    EXPECT_NE(program.run(measure).out.find(" no\n"), std::string::npos);
}

TEST(Measure, AChangedSetpointShowsInTheNextRun) {
    const ProgramTest program;
    const std::vector<std::string> measure{"measure", "--json", "--mass", "566.8885"};
    const double before = program.run(measure).json()["peaks"][0]["ns"]["pkHeight"];
    ASSERT_EQ(program.run({"setpoint", "set", "FragmentTune", "20"}).code, 0);
    EXPECT_EQ(program.run({"setpoint", "get", "30"}).out, "20\n");
    const double after = program.run(measure).json()["peaks"][0]["ns"]["pkHeight"];
    EXPECT_LT(after, before / 2);
}

TEST(Replay, OfARecordedRunGivesTheTableOfTheRun) {
    const ProgramTest program;
    const std::string recording = program.file("run.mzML");
    const Outcome recorded = program.run({"record", recording, "--seed", "3"});
    ASSERT_EQ(recorded.code, 0) << recorded.err;
    const nlohmann::json run = program.run({"measure", "--json", "--seed", "3"}).json();
    const nlohmann::json replayed = program.run({"measure", "--json", "--replay", recording}).json();
    EXPECT_EQ(replayed["polarity"], run["polarity"]);
    ASSERT_EQ(replayed["peaks"].size(), run["peaks"].size());
    for (std::size_t i = 0; i < run["peaks"].size(); ++i) {
        ASSERT_TRUE(replayed["peaks"][i]["found"].get<bool>()) << i;
        EXPECT_NEAR(replayed["peaks"][i]["ppm"].get<double>(), run["peaks"][i]["ppm"].get<double>(), 0.05) << i;
    }
}

}  // namespace
}  // namespace korvane::program
