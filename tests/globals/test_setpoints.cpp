#include <cmath>
#include <limits>

#include "globals/stopwatch.h"
#include "globals/tune_globals_test.h"

namespace korvane {
namespace {

class Setpoints : public TuneGlobalsTest {
protected:
    Setpoints() {
        ScriptedSetpoint& lens = setpoint(12, 10, "Lens");
        lens.lower = -5;
        lens.upper = 100;
        setpoint(13, 1, "Other");
    }
    /// Spectra report this value whatever is written.
    void spectra_report(double value) {
        test.instrument().metadata_items = [=] { return std::vector<MetaItem>{{"Lens", value}}; };
    }
    template <class Body>
    double seconds_of(Body&& body) {
        const double before = test.clock->total_seconds();
        body();
        return test.clock->total_seconds() - before;
    }
    std::string set_and_wait(TuneGlobals& made) {
        return raised([&] { made.SetMSSetpointValueByIdx(12, 20, 0, 0, true); });
    }
};

TEST_F(Setpoints, TargetIsWrittenInItsTypeWithinItsLimitsOrNotAtAll) {
    struct Row {
        std::int32_t type;
        double new_value, delta;
        std::string result;  // the journal's line, an error, or nothing
    };
    const double none = setpoint_value_not_given, nan = std::numeric_limits<double>::quiet_NaN();
    const std::string failed = "|Korvane|";
    const Row rows[] = {
        {4, none, 0, ""},
        {4, 2.5, 0, "write 12 = 2.5 (double)"},
        {3, 2.5, 0, "write 12 = 2 (int32)"},
        {3, 3.5, 0, "write 12 = 4 (int32)"},
        {6, -2.5, 0, "write 12 = -2 (int16)"},
        {6, 4.5000001, 0, "write 12 = 5 (int16)"},
        {4, 50, 1.5, "write 12 = 11.5 (double)"},
        {4, none, -15, "write 12 = -5 (double)"},
        {4, -5, 0, "write 12 = -5 (double)"},
        {4, 100, 0, "write 12 = 100 (double)"},
        {4, 100.0001, 0, ""},
        {4, none, -15.0001, ""},
        {5, 1, 0, "-1|SetMSSetpointValueByIdx()|invalid setpoint variable type"},
        {5, 101, 0, ""},
        {4, nan, 0, "5|Korvane|Invalid procedure call or argument: setpoint[12]: the value is not a number"},
        {4, 1, nan, "5|Korvane|Invalid procedure call or argument: setpoint[12]: the value is not a number"},
    };
    auto made = globals();
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.type) + ": " + std::to_string(row.new_value) + ", " +
                     std::to_string(row.delta));
        test.instrument().journal.clear();
        setpoint(12, 10).type = row.type;
        double result = 0;
        const std::string error = raised([&] { result = made.SetMSSetpointValueByIdx(12, row.new_value, row.delta); });
        const Lines& journal = test.instrument().journal;
        EXPECT_EQ(error != "no error" ? error : journal.empty() ? "" : journal.front(), row.result);
        if (error != "no error") continue;
        EXPECT_EQ(result, test.instrument().setpoints[12].value);
    }
}

TEST_F(Setpoints, IntegerOverflowIsAnErrorAndWritesNothing) {
    auto made = globals();
    for (const auto& [type, value] : {std::pair{6, 32767.5}, {6, -32769}, {3, 2147483647.5}, {3, -3e9}}) {
        setpoint(12, 10) = {10, -1e10, 1e10, 0.1, 0.01, type, "Lens"};
        EXPECT_EQ(raised([&] { made.SetMSSetpointValueByIdx(12, value); }).substr(0, 2), "6|");
        EXPECT_TRUE(made.ErrorMsgString().starts_with(
            "Error[6] in SetMSSetpointValueByIdx: unable to set current value for setpoint[12]: Overflow"));
    }
    EXPECT_TRUE(test.instrument().journal.empty());
}

TEST_F(Setpoints, SegmentsReachEveryTableAccess) {
    auto made = globals();
    made.set_CurrentTimeSegment(3);
    made.set_CurrentScanSegment(7);
    const std::function<void()> accesses[] = {[&] { made.SetMSSetpointValueByIdx(12, 1); },
                                              [&] { made.GetMSSetpointValueByInternalName("Lens"); }};
    for (const auto& access : accesses) {
        test.instrument().time_segment = test.instrument().scan_segment = 0;
        access();
        EXPECT_EQ(test.instrument().time_segment, 3);
        EXPECT_EQ(test.instrument().scan_segment, 7);
    }
}

TEST_F(Setpoints, WholeTraceOfAChangeThatIsWaitedForAndOfARead) {
    auto made = globals();
    test.instrument().on_write = [&](std::int32_t, double) { setpoint(12, 19.5); };
    test.clock->on_events = [&] { setpoint(12, 20.004); };
    EXPECT_EQ(made.SetMSSetpointValueByInternalName("Lens", 20, 0, 0, true), 20.004);
    const std::string set = "SetMSSetpointValueByIdx: ", wait = "WaitForSpectrumWithSetpointValue: ",
                      meta = "GetMetaValue: ";
    const auto poll = [&](const std::string& value) {
        return Lines{wait + "NewScan received - calling m_tunelibfunctions.GetMetaValue()",
                     wait + "m_Globals.ISetpoints is valid",
                     wait + "Looking up Setpoints[12]",
                     wait + "Name to search is Lens",
                     "> GetMetaValue",
                     meta + "Param Name is Lens",
                     meta + "g_VexMSCtrl is valid",
                     meta + "Getting next spectrum...",
                     meta + "Reporting back MetaData value [Lens] of " + value,
                     "< GetMetaValue"};
    };
    Lines expected{"> SetMSSetpointValueByInternalName", "> SetMSSetpointValueByIdx",
                   set + "Setting Setpoint[12] to 20", "> WaitForSpectrumWithSetpointValue"};
    const auto add = [&](const Lines& lines) { expected.insert(expected.end(), lines.begin(), lines.end()); };
    add(poll("19.5"));
    add({wait + "New value Not yet reached OR Not the first scan", wait + "MetaValue is 19.5",
         wait + "TargetValue to look for is 20"});
    add(poll("20"));
    add({wait + "New value reached", "< WaitForSpectrumWithSetpointValue", set + "New setpoint value: 20.004",
         "< SetMSSetpointValueByIdx", "< SetMSSetpointValueByInternalName"});
    EXPECT_EQ(own_trace(), expected);
    EXPECT_EQ(test.instrument().journal, (Lines{"write 12 = 20 (double)", "spectrum 1", "spectrum 2"}));

    test.trace().lines.clear();
    test.trace().levels.clear();
    EXPECT_EQ(made.GetMSSetpointValueByInternalName("Lens"), 20.004);
    const std::string get = "GetMSSetpointValueByIdx: ";
    EXPECT_EQ(own_trace(), (Lines{"> GetMSSetpointValueByInternalName", "> GetMSSetpointValueByIdx",
                                  get + "Current value of SP[lSetpointIdx, CurrentTimeSegment, CurrentScanSegment] =",
                                  get + "Current value of SP[12] = 20.004", "< GetMSSetpointValueByIdx",
                                  "< GetMSSetpointValueByInternalName"}));
    EXPECT_EQ(test.trace().levels[0], 4);
    EXPECT_EQ(test.trace().levels[1], 4);
}

TEST_F(Setpoints, FailureOfAnyInstrumentCallIsRaisedOnceWithItsErrorLineKept) {
    test.preference("DefaultCalib_UseOverrideValues", "No");
    for (const auto& [index, value] : {std::pair{119, 0}, {128, 2}, {18, 2}, {149, 0}}) setpoint(index, value);
    test.instrument().calibrations[0] = std::make_shared<SquareLawCalibration>(CalibrationCoefficients{0.0001, 1000});
    for (const char* item : {"CoefA", "CoefB", "CalReserved1", "CalTraditionalWeighting", "CalPolynomialWeighting"})
        test.instrument().dictionary[item] = 1;
    const std::pair<std::string, std::function<void(TuneGlobals&)>> operations[] = {
        {"set", [](auto& g) { g.SetMSSetpointValueByInternalName("Lens", 11); }},
        {"get", [](auto& g) { g.GetMSSetpointValueByInternalName("Lens"); }},
        {"metadata", [](auto& g) { g.GetMetaValue("Lens"); }},
        {"default calibration", [](auto& g) { g.getDefaultMTObj_nsec(); }},
        {"new calibration", [](auto& g) { g.SetNewCalibrationWithTheseAAndt0Values_usec(0.1, 1); }},
        {"longest spectrum", [](auto& g) { g.GetMaxSpectrumTime_usec(); }},
        {"state", [](auto& g) { g.GetCurrentInstrumentStateAsString(); }},
        {"logbook", [](auto& g) { g.ReportStatusToLogbook("message"); }},
    };
    for (const auto& operation : operations) {
        int failures = 0;
        for (;; ++failures) {
            auto made = globals();
            test.instrument().fault_at = failures + 1;
            test.instrument().journal.clear();
            const std::string error = raised([&] { operation.second(made); });
            test.instrument().fault_at.reset();
            expect_balanced_trace();
            if (error == "no error") break;
            ASSERT_EQ(error, "-4711|Instrument|scripted fault") << operation.first << " at call " << failures + 1;
            const bool has_handler = operation.first != "logbook" && !(operation.first == "set" && failures < 2);
            EXPECT_EQ(made.ErrorMsgString().starts_with("Error[-4711] in "), has_handler) << operation.first;
        }
        EXPECT_GE(failures, 1) << operation.first << " never asks the instrument";
    }
}

TEST_F(Setpoints, MetadataItemIsFoundByTheStartOfItsNameAndLens2OnlyByTheWhole) {
    using namespace std::string_literals;
    test.instrument().metadata_items = [] {
        return std::vector<MetaItem>{{"Lens 2 RF", 1.0},    {"LENS 1 Voltage", "2.675"s},
                                     {"Lens 1 Other", 3.0}, {"lens 2", 4.125},
                                     {"Half", 0.125},       {"Half2", 0.375},
                                     {"Empty", {}},         {"Text", "high"s},
                                     {"Whole", 7},          {"Negative", -12.345},
                                     {"Huge", 1e300}};
    };
    auto made = globals();
    const std::pair<std::string, double> rows[] = {
        {"lens 1", 2.68}, {"Lens 2", 4.12}, {"Lens 2 R", 1}, {"LENS 2", 4.12},     {"Half", 0.12}, {"Half2", 0.38},
        {"Wh", 7},        {"Neg", -12.34},  {"Huge", 1e300}, {"No such", -999999}, {"", -999999}};
    for (const auto& [name, value] : rows) EXPECT_DOUBLE_EQ(made.GetMetaValue(name), value) << name;
    EXPECT_EQ(raised([&] { made.GetMetaValue("Empty"); }),
              "13|Korvane|Type mismatch: metadata item [Empty] has no value");
    EXPECT_EQ(raised([&] { made.GetMetaValue("Text"); }), "13|Korvane|Type mismatch: [high] (metadata item [Text])");
    EXPECT_TRUE(test.trace().contains("GetMetaValue: MetaData value [No such] NOT FOUND"));
    test.instrument().has_control = false;
    EXPECT_EQ(raised([&] { made.GetMetaValue("Lens"); }).substr(0, 3), "91|");
}

TEST_F(Setpoints, TimedWaitEndsOnTheFirstPollPastItsDeadlineAtAnyTimeOfDay) {
    auto made = globals();
    for (double start : {0.0, 36000.0, 86390.0, 86399.75})
        for (double wait : {-1.0, 0.0, 0.2, 0.5, 1.0, 30.0, 301.0}) {
            *test.clock = VirtualClock(start);
            const double took = seconds_of([&] { made.WaitThisManySeconds(wait); });
            EXPECT_LE(took, std::max(wait, 0.0) + 0.5) << start << ", " << wait;
            EXPECT_TRUE(wait <= 0 ? took == 0 : took > wait) << start << ", " << wait << ": " << took;
        }
    EXPECT_EQ(raised([&] { made.WaitThisManySeconds(std::numeric_limits<double>::infinity()); }).substr(0, 2), "5|");
}

TEST_F(Setpoints, EventsThatTakeMinutesAcrossMidnightDoNotCostADay) {
    auto made = globals();
    *test.clock = VirtualClock(86399);
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

TEST_F(Setpoints, ThatNeverArriveAreGivenUpWithWhatWasSeen) {
    spectra_report(10);
    auto made = globals();
    const std::string text = "SetMSSetpointValueByIdx: setpoint[12] did not reach expected value[20]; last value[10]";
    EXPECT_EQ(set_and_wait(made), "-807|SetMSSetpointValueByIdx()|" + text);
    EXPECT_TRUE(test.trace().contains(
        "WaitForSpectrumWithSetpointValue: Error[1] in WaitForSpectrumWithSetpointValue: Setpoint[12] in "
        "WaitForSpectrumWithSetpointValue: timed out waiting for setpoint"));
    EXPECT_EQ(made.ErrorMsgString(),
              "Error[-807] in SetMSSetpointValueByIdx: unable to set current value for setpoint[12]: " + text);
    test.instrument().registers[run_state] = 3;
    const int spectra = test.instrument().spectra;
    EXPECT_EQ(set_and_wait(made).substr(0, 5), "-807|");
    EXPECT_TRUE(test.trace().contains("GetMetaValue: Waiting for PreRun state; current state = 3"));
    EXPECT_EQ(test.instrument().spectra, spectra) << "a spectrum of an instrument that is not in pre-run was taken";
}

TEST_F(Setpoints, ToleranceIsStrict) {
    auto made = globals();
    spectra_report(20.5);
    for (const auto& [tolerance, reached] : {std::pair{0.5, false}, {0.51, true}}) {
        setpoint(12, 10).tolerance = tolerance;
        EXPECT_EQ(set_and_wait(made) == "no error", reached);
    }
}

TEST_F(Setpoints, AbortIsNoFailureOfTheSetter) {
    spectra_report(10);
    for (const double state : {1.0, 2.0}) {
        test.preference("AbortFlag", "0");
        test.instrument().registers[run_state] = state;
        auto made = globals();
        abort_after_events(2);
        EXPECT_EQ(set_and_wait(made), user_aborted);
        for (const std::string& line : test.trace().lines)
            EXPECT_EQ(line.find("unable to set"), std::string::npos) << line;
        EXPECT_TRUE(made.ErrorMsgString().starts_with("Error[1] in ")) << made.ErrorMsgString();
        expect_balanced_trace();
    }
}

TEST_F(Setpoints, AbortFlagAlreadySetStopsReadsBeforeTheInstrumentIsAsked) {
    auto made = globals();
    test.preference("AbortFlag", "1");
    EXPECT_EQ(raised([&] { made.GetMSSetpointValueByIdx(12); }), user_aborted);
    EXPECT_EQ(test.instrument().calls, 0);
    EXPECT_EQ(made.SetMSSetpointValueByIdx(12, 20), 20) << "a plain write asks nobody";
}

TEST_F(Setpoints, PreferenceFileLostDuringAWaitIsNoTimeOut) {
    auto made = globals();
    test.clock->on_events = [&] { std::filesystem::remove(test.base() / "TunePreferences.xml"); };
    EXPECT_EQ(raised([&] { made.WaitThisManySeconds(60); }),
              "-901|AutotuneParameterXMLConfigFileReader|TunePreferences XML file doesn't exist");
}

}  // namespace
}  // namespace korvane
