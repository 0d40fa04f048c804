#include <gtest/gtest.h>

#include "config/store_files.h"
#include "korvane/abort_helper.h"
#include "korvane/tune_prefs_xml.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

using Lines = std::vector<std::string>;

const std::string reader = "AutotuneParameterXMLConfigFileReader|";
const std::string unavailable = "-901|" + reader + "TunePreferences XML file doesn't exist";

class Preferences : public ::testing::Test {
protected:
    Preferences() {
        failing = std::make_shared<FailingFiles>(test.files);
        test.files = failing;
    }
    std::string path() const { return (test.base() / "TunePreferences.xml").string(); }
    void content(const std::string& inside) const {
        write_text(path(), "<TunePreferences>" + inside + "</TunePreferences>");
    }

    TestPlatform test;
    std::shared_ptr<FailingFiles> failing;
};

TEST_F(Preferences, EveryWayOfNotOpeningIsOneErrorForEveryMember) {
    const std::string malformed[] = {"", "<TunePreferences>", "<a/><b/>", "\xff\xfe", "<a>&<b></a>"};
    for (const std::string& text : malformed) {
        write_text(path(), text);
        clsTunePrefsXML store(test.platform());
        AbortHelper abort(test.platform());
        EXPECT_EQ(raised([&] { store.GetTunePreference("AbortFlag"); }), unavailable) << text;
        EXPECT_EQ(raised([&] { store.WriteTunePreference("AbortFlag", "1"); }), unavailable) << text;
        EXPECT_EQ(raised([&] { abort.UserHasClickedAbort(); }), unavailable) << text;
        EXPECT_EQ(raised([&] { abort.TriggerAbort(); }), unavailable) << text;
        EXPECT_EQ(raised([&] { abort.Reset(); }), unavailable) << text;
        EXPECT_EQ(read_text(path()), text);
    }
    std::filesystem::remove(path());
    clsTunePrefsXML store(test.platform());
    test.trace().lines.clear();
    EXPECT_EQ(raised([&] { store.GetTunePreference("AbortFlag"); }), unavailable);
    EXPECT_EQ(test.trace().lines,
              (Lines{"> GetTunePreference", "> OpenTunePrefsXML", "OpenTunePrefsXML: XML load failed; parseError[-2]",
                     "OpenTunePrefsXML: XML load failed; parseError[-2]",
                     "OpenTunePrefsXML: TunePrefsXML: Failed to load XML: " + path() + "; parseError[-2]",
                     "OpenTunePrefsXML: OpenTunePrefsXML: error[-904, TunePrefsXML: Failed to load XML file: " +
                         path() + "; parseError[-2]] opening Tune Prefs XML",
                     "< OpenTunePrefsXML",
                     "GetTunePreference: GetTunePreference: error[-901, TunePreferences XML file doesn't exist] "
                     "querying for element[AbortFlag]",
                     "< GetTunePreference"}));
}

TEST_F(Preferences, MissingRootOrElementIsNamedAndTheFileStays) {
    clsTunePrefsXML store(test.platform());
    const std::string before = read_text(path());
    EXPECT_EQ(raised([&] { store.WriteTunePreference("No", "1"); }),
              "-904|" + reader + "Item[No] not found in Tune XML config file");
    EXPECT_TRUE(
        test.trace().contains("WriteTunePreference: WriteTunePreference: error[-904, Item[No] not found in "
                              "Tune XML config file] writing element[No]"));
    EXPECT_EQ(read_text(path()), before);
    write_text(path(), "<Other><AbortFlag>0</AbortFlag></Other>");
    EXPECT_EQ(raised([&] { store.GetTunePreference("AbortFlag", true); }),
              "-905|" + reader + "ChosenTunePreferencesRootNode is nothing");
    EXPECT_EQ(raised([&] { store.WriteTunePreference("AbortFlag", "1"); }),
              "-905|" + reader + "ChosenTunePreferencesRootNode is nothing");
}

TEST_F(Preferences, SaveIsTriedThreeTimesClearsReadOnlyAndReportsWithTheLoadTexts) {
    clsTunePrefsXML store(test.platform());
    std::filesystem::permissions(path(), std::filesystem::perms(0444));
    failing->failing_saves = 2;
    store.WriteTunePreference("AbortFlag", "7");
    EXPECT_EQ(clsTunePrefsXML(test.platform()).GetTunePreference("AbortFlag"), "7");
    EXPECT_EQ(test.clock->sleeps, 2);
    failing->failing_saves = 3;
    EXPECT_EQ(raised([&] { store.WriteTunePreference("AbortFlag", "8"); }),
              "-904|" + reader + "TunePrefsXML: Failed to load XML file: " + path() + "; parseError[0]");
    EXPECT_TRUE(
        test.trace().contains("WriteTunePreference: TunePrefsXML: Failed to load XML: " + path() + "; parseError[0]"));
    EXPECT_EQ(clsTunePrefsXML(test.platform()).GetTunePreference("AbortFlag"), "7");
}

TEST_F(Preferences, AnyFlagTextButZeroIsAnAbort) {
    AbortHelper abort(test.platform());
    for (const std::string text : {"0", "1", "1 ", " 0", "0 ", "", "00", "no"}) {
        content("<AbortFlag>" + text + "</AbortFlag>");
        EXPECT_EQ(abort.UserHasClickedAbort(), text != "0") << "[" << text << "]";
    }
}

TEST_F(Preferences, WholeTraceOfATriggerSeenByAnotherHelperAndReset) {
    AbortHelper interface(test.platform());
    AbortHelper loop(test.platform());
    EXPECT_FALSE(loop.UserHasClickedAbort());
    interface.TriggerAbort();
    EXPECT_TRUE(loop.UserHasClickedAbort());
    interface.Reset();
    EXPECT_FALSE(loop.UserHasClickedAbort());
    const auto poll = [](const std::string& text) {
        return Lines{"> UserHasClickedAbort", "> GetTunePreference", "> OpenTunePrefsXML",
                     "< OpenTunePrefsXML",    "< GetTunePreference", "UserHasClickedAbort: " + text,
                     "< UserHasClickedAbort"};
    };
    const Lines write{"> WriteTunePreference", "> OpenTunePrefsXML", "< OpenTunePrefsXML", "< WriteTunePreference"};
    Lines expected;
    const auto add = [&](const Lines& lines) { expected.insert(expected.end(), lines.begin(), lines.end()); };
    add(poll("Abort value is set to 0"));
    add({"> TriggerAbort"});
    add(write);
    add({"< TriggerAbort"});
    add(poll("Process Aborted by XML flag"));
    add(write);
    add(poll("Abort value is set to 0"));
    EXPECT_EQ(test.trace().lines, expected);
}

TEST_F(Preferences, FailedPollIsNoAnswer) {
    content("");
    AbortHelper abort(test.platform());
    EXPECT_EQ(raised([&] { abort.UserHasClickedAbort(); }),
              "-904|" + reader + "Item[AbortFlag] not found in Tune XML config file");
    EXPECT_TRUE(
        test.trace().contains("UserHasClickedAbort: Error[-904]: Item[AbortFlag] not found in Tune XML config file"));
}

TEST_F(Preferences, BaseFolderMayEndInASeparator) {
    for (const std::string ending : {"", "/"}) {
        test.instrument().base_folder = test.base().string() + ending;
        EXPECT_FALSE(AbortHelper(test.platform()).UserHasClickedAbort()) << "[" << ending << "]";
    }
}

}  // namespace
}  // namespace korvane
