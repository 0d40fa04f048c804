#include <cmath>
#include <limits>

#include "globals/tune_globals_test.h"
#include "platform/stopwatch.h"
#include "platform/text.h"

namespace korvane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Setpoints : public TuneGlobalsTest {
protected:
    Setpoints() {
        ScriptedSetpoint& lens = setpoint(12, 10, "Lens");
        lens.lower = -5e9;
        lens.upper = 5e9;
    }
    /// Spectra report this value whatever is written.
    void spectra_report(double value) {
        test.instrument().metadata_items = [=] { return std::vector<MetaItem>{{"Lens", value}}; };
    }
    std::string set_and_wait(TuneGlobals& made) {
        return raised([&] { made.SetMSSetpointValueByIdx(12, 20, 0, 0, true); });
    }
    double waited(TuneGlobals& made, double seconds) {
        const double before = test.clock->total_seconds();
        made.WaitThisManySeconds(seconds);
        return test.clock->total_seconds() - before;
    }
    /// The trace, indented by depth, without the abort polls inside the routines.
    std::string transcript() const {
        std::string text = "\n", indent;
        for (const std::string& line : test.tracers->record->lines) {
            if (line.starts_with("< ")) indent.resize(indent.size() - 2);
            const bool poll = line.find("Abort") != line.npos || line.find("TunePref") != line.npos;
            if (!poll && !line.starts_with("< ")) text += indent + line + "\n";
            if (line.starts_with("> ")) indent += "  ";
        }
        return text;
    }
};

/// The journal's line, the start of an error, or nothing, for a setpoint of 10 between -5e9 and 5e9.
std::string expected_change(int type, double new_value, double delta) {
    if (delta == 0 && new_value == setpoint_value_not_given) return "";
    const double target = delta != 0 ? 10 + delta : new_value, whole = std::nearbyint(target);
    if (std::isnan(target))
        return "5|Korvane|Invalid procedure call or argument: setpoint[12]: the value is not a number";
    if (std::abs(target) > 5e9) return "";
    if (type == 5) return "-1|SetMSSetpointValueByIdx()|invalid setpoint variable type";
    if (type == 4) return text_of("write 12 = ", target, " (double)");
    const double high = type == 6 ? 32767 : 2147483647;
    if (whole > high || whole < -high - 1) return text_of("6|Korvane|Overflow: setpoint[12]: [", target, "]");
    return text_of("write 12 = ", whole, type == 6 ? " (int16)" : " (int32)");
}

TEST_F(Setpoints, TargetIsWrittenInItsTypeWithinItsLimitsOrNotAtAll) {
    auto made = globals();
    const double nan = std::nan("");
    for (const int type : {3, 4, 5, 6})
        for (const double new_value : {setpoint_value_not_given, 2.5, 3.5, -2.5, 4.5000001, 5e9, 5000000000.01, 32767.5,
                                       -32768.5, -32768.51, 2147483647.5, nan})
            for (const double delta : {0.0, 1.5, -5000000010.0, -5000000011.0, nan}) {
                const std::string expected = expected_change(type, new_value, delta);
                test.instrument().journal.clear();
                setpoint(12, 10).type = type;
                double result = 0;
                const std::string error = raised([&] { result = made.SetMSSetpointValueByIdx(12, new_value, delta); });
                const Lines& journal = test.instrument().journal;
                const std::string written = journal.empty() ? "" : journal.front();
                EXPECT_EQ(error == "no error" ? written : error, expected) << type << " " << new_value << " " << delta;
                if (error == "no error") {
                    EXPECT_EQ(result, test.instrument().setpoints[12].value);
                    continue;
                }
                EXPECT_THAT(made.ErrorMsgString(), HasSubstr("unable to set current value for setpoint[12]: "));
            }
}

constexpr std::string_view change_and_read = R"(
> SetMSSetpointValueByInternalName
  > SetMSSetpointValueByIdx
    SetMSSetpointValueByIdx: Setting Setpoint[12] to 20
    > WaitForSpectrumWithSetpointValue
      WaitForSpectrumWithSetpointValue: NewScan received - calling m_tunelibfunctions.GetMetaValue()
      WaitForSpectrumWithSetpointValue: m_Globals.ISetpoints is valid
      WaitForSpectrumWithSetpointValue: Looking up Setpoints[12]
      WaitForSpectrumWithSetpointValue: Name to search is Lens
      > GetMetaValue
        GetMetaValue: Param Name is Lens
        GetMetaValue: g_VexMSCtrl is valid
        GetMetaValue: Getting next spectrum...
        GetMetaValue: Reporting back MetaData value [Lens] of 20
      WaitForSpectrumWithSetpointValue: New value reached
    SetMSSetpointValueByIdx: New setpoint value: 20.004
> GetMSSetpointValueByInternalName
  > GetMSSetpointValueByIdx
    GetMSSetpointValueByIdx: Current value of SP[lSetpointIdx, CurrentTimeSegment, CurrentScanSegment] =
    GetMSSetpointValueByIdx: Current value of SP[12] = 20.004
)";

TEST_F(Setpoints, WholeTraceOfAChangeThatIsWaitedForAndOfARead) {
    auto made = globals();
    test.trace().levels.clear();
    made.set_CurrentTimeSegment(3);
    made.set_CurrentScanSegment(7);
    test.instrument().on_write = [&](std::int32_t, double) { setpoint(12, 20.004); };
    EXPECT_EQ(made.SetMSSetpointValueByInternalName("Lens", 20, 0, 0, true), 20.004);
    EXPECT_EQ(made.GetMSSetpointValueByInternalName("Lens"), 20.004);
    EXPECT_EQ(transcript(), change_and_read);
    EXPECT_EQ(test.instrument().journal, (Lines{"write 12 = 20 (double)", "spectrum 1"}));
    EXPECT_EQ(test.trace().levels[0], 4);
    EXPECT_EQ(test.instrument().time_segment, 3);
    EXPECT_EQ(test.instrument().scan_segment, 7);
}

TEST_F(Setpoints, MetadataItemIsFoundByTheStartOfItsNameAndLens2OnlyByTheWhole) {
    test.instrument().metadata_items = [] {
        return std::vector<MetaItem>{{"Lens 2 RF", 1.0},    {"LENS 1 Voltage", std::string("2.675")},
                                     {"Lens 1 Other", 3.0}, {"lens 2", 4.125},
                                     {"Half", 0.125},       {"Half2", 0.375},
                                     {"Empty", {}},         {"Text", std::string("high")},
                                     {"Negative", -12.345}, {"Huge", 1e300}};
    };
    auto made = globals();
    const std::pair<std::string, double> rows[] = {
        {"lens 1", 2.68}, {"Lens 2", 4.12}, {"Lens 2 R", 1}, {"LENS 2", 4.12},     {"Half", 0.12},
        {"Half2", 0.38},  {"Neg", -12.34},  {"Huge", 1e300}, {"No such", -999999}, {"", 1}};
    for (const auto& [name, value] : rows) EXPECT_DOUBLE_EQ(made.GetMetaValue(name), value) << name;
    EXPECT_EQ(raised([&] { made.GetMetaValue("Empty"); }),
              "13|Korvane|Type mismatch: metadata item [Empty] has no value");
    EXPECT_EQ(raised([&] { made.GetMetaValue("Text"); }), "13|Korvane|Type mismatch: [high] (metadata item [Text])");
    EXPECT_TRUE(test.trace().contains("GetMetaValue: MetaData value [No such] NOT FOUND"));
    test.instrument().has_control = false;
    EXPECT_THAT(raised([&] { made.GetMetaValue("Lens"); }), StartsWith("91|"));
}

TEST_F(Setpoints, TimedWaitEndsOnTheFirstPollPastItsDeadlineAtAnyTimeOfDay) {
    auto made = globals();
    for (const double wait : {-1.0, 0.0, 0.2, 0.5, 30.0, 301.0}) {
        *test.clock = VirtualClock(86399.75);
        const double took = waited(made, wait);
        EXPECT_TRUE(wait <= 0 ? took == 0 : took > wait && took <= wait + 0.5) << wait << ": " << took;
    }
    EXPECT_THAT(raised([&] { made.WaitThisManySeconds(std::numeric_limits<double>::infinity()); }), StartsWith("5|"));
    // Events that take minutes across midnight do not cost a day, nor does a clock that is set back a little.
    *test.clock = VirtualClock(86399);
    test.clock->on_events = [&] { test.clock->advance(400); };
    EXPECT_LE(waited(made, 30), 401);
    Stopwatch stopwatch(*test.clock);
    test.clock->advance(-5);
    EXPECT_EQ(stopwatch.seconds(), 0);
    test.clock->advance(10);
    EXPECT_EQ(stopwatch.seconds(), 10);
}

TEST_F(Setpoints, ThatNeverArriveAreGivenUpWithWhatWasSeen) {
    spectra_report(10);
    auto made = globals();
    const std::string text = "SetMSSetpointValueByIdx: setpoint[12] did not reach expected value[20]; last value[10]";
    EXPECT_EQ(set_and_wait(made), "-807|SetMSSetpointValueByIdx()|" + text);
    const std::string line = "    WaitForSpectrumWithSetpointValue: ";
    EXPECT_THAT(transcript(), HasSubstr(line + "New value Not yet reached OR Not the first scan\n" + line +
                                        "MetaValue is 10\n" + line + "TargetValue to look for is 20\n"));
    EXPECT_TRUE(test.trace().contains(
        "WaitForSpectrumWithSetpointValue: Error[1] in WaitForSpectrumWithSetpointValue: Setpoint[12] in "
        "WaitForSpectrumWithSetpointValue: timed out waiting for setpoint"));
    EXPECT_EQ(made.ErrorMsgString(),
              "Error[-807] in SetMSSetpointValueByIdx: unable to set current value for setpoint[12]: " + text);
    EXPECT_EQ(made.unreported_item(), "");
    test.instrument().metadata_items = [] { return std::vector<MetaItem>{{"Other", 1.0}}; };
    EXPECT_EQ(
        raised([&] { made.SetMSSetpointValueByInternalName("Lens", 30, 0, 0, true); }),
        "-807|SetMSSetpointValueByIdx()|SetMSSetpointValueByIdx: setpoint[12] did not reach expected value[30]; last "
        "value[20]");
    EXPECT_THAT(made.ErrorMsgString(), StartsWith("Error[-807] in SetMSSetpointValueByInternalName(): SetMSSetpoint"));
    EXPECT_EQ(made.unreported_item(), "Lens");
    test.instrument().registers[run_state] = 3;
    const int spectra = test.instrument().spectra;
    EXPECT_THAT(set_and_wait(made), StartsWith("-807|"));
    EXPECT_TRUE(test.trace().contains("GetMetaValue: Waiting for PreRun state; current state = 3"));
    EXPECT_EQ(test.instrument().spectra, spectra) << "a spectrum of an instrument that is not in pre-run was taken";
    test.instrument().registers[run_state] = 1;
    spectra_report(20.5);
    for (const auto& [tolerance, reached] : {std::pair{0.5, false}, {0.51, true}}) {
        setpoint(12, 10).tolerance = tolerance;
        EXPECT_EQ(set_and_wait(made) == "no error", reached) << "the tolerance is strict";
    }
}

TEST_F(Setpoints, AbortIsNoFailureOfTheSetter) {
    spectra_report(10);
    for (const double state : {1.0, 2.0}) {
        test.preference("AbortFlag", "0");
        test.instrument().registers[run_state] = state;
        auto made = globals();
        test.clock->on_events = [&, polls = 0]() mutable {
            if (++polls == 2) test.preference("AbortFlag", "1");
        };
        EXPECT_EQ(set_and_wait(made), user_aborted);
        EXPECT_EQ(transcript().find("unable to set"), std::string::npos);
        EXPECT_THAT(made.ErrorMsgString(), StartsWith("Error[1] in "));
    }
    auto made = globals();
    test.instrument().calls = 0;
    EXPECT_EQ(raised([&] { made.GetMSSetpointValueByIdx(12); }), user_aborted);
    EXPECT_EQ(test.instrument().calls, 0) << "the instrument was asked although an abort stood";
    EXPECT_EQ(made.SetMSSetpointValueByIdx(12, 20), 20) << "a plain write asks nobody";
    test.preference("AbortFlag", "0");
    test.clock->on_events = [&] { std::filesystem::remove(test.base() / "TunePreferences.xml"); };
    EXPECT_EQ(raised([&] { made.WaitThisManySeconds(60); }),
              "-901|AutotuneParameterXMLConfigFileReader|TunePreferences XML file doesn't exist");
    EXPECT_THAT(raised([&] { made.UserHasClickedAbort(); }), StartsWith("-901|"));
    EXPECT_THAT(made.ErrorMsgString(), StartsWith("Error[-901] in UserHasClickedAbort(): "));
}

}  // namespace
}  // namespace korvane
