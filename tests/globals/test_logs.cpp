#include <filesystem>

#include "globals/tune_globals_test.h"
#include "korvane/forwarding.h"

namespace korvane {
namespace {

class Logs : public TuneGlobalsTest {
protected:
    Lines files() const { return names_in(test.base() / "Logfiles"); }
    Lines lines(const std::string& name) const { return read_lines(test.base() / "Logfiles" / name); }
};

TEST_F(Logs, ScenarioLeavesTheseFilesWithTheseLines) {
    test.preference("LogSetpointTraffic", "Yes");
    auto made = globals();
    EXPECT_EQ(made.tune_log_path(), "");
    made.ReleaseTuneLogFile();
    made.WriteLineToTuneLogFile("AUTOTUNE LOG: STATUS: first");
    test.clock->advance(61);
    made.WriteLineToTuneLogFile("  second, \xc3\xa4  ");
    made.WriteLineToTuneErrorLogFile("error 1");
    made.WriteLineToTuneErrorLogFile("error 2");
    test.clock->advance(1);
    made.WriteLineToTuneErrorLogFile("error 3");
    made.WriteLineToSetpointLogFile("[12] to 5");
    made.ReleaseTuneLogFile();
    made.WriteLineToSetpointLogFile("[12] to 6");
    test.clock->advance(13 * 3600);
    made.WriteLineToTuneLogFile("");
    EXPECT_EQ(made.tune_log_path(), (test.base() / "Logfiles" / "TuneLog_20261121_230102.txt").string());
    EXPECT_EQ(made.ErrorMsgString(), "");

#ifdef _WIN32  // where a log is in the system's code page
    const std::string second = "  second, \xe4  ";
#else
    const std::string second = "  second, \xc3\xa4  ";
#endif
    EXPECT_EQ(files(), (Lines{"SetpointLog.txt", "TuneErrorLog_20261121_100101.txt", "TuneErrorLog_20261121_100102.txt",
                              "TuneLog_20261121_100000.txt", "TuneLog_20261121_230102.txt"}));
    EXPECT_EQ(lines("TuneLog_20261121_100000.txt"),
              (Lines{"===TUNE 11/21/2026 10:00:00 AM===", "AUTOTUNE LOG: STATUS: first", second}));
    EXPECT_EQ(lines("TuneLog_20261121_230102.txt"), (Lines{"===TUNE 11/21/2026 11:01:02 PM===", ""}));
    EXPECT_EQ(lines("TuneErrorLog_20261121_100101.txt"),
              (Lines{"===TUNE 11/21/2026 10:01:01 AM===", "error 1", "===TUNE 11/21/2026 10:01:01 AM===", "error 2"}));
    EXPECT_EQ(lines("TuneErrorLog_20261121_100102.txt"), (Lines{"===TUNE 11/21/2026 10:01:02 AM===", "error 3"}));
    EXPECT_EQ(lines("SetpointLog.txt"), (Lines{"===TUNE 11/21/2026 10:01:02 AM===", "261121 10:00:00==> [12] to 5",
                                               "261121 10:00:00==> [12] to 6"}));
}

TEST_F(Logs, SetpointTrafficIsLoggedOnlyForExactlyYesAtCreation) {
    for (const std::string text : {"yes", "True", "Yes ", ""}) {
        test.preference("LogSetpointTraffic", text);
        auto made = globals();
        test.preference("LogSetpointTraffic", "Yes");
        made.WriteLineToSetpointLogFile("never");
        EXPECT_EQ(files(), Lines{}) << text;
    }
    write_text(test.base() / "TunePreferences.xml", "<TunePreferences/>");
    EXPECT_EQ(raised([&] { globals(); }).substr(0, 5), "-904|");
    std::filesystem::remove(test.base() / "TunePreferences.xml");
    EXPECT_EQ(raised([&] { globals(); }).substr(0, 5), "-901|");
}

TEST_F(Logs, MissingInstrumentFailsTheMembersThatNeedItAndNotTheCreation) {
    struct Layer final : ForwardingInstrumentLayer {
        using ForwardingInstrumentLayer::ForwardingInstrumentLayer;
        std::unique_ptr<InstrumentGlobals> create_globals() override { return nullptr; }
        std::unique_ptr<PathInformation> create_path_information() override {
            return knows_paths ? ForwardingInstrumentLayer::create_path_information() : nullptr;
        }
        bool knows_paths = false;
    };
    const auto layer = std::make_shared<Layer>(test.layer);
    Platform platform = test.platform();
    platform.instrument = layer;
    TuneGlobals made(platform);
    const std::string fault = "Object variable or With block variable not set: create_";
    EXPECT_EQ(raised([&] { made.GetPolarityStr(); }), "91|Korvane|" + fault + "globals() of the instrument layer");
    made.WriteLineToTuneLogFile("lost");
    EXPECT_EQ(made.ErrorMsgString(),
              "error[91] in WriteLineToTuneLogFile(): " + fault + "path_information() of the instrument layer");
    layer->knows_paths = true;
    made.WriteLineToTuneLogFile("kept");
    EXPECT_FALSE(made.UserHasClickedAbort());
    test.preference("LogSetpointTraffic", "Yes");
    made.WriteLineToSetpointLogFile("read at the first line");
    EXPECT_EQ(files(), (Lines{"SetpointLog.txt", "TuneLog_20261121_100000.txt"}));
}

TEST_F(Logs, MissingFolderIsSwallowedNotMadeAndTriedAgain) {
    test.preference("LogSetpointTraffic", "Yes");
    auto made = globals();
    const auto folder = test.base() / "Logfiles";
    std::filesystem::remove(folder);
    const std::pair<std::string, void (TuneGlobals::*)(const std::string&)> writers[] = {
        {"WriteLineToTuneLogFile", &TuneGlobals::WriteLineToTuneLogFile},
        {"WriteLineToTuneErrorLogFile", &TuneGlobals::WriteLineToTuneErrorLogFile},
        {"WriteLineToSetpointLogFile", &TuneGlobals::WriteLineToSetpointLogFile}};
    for (const auto& [name, writer] : writers) {
        made.set_ErrorMsgString("");
        (made.*writer)("lost");
        const std::string start = "error[76] in " + name + "(): ";
        EXPECT_EQ(made.ErrorMsgString().substr(0, start.size()), start);
        EXPECT_TRUE(test.trace().contains(name + ": " + made.ErrorMsgString()));
        EXPECT_FALSE(std::filesystem::exists(folder));
    }
    std::filesystem::create_directory(folder);
    for (const auto& [name, writer] : writers) (made.*writer)("kept");
    for (const std::string& name : files()) EXPECT_TRUE(read_lines(folder / name).back().ends_with("kept")) << name;
    EXPECT_EQ(files().size(), 3u);
    EXPECT_EQ(made.tune_log_path(), (folder / "TuneLog_20261121_100000.txt").string());
}

TEST_F(Logs, LogbookEntryTraceAndBoxComeAsAskedFor) {
    auto made = globals();
    made.ReportStatusToLogbook("a");
    EXPECT_TRUE(test.message_box->shown.empty());
    made.ReportStatusToLogbook("b", true, false);
    EXPECT_EQ(test.instrument().logbook, (Lines{"32|a|5|0|0|", "32|b|5|0|0|"}));
    EXPECT_EQ(test.message_box->shown, Lines{"Scripted Setpoint Editor - Tune | b"});
    EXPECT_EQ(test.trace().lines,
              (Lines{"> ReportStatusToLogbook", "ReportStatusToLogbook: a", "< ReportStatusToLogbook",
                     "> ReportStatusToLogbook", "< ReportStatusToLogbook"}));
}

}  // namespace
}  // namespace korvane
