// Waits: the texts of their ends, and what the reliability tests of all waits do not look at.
#include "globals/stopwatch.h"
#include "globals/tune_globals_test.h"

namespace korvane {
namespace {

constexpr double poll_seconds = 0.5;

class Waits : public TuneGlobalsTest {
protected:
    Waits() { setpoint(12, 10, "Lens"); }
    void start_at(double second_of_day) { *test.clock = VirtualClock(second_of_day); }
    /// Spectra report 10 whatever is written.
    void never_arriving() {
        test.instrument().metadata_items = [] { return std::vector<MetaItem>{{"Lens", 10.0}}; };
    }
    template <class Body>
    double seconds_of(Body&& body) {
        const double before = test.clock->total_seconds();
        body();
        return test.clock->total_seconds() - before;
    }
};

TEST_F(Waits, TimedWaitEndsOnTheFirstPollPastItsDeadlineAtAnyTimeOfDay) {
    auto made = globals();
    for (double start : {0.0, 36000.0, 86390.0, 86399.75})
        for (double wait : {-1.0, 0.0, 0.2, 0.5, 1.0, 30.0, 301.0, 7200.0}) {
            start_at(start);
            const double took = seconds_of([&] { made.WaitThisManySeconds(wait); });
            EXPECT_LE(took, std::max(wait, 0.0) + poll_seconds) << start << ", " << wait;
            EXPECT_TRUE(wait <= 0 ? took == 0 : took > wait) << start << ", " << wait << ": " << took;
        }
    EXPECT_EQ(raised([&] { made.WaitThisManySeconds(std::numeric_limits<double>::infinity()); }).substr(0, 2), "5|");
}

TEST_F(Waits, EventsThatTakeMinutesAcrossMidnightDoNotCostADay) {
    auto made = globals();
    start_at(86399);
    test.clock->on_events = [&] { test.clock->advance(400); };
    EXPECT_LE(seconds_of([&] { made.WaitThisManySeconds(30); }), 401);
}

TEST(StopwatchTest, ClockSetBackALittleIsNoDay) {
    VirtualClock clock(1000);
    Stopwatch stopwatch(clock);
    clock.advance(-5);
    EXPECT_EQ(stopwatch.seconds(), 0);
    clock.advance(10);
    EXPECT_EQ(stopwatch.seconds(), 10);
}

TEST_F(Waits, SetpointThatNeverArrivesIsGivenUpWithWhatWasSeen) {
    never_arriving();
    auto made = globals();
    const std::string text = "SetMSSetpointValueByIdx: setpoint[12] did not reach expected value[20]; last value[10]";
    EXPECT_EQ(raised([&] { made.SetMSSetpointValueByIdx(12, 20, 0, 0, true); }),
              "-807|SetMSSetpointValueByIdx()|" + text);
    EXPECT_TRUE(test.trace().contains(
        "WaitForSpectrumWithSetpointValue: Error[1] in WaitForSpectrumWithSetpointValue: Setpoint[12] in "
        "WaitForSpectrumWithSetpointValue: timed out waiting for setpoint"));
    EXPECT_EQ(made.ErrorMsgString(),
              "Error[-807] in SetMSSetpointValueByIdx: unable to set current value for setpoint[12]: " + text);
}

TEST_F(Waits, SpectrumOfAnInstrumentThatIsNotInPreRunIsNotTaken) {
    test.instrument().registers[run_state] = 3;
    auto made = globals();
    EXPECT_EQ(raised([&] { made.SetMSSetpointValueByIdx(12, 20, 0, 0, true); }).substr(0, 5), "-807|");
    EXPECT_TRUE(test.trace().contains("GetMetaValue: Waiting for PreRun state; current state = 3"));
    EXPECT_EQ(test.instrument().spectra, 0);
}

TEST_F(Waits, ToleranceIsStrict) {
    auto made = globals();
    test.instrument().metadata_items = [] { return std::vector<MetaItem>{{"Lens", 20.5}}; };
    for (const auto& [tolerance, reached] : {std::pair{0.5, false}, std::pair{0.51, true}}) {
        setpoint(12, 10).tolerance = tolerance;
        EXPECT_EQ(raised([&] { made.SetMSSetpointValueByIdx(12, 20, 0, 0, true); }) == "no error", reached);
    }
}

TEST_F(Waits, AbortIsNoFailureOfTheSetter) {
    never_arriving();
    for (const double state : {1.0, 2.0}) {
        test.preference("AbortFlag", "0");
        test.instrument().registers[run_state] = state;
        auto made = globals();
        abort_after_events(2);
        EXPECT_EQ(raised([&] { made.SetMSSetpointValueByIdx(12, 20, 0, 0, true); }), user_aborted);
        for (const std::string& line : test.trace().lines)
            EXPECT_EQ(line.find("unable to set"), std::string::npos) << line;
        EXPECT_TRUE(made.ErrorMsgString().starts_with("Error[1] in ")) << made.ErrorMsgString();
        expect_balanced_trace();
    }
}

TEST_F(Waits, AbortFlagAlreadySetStopsReadsBeforeTheInstrumentIsAsked) {
    auto made = globals();
    test.preference("AbortFlag", "1");
    EXPECT_EQ(raised([&] { made.GetMSSetpointValueByIdx(12); }), user_aborted);
    EXPECT_EQ(test.instrument().calls, 0);
    EXPECT_EQ(made.SetMSSetpointValueByIdx(12, 20), 20) << "a plain write asks nobody";
}

TEST_F(Waits, PreferenceFileLostDuringAWaitIsNoTimeOut) {
    auto made = globals();
    test.clock->on_events = [&] { std::filesystem::remove(test.base() / "TunePreferences.xml"); };
    EXPECT_EQ(raised([&] { made.WaitThisManySeconds(60); }),
              "-901|AutotuneParameterXMLConfigFileReader|TunePreferences XML file doesn't exist");
}

}  // namespace
}  // namespace korvane
