// The parameter store, the preference store and the abort flag.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>
#include <utility>

#include "korvane/abort_helper.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "platform/files.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

const std::string parameters = R"(<?xml version="1.0"?>
<QTOFTuneParams>
  <TOF>
    <AutotuneParameters>
      <Calibration><A>1.5</A><Text>1,5x</Text><Empty/></Calibration>
      <gainParams><A>0</A></gainParams><checkAbundParams><A>0</A></checkAbundParams><SetpointUI><A>0</A></SetpointUI>
      <resolutionParams><A>0</A></resolutionParams><RampParams><A>0</A></RampParams><Other><A>0</A></Other>
      <PeakHandling><A>0</A></PeakHandling><Misc><A>0</A></Misc><IndexedSlicer><A>0</A></IndexedSlicer>
    </AutotuneParameters>
    <ManualTuneParameters>
      <Calibration><M>2</M></Calibration><SetpointUI><M>4</M></SetpointUI><Misc><M>5</M></Misc>
    </ManualTuneParameters>
  </TOF>
  <Mode>
    <Tune polarity="pos" source="ESI"><Allowed>yEs</Allowed></Tune>
    <Tune polarity="neg" source="ESI"><Allowed> YES</Allowed></Tune>
    <Tune polarity="pos" source="APCI"><Allowed>NO</Allowed></Tune><Tune polarity="neg" source="APCI"/>
    <Tune polarity="pos" source="O'Neil"><Allowed>YES</Allowed></Tune>
  </Mode>
</QTOFTuneParams>
)";
const std::string preferences = "<TunePreferences><AbortFlag>0</AbortFlag></TunePreferences>";

const std::string parameter_path = "/base/TuneParams.xml", preference_path = "/base/TunePreferences.xml";
const std::string reader = "AutotuneParameterXMLConfigFileReader|";
const std::string unavailable = "-901|" + reader + "TunePreferences XML file doesn't exist";

class Stores : public ::testing::Test {
protected:
    Stores() {
        world.tracers->record->on = true;
        world.disk->put(parameter_path, parameters);
        world.disk->put(preference_path, preferences);
        world.disk->before_operation = [this](const std::string& name) {
            if (name == failing && failures-- > 0) throw FileError(FileErrorKind::sharing_violation, 16, "in use");
        };
    }
    clsTuneParamsXML params() const { return clsTuneParamsXML(world.platform()); }
    clsTunePrefsXML prefs() const { return clsTunePrefsXML(world.platform()); }
    /// The next operations of that name fail.
    void fail(const std::string& operation, int times) {
        failing = operation;
        failures = times;
        world.clock->sleeps = 0;
    }
    /// The trace since the last call; without entries and exits.
    std::string trace(const std::string& left_out = "") const {
        std::string text;
        for (const std::string& line : std::exchange(world.tracers->record->lines, {}))
            if (left_out.find(line[0]) == std::string::npos) text += line + "\n";
        return text;
    }
    std::string printed() const { return trace("<>"); }

    MemoryPlatform world;
    std::string failing;
    int failures = 0;
};

TEST_F(Stores, EveryFailureHasItsNumberSourceTextAndTraceLine) {
    const std::string tof = "/QTOFTuneParams/TOF", autotune = tof + "/AutotuneParameters/";
    const std::string query_failed = "-905|GetTuneParamByXMLPath|XML Query failed for ";
    const std::string item = "-904|" + reader + "Item[", not_found = "] not found in Tune XML config file";
    const std::string tune = "/QTOFTuneParams/Mode/Tune[@polarity=\"neg\" and @source=\"APCI\"]";
    const std::string no_number = "13|Korvane|Type mismatch: [", no_root = "ChosenTunePreferencesRootNode is nothing";
    clsTuneParamsXML store = params();
    const auto by_path = [&](auto path, auto name) { return [=, &store] { store.GetTuneParamByXMLPath(path, name); }; };
    const auto limit = [&](auto group, auto name) { return [=, &store] { store.GetAutotuneLimitValue(group, name); }; };
    const auto manual = [&](auto group, auto name) { return [=, &store] { store.GetManualTuneValue(group, name); }; };
    const auto write = [&](auto group, auto name, auto... tree) {
        return [=, &store] { store.WriteTuneParamValue(group, name, "1", tree...); };
    };
    const auto get = [this](auto name) { return [=, this] { prefs().GetTunePreference(name); }; };
    const auto put = [this](auto name) { return [=, this] { prefs().WriteTunePreference(name, "1"); }; };
    const std::string leaf = item + "Calibration\\", at_path = not_found + " at path[",
                      of_file = " of " + parameter_path;
    const std::tuple<std::function<void()>, std::string, std::string> rows[] = {
        {by_path(tof + "/No", "A"), "A", query_failed + tof + "/No, A"},
        {by_path(tof, "B"), "B", item + "B" + at_path + tof + "]"},
        {limit("No", "A"), "A", query_failed + autotune + "No, A"},
        {limit("Calibration", "B"), "B", leaf + "B" + not_found},
        {limit("Calibration", "Text"), "Text", no_number + "1,5x] (Item[Text]" + of_file + ")"},
        {limit("Calibration", "Empty"), "Empty", no_number + "] (Item[Empty]" + of_file + ")"},
        {manual("Misc", "M"), "M", "-906||"},
        {manual("calibration", "M"), "M", "-906||"},
        {manual("Calibration", "B"), "B", leaf + "B" + not_found},
        {write("Other", "A"), "A", "-906||"},
        {write("Misc", "A", "No"), "A", query_failed + autotune + "Misc, A, 1"},
        {write("Misc", "B"), "B", item + "Misc\\B" + not_found},
        {[&] { store.IsThisSourceSupportedForAutotuning("neg", "APCI"); }, "Allowed",
         item + "Allowed" + at_path + tune + "]"},
        {get("No"), "No", item + "No" + not_found},
        {put("No"), "No", item + "No" + not_found},
        // What is no step of a path is no name of an element either; a path is a query.
        {limit("Calibration", "160cm"), "160cm", leaf + "160cm" + not_found},
        {limit("Calibration", "my pref"), "my pref", leaf + "my pref" + not_found},
        {limit("Calibration", "a'b"), "a'b", leaf + "a'b" + not_found},
        {limit("Calibration", "count(.)"), "count(.)", leaf + "count(.)" + not_found},
        {limit("Calibration", ""), "", leaf + not_found}};
    for (const auto& [call, element, error] : rows) {
        EXPECT_EQ(raised(call), error);
        const std::string traced = trace(),
                          name = traced.substr(traced.rfind("< ") + 2, traced.size() - traced.rfind("< ") - 3);
        const std::string line = name + ": " + name + ": error[" + error.substr(0, error.find('|')) + ", " +
                                 error.substr(error.rfind('|') + 1) +
                                 (name[0] == 'W' ? "] writing" : "] querying for") + " element[" + element + "]";
        EXPECT_TRUE(traced.ends_with(line + "\n< " + name + "\n")) << line;
    }
    EXPECT_EQ(world.disk->content(parameter_path), parameters);
    EXPECT_EQ(world.disk->content(preference_path), preferences);
    EXPECT_EQ(raised([&] { store.GetAutoParm("Calibration", 12); }), item + "Calibration\\12" + not_found);
    EXPECT_TRUE(raised(by_path("/a b", "A")).starts_with("-2147467259|XPath|Query[/a b]"));
    world.disk->put(preference_path, "<Other><AbortFlag>0</AbortFlag></Other>");
    EXPECT_EQ(raised(get("AbortFlag")), "-905|" + reader + no_root);
    EXPECT_EQ(raised(put("AbortFlag")), "-905|" + reader + no_root);
}

TEST_F(Stores, EveryWayOfNotOpeningIsOneErrorForEveryMember) {
    std::string deep = "<QTOFTuneParams>";
    for (int level = 0; level < 9000; ++level) deep += "<TOF>";
    const std::pair<std::string, int> contents[] = {{"", 203},
                                                    {"<TunePreferences>", 203},
                                                    {"<a/><b/>", 209},
                                                    {"<a>&<b></a>", 204},
                                                    {"<a>1&#0;</a>", 214},
                                                    {deep, 105},
                                                    {"gone", -2}};
    for (const auto& [text, code] : contents) {
        for (const std::string& path : {parameter_path, preference_path}) {
            world.disk->put(path, text);
            if (text == "gone") world.disk->remove(path);
        }
        clsTunePrefsXML store = prefs();
        AbortHelper abort(world.platform());
        const std::function<void()> calls[] = {
            [&] { store.GetTunePreference("AbortFlag"); }, [&] { store.WriteTunePreference("AbortFlag", "1"); },
            [&] { abort.UserHasClickedAbort(); }, [&] { abort.TriggerAbort(); }, [&] { abort.Reset(); }};
        for (const auto& call : calls) EXPECT_EQ(raised(call), unavailable) << text.substr(0, 50);
        const std::string failed = "-904|" + reader + "TuneParamsXML: Failed to load XML file: " + parameter_path +
                                   "; parseError[" + std::to_string(code) + "]";
        EXPECT_EQ(raised([&] { params().GetAutotuneLimitValue("Calibration", "A"); }), failed);
        EXPECT_EQ(raised([&] { params().WriteTuneParamValue("Calibration", "A", "1"); }), failed);
        if (text == "gone") continue;
        EXPECT_EQ(world.disk->content(preference_path), text);
        EXPECT_EQ(world.disk->content(parameter_path), text);
    }
}

TEST_F(Stores, LoadIsTriedThreeTimesAndThenLeavesAnEmptyDocument) {
    const double before = world.clock->total_seconds();
    for (int times = 0; times < 3; ++times) {
        fail("read", times);
        EXPECT_EQ(params().GetAutotuneLimitValue("Calibration", "A"), 1.5) << times;
        EXPECT_EQ(world.clock->sleeps, times);
    }
    EXPECT_NEAR(world.clock->total_seconds() - before, 0.6, 1e-6);
    trace();
    clsTuneParamsXML store = params();
    fail("read", 3);
    EXPECT_NE(raised([&] { store.GetManualTuneValue("Calibration", "M", true); }), "no error");
    EXPECT_EQ(raised([&] { store.GetManualTuneValue("Calibration", "M"); }),
              "-905|TuneParams.GetManualTuneValue|ChosenRootNode is nothing");
    EXPECT_EQ(store.GetManualTuneValue("Calibration", "M", true), 2);
    fail("read", 3);
    EXPECT_EQ(raised([&] { prefs().GetTunePreference("AbortFlag"); }), unavailable);
    EXPECT_EQ(printed(), R"(OpenTuneParamsXML: XML load failed; parseError[-16]
OpenTuneParamsXML: XML load failed; parseError[-16]
OpenTuneParamsXML: TuneParamXML: Failed to load XML: /base/TuneParams.xml; parseError[-16]
GetManualTuneValue: GetManualTuneValue: error[-904, TuneParamsXML: Failed to load XML file: /base/TuneParams.xml; parseError[-16]] querying for element[M]
GetManualTuneValue: GetManualTuneValue: error[-905, ChosenRootNode is nothing] querying for element[M]
OpenTunePrefsXML: XML load failed; parseError[-16]
OpenTunePrefsXML: XML load failed; parseError[-16]
OpenTunePrefsXML: TunePrefsXML: Failed to load XML: /base/TunePreferences.xml; parseError[-16]
OpenTunePrefsXML: OpenTunePrefsXML: error[-904, TunePrefsXML: Failed to load XML file: /base/TunePreferences.xml; parseError[-16]] opening Tune Prefs XML
GetTunePreference: GetTunePreference: error[-901, TunePreferences XML file doesn't exist] querying for element[AbortFlag]
)");
}

TEST_F(Stores, SaveIsTriedThreeTimesClearsReadOnlyAndReportsWithTheLoadTexts) {
    std::string saved = parameters;
    for (const std::string group : {"gainParams", "checkAbundParams", "resolutionParams", "RampParams", "PeakHandling",
                                    "Misc", "IndexedSlicer", "SetpointUI"}) {
        const int times = static_cast<int>(group.size()) % 3;
        fail("replace", times);
        world.disk->put(parameter_path, saved, true);
        params().WriteTuneParamValue(group, "A", "007.50");
        EXPECT_NE(trace().find("WriteTuneParamValue: XML file was set read-only; removing read-only attribute\n"),
                  std::string::npos);
        saved.replace(saved.find("<" + group + "><A>0<") + group.size() + 5, 1, "007.50");
        EXPECT_EQ(world.disk->content(parameter_path), saved) << group;
        EXPECT_FALSE(world.disk->status(parameter_path).read_only);
        EXPECT_EQ(world.clock->sleeps, times);
    }
    params().WriteTuneParamValue("Misc", "M", "6", "ManualTuneParameters");
    EXPECT_EQ(params().GetTuneParamByXMLPath("/QTOFTuneParams/TOF/ManualTuneParameters/Misc", "M"), 6);
    world.disk->put(preference_path, preferences, true);
    trace();
    fail("replace", 2);
    prefs().WriteTunePreference("AbortFlag", "7");
    fail("replace", 3);
    EXPECT_EQ(raised([&] { params().WriteTuneParamValue("Calibration", "A", "99"); }),
              "-904|" + reader + "TuneParamsXML: Failed to load XML file: " + parameter_path + "; parseError[0]");
    fail("replace", 3);
    EXPECT_EQ(raised([&] { prefs().WriteTunePreference("AbortFlag", "8"); }),
              "-904|" + reader + "TunePrefsXML: Failed to load XML file: " + preference_path + "; parseError[0]");
    EXPECT_EQ(printed(), R"(WriteTunePreference: XML load failed; parseError[0]
WriteTunePreference: XML load failed; parseError[0]
WriteTuneParamValue: XML load failed; parseError[0]
WriteTuneParamValue: XML load failed; parseError[0]
WriteTuneParamValue: TuneParamsXML: Failed to load XML: /base/TuneParams.xml; parseError[0]
WriteTuneParamValue: WriteTuneParamValue: error[-904, TuneParamsXML: Failed to load XML file: /base/TuneParams.xml; parseError[0]] writing element[A]
WriteTunePreference: XML load failed; parseError[0]
WriteTunePreference: XML load failed; parseError[0]
WriteTunePreference: TunePrefsXML: Failed to load XML: /base/TunePreferences.xml; parseError[0]
WriteTunePreference: WriteTunePreference: error[-904, TunePrefsXML: Failed to load XML file: /base/TunePreferences.xml; parseError[0]] writing element[AbortFlag]
)");
    EXPECT_EQ(prefs().GetTunePreference("AbortFlag"), "7");
    // An attribute that cannot be cleared is told as it is, at once.
    world.disk->put(parameter_path, parameters, true);
    fail("clear read-only", 1);
    EXPECT_EQ(raised([&] { params().WriteTuneParamValue("Calibration", "A", "99"); }), "70|Korvane|in use");
    EXPECT_EQ(printed().substr(0, 88),
              "WriteTuneParamValue: XML file was set read-only; removing read-only attribute\nWriteTuneP");
    EXPECT_EQ(world.clock->sleeps, 0);
}

TEST_F(Stores, EditsHoldTheLockFromLoadToSaveAndGoOnWithoutItAfterASecond) {
    std::string operations;
    world.disk->before_operation = [&](const std::string& name) { operations += name + ' '; };
    prefs().WriteTunePreference("AbortFlag", "1");
    EXPECT_TRUE(operations.starts_with("resolve lock lock read status ")) << operations;
    world.disk->is_locked = true;
    const double before = world.clock->total_seconds();
    EXPECT_TRUE(AbortHelper(world.platform()).UserHasClickedAbort());
    EXPECT_EQ(world.clock->total_seconds(), before);
    trace();
    params().WriteTuneParamValue("Calibration", "A", "2");
    EXPECT_NEAR(world.clock->total_seconds() - before, 1, 0.1);
    EXPECT_EQ(printed(), "OpenTuneParamsXML: Edit without lock of /base/TuneParams.xml\n");
    EXPECT_EQ(params().GetAutotuneLimitValue("Calibration", "A"), 2);
}

TEST_F(Stores, ErrorsWithAFixedTextCarryTheirCause) {
    fail("replace", 3);
    EXPECT_EQ(error_of([&] { params().WriteTuneParamValue("Calibration", "A", "2"); }).cause(), "in use");
    world.disk->put(preference_path, "<a>\n<b></a>");
    EXPECT_EQ(error_of([&] { prefs().GetTunePreference("A"); }).cause(), "mismatched tag (line 2)");
}

TEST_F(Stores, PathsSelectWhatAQueryDoesTheRootAndAttributesIncluded) {
    world.disk->put(parameter_path,
                    "<QTOFTuneParams xmlns='urn:x'><TOF n='7'><AutotuneParameters><Misc n='8'><A>9</A>"
                    "</Misc></AutotuneParameters></TOF></QTOFTuneParams>");
    std::string values;
    for (const auto& [path, name] : {std::pair("/", "QTOFTuneParams/TOF/@n"),
                                     {"//Misc", "@n"},
                                     {"//Misc", "../../@n"},
                                     {"/", "QTOFTuneParams"},
                                     {"//A", "text()"},
                                     {"//Misc", "/QTOFTuneParams/*/*/*/A"}})
        values += std::to_string(static_cast<int>(params().GetTuneParamByXMLPath(path, name)));
    EXPECT_EQ(values, "787999");
    EXPECT_EQ(raised([&] { params().GetTuneParamByXMLPath("//Misc/@n", "A"); }),
              "-904|" + reader + "Item[A] not found in Tune XML config file at path[//Misc/@n]");
    EXPECT_EQ(raised([&] { params().WriteTuneParamValue("Misc", "@n", "1"); }),
              "5|Korvane|Invalid procedure call or argument: what to edit is no element of this document");
}

TEST_F(Stores, ReadKeepsItsCopyUntilAReloadAndAWriteEditsTheFileOfNow) {
    clsTuneParamsXML first = params();
    EXPECT_EQ(first.GetAutotuneLimitValue("Calibration", "A"), 1.5);
    EXPECT_TRUE(
        trace().ends_with("GetAutotuneLimitValue: Seeking Node[/QTOFTuneParams/TOF/AutotuneParameters/Calibration]\n"
                          "< GetAutotuneLimitValue\n"));
    params().WriteTuneParamValue("Calibration", "A", "2.5");
    EXPECT_EQ(first.GetAutotuneLimitValue("Calibration", "A"), 1.5);
    first.WriteTuneParamValue("Misc", "A", "9");
    EXPECT_EQ(params().GetAutotuneLimitValue("Calibration", "A"), 2.5) << "the other's write is lost";
    EXPECT_EQ(first.GetAutotuneLimitValue("Calibration", "A"), 2.5);
    std::string supported;
    for (const auto& [polarity, source] :
         {std::pair("pos", "ESI"), {"pos", "O'Neil"}, {"neg", "ESI"}, {"pos", "APCI"}, {"Pos", "ESI"}})
        supported += first.IsThisSourceSupportedForAutotuning(polarity, source) ? '+' : '-';
    EXPECT_EQ(supported, "++---");
    EXPECT_NE(raised([&] { first.IsThisSourceSupportedForAutotuning("pos", "a\"b"); }), "no error");
    world.disk->put(parameter_path, "<QTOFTuneParams/>");
    EXPECT_FALSE(first.IsThisSourceSupportedForAutotuning("pos", "ESI"));
}

TEST_F(Stores, AnyFlagTextButZeroIsAnAbortSeenByAnotherHelper) {
    if (join_path("/base", "x") == "/base/x") world.layer->state->base_folder = "/base";  // no separator at its end
    AbortHelper interface(world.platform()), loop(world.platform());
    EXPECT_FALSE(loop.UserHasClickedAbort());
    interface.TriggerAbort();
    EXPECT_TRUE(loop.UserHasClickedAbort());
    interface.Reset();
    const auto poll = [](const std::string& text) {
        return "> UserHasClickedAbort\n> GetTunePreference\n> OpenTunePrefsXML\n< OpenTunePrefsXML\n"
               "< GetTunePreference\nUserHasClickedAbort: " +
               text + "\n< UserHasClickedAbort\n";
    };
    const std::string write = "> WriteTunePreference\n> OpenTunePrefsXML\n< OpenTunePrefsXML\n< WriteTunePreference\n";
    EXPECT_EQ(trace(), poll("Abort value is set to 0") + "> TriggerAbort\n" + write + "< TriggerAbort\n" +
                           poll("Process Aborted by XML flag") + write);
    const auto flag = [this](const std::string& text) {
        world.disk->put(preference_path, "<TunePreferences>" + text + "</TunePreferences>");
    };
    // All that is text counts, blanks beside a comment too; comments and the spelling of the digit do not.
    for (const std::string text : {"1", "1 ", " 0", "0 ", "", "00", "no", " <!-- x -->0", "0<!-- x --> ",
                                   "<![CDATA[0]]> ", "<![CDATA[ 0]]>", "\n<?p?>0", "<b/> 0"}) {
        flag("<AbortFlag>" + text + "</AbortFlag>");
        EXPECT_TRUE(loop.UserHasClickedAbort()) << "[" << text << "]";
    }
    for (const std::string text : {"0", "<!-- x -->0", "<![CDATA[0]]>", "&#48;<!-- x -->", "<b/>0"}) {
        flag("<AbortFlag>" + text + "</AbortFlag>");
        EXPECT_FALSE(loop.UserHasClickedAbort()) << "[" << text << "]";
    }
    flag("");
    EXPECT_EQ(raised([&] { loop.UserHasClickedAbort(); }),
              "-904|" + reader + "Item[AbortFlag] not found in Tune XML config file");
    EXPECT_TRUE(
        trace().ends_with("UserHasClickedAbort: Error[-904]: Item[AbortFlag] not found in Tune XML config file\n"
                          "< UserHasClickedAbort\n"));
}

}  // namespace
}  // namespace korvane
