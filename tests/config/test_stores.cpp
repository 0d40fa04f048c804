// The parameter store, the preference store and the abort flag.
#include <gtest/gtest.h>

#include <functional>

#include "korvane/abort_helper.h"
#include "korvane/forwarding.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "platform/files.h"
#include "support/memory_platform.h"
#include "support/raised.h"

namespace korvane {
namespace {

/// Fails a given number of times.
class FailingFiles final : public ForwardingFiles {
public:
    using ForwardingFiles::ForwardingFiles;

    void read(const std::string& path, std::string& bytes) override {
        fail_if_any(failing_reads);
        ForwardingFiles::read(path, bytes);
    }
    void replace(const std::string& from, const std::string& to) override {
        fail_if_any(failing_saves);
        ForwardingFiles::replace(from, to);
    }

    int failing_reads = 0;
    int failing_saves = 0;

private:
    static void fail_if_any(int& left) {
        if (left-- > 0) throw FileError(FileErrorKind::sharing_violation, 16, "in use");
        left = 0;
    }
};

const std::string parameters = R"(<?xml version="1.0"?>
<QTOFTuneParams>
  <TOF>
    <AutotuneParameters>
      <Calibration><A>1.5</A><Text>1,5x</Text><Empty/></Calibration>
      <gainParams><A>0</A></gainParams><checkAbundParams><A>0</A></checkAbundParams>
      <resolutionParams><A>0</A></resolutionParams><RampParams><A>0</A></RampParams>
      <PeakHandling><A>0</A></PeakHandling><Misc><A>0</A></Misc>
      <IndexedSlicer><A>0</A></IndexedSlicer><SetpointUI><A>0</A></SetpointUI>
      <Other><A>0</A></Other>
    </AutotuneParameters>
    <ManualTuneParameters>
      <Calibration><M>2</M></Calibration><IndexedSlicer><M>3</M></IndexedSlicer><SetpointUI><M>4</M></SetpointUI>
      <Misc><M>5</M></Misc>
    </ManualTuneParameters>
  </TOF>
  <Mode>
    <Tune polarity="pos" source="ESI"><Allowed>yEs</Allowed></Tune>
    <Tune polarity="neg" source="ESI"><Allowed> YES</Allowed></Tune>
    <Tune polarity="pos" source="APCI"><Allowed>NO</Allowed></Tune>
    <Tune polarity="neg" source="APCI"/>
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
    }
    Platform platform() const {
        Platform platform = world.platform();
        platform.files = files;
        return platform;
    }
    clsTuneParamsXML params() const { return clsTuneParamsXML(platform()); }
    clsTunePrefsXML prefs() const { return clsTunePrefsXML(platform()); }
    void flag(const std::string& text) const {
        world.disk->put(preference_path, "<TunePreferences>" + text + "</TunePreferences>");
    }
    /// The trace since the last call.
    std::string trace() const {
        std::string text;
        for (const std::string& line : world.tracers->record->lines) text += line + "\n";
        world.tracers->record->lines.clear();
        return text;
    }

    MemoryPlatform world;
    std::shared_ptr<FailingFiles> files = std::make_shared<FailingFiles>(world.disk);
};

TEST_F(Stores, EveryFailureHasItsNumberSourceTextAndTraceLine) {
    const std::string tof = "/QTOFTuneParams/TOF", autotune = tof + "/AutotuneParameters/";
    const std::string query_failed = "-905|GetTuneParamByXMLPath|XML Query failed for ";
    const std::string item = "-904|" + reader + "Item[", not_found = "] not found in Tune XML config file";
    const std::string tune = "/QTOFTuneParams/Mode/Tune[@polarity=\"neg\" and @source=\"APCI\"]";
    const auto no_number = [](const std::string& text, const std::string& name) {
        return "13|Korvane|Type mismatch: [" + text + "] (Item[" + name + "] of " + parameter_path + ")";
    };
    struct Row {
        const char* routine;
        const char* element;
        std::function<void()> call;
        std::string error;
    };
    const char *const by_path = "GetTuneParamByXMLPath", *const limit = "GetAutotuneLimitValue";
    const char *const manual = "GetManualTuneValue", *const write = "WriteTuneParamValue";
    const char *const get = "GetTunePreference", *const put = "WriteTunePreference";
    const Row rows[] = {
        {by_path, "A", [&] { params().GetTuneParamByXMLPath(tof + "/No", "A"); }, query_failed + tof + "/No, A"},
        {by_path, "B", [&] { params().GetTuneParamByXMLPath(tof, "B"); },
         item + "B" + not_found + " at path[" + tof + "]"},
        {limit, "A", [&] { params().GetAutotuneLimitValue("No", "A"); }, query_failed + autotune + "No, A"},
        {limit, "B", [&] { params().GetAutotuneLimitValue("Calibration", "B"); }, item + "Calibration\\B" + not_found},
        {limit, "Text", [&] { params().GetAutotuneLimitValue("Calibration", "Text"); }, no_number("1,5x", "Text")},
        {limit, "Empty", [&] { params().GetAutotuneLimitValue("Calibration", "Empty"); }, no_number("", "Empty")},
        {manual, "M", [&] { params().GetManualTuneValue("Misc", "M"); }, "-906||"},
        {manual, "M", [&] { params().GetManualTuneValue("calibration", "M"); }, "-906||"},
        {manual, "B", [&] { params().GetManualTuneValue("Calibration", "B"); }, item + "Calibration\\B" + not_found},
        {write, "A", [&] { params().WriteTuneParamValue("Other", "A", "1"); }, "-906||"},
        {write, "A", [&] { params().WriteTuneParamValue("Misc", "A", "1", "No"); },
         query_failed + autotune + "Misc, A, 1"},
        {write, "B", [&] { params().WriteTuneParamValue("Misc", "B", "1"); }, item + "Misc\\B" + not_found},
        {"IsThisSourceSupportedForAutotuning", "Allowed",
         [&] { params().IsThisSourceSupportedForAutotuning("neg", "APCI"); },
         item + "Allowed" + not_found + " at path[" + tune + "]"},
        {get, "No", [&] { prefs().GetTunePreference("No"); }, item + "No" + not_found},
        {put, "No", [&] { prefs().WriteTunePreference("No", "1"); }, item + "No" + not_found},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(raised(row.call), row.error);
        const std::string description = row.error.substr(row.error.rfind('|') + 1);
        const bool writes = row.routine == write || row.routine == put;
        const std::string line = std::string(row.routine) + ": error[" + row.error.substr(0, row.error.find('|')) +
                                 ", " + description + (writes ? "] writing" : "] querying for") + " element[" +
                                 row.element + "]";
        EXPECT_TRUE(trace().ends_with(std::string(row.routine) + ": " + line + "\n< " + row.routine + "\n")) << line;
    }
    EXPECT_EQ(world.disk->content(parameter_path), parameters);
    EXPECT_EQ(world.disk->content(preference_path), preferences);
    // A number as an element's name goes through the query engine.
    EXPECT_TRUE(raised([&] { params().GetAutoParm("Calibration", 12); }).starts_with("-2147467259|XPath|Query["));
    EXPECT_NE(trace().find("GetAutotuneLimitValue: GetAutotuneLimitValue: error[-2147467259, Query"),
              std::string::npos);
    world.disk->put(parameter_path, "<QTOFTuneParams/>");
    EXPECT_EQ(raised([&] { params().GetManualTuneValue("Calibration", "M"); }),
              "-905|TuneParams.GetManualTuneValue|ChosenRootNode is nothing");
    world.disk->put(preference_path, "<Other><AbortFlag>0</AbortFlag></Other>");
    for (const std::function<void()>& call : {rows[13].call, rows[14].call})
        EXPECT_EQ(raised(call), "-905|" + reader + "ChosenTunePreferencesRootNode is nothing");
}

TEST_F(Stores, EveryWayOfNotOpeningIsOneErrorForEveryMember) {
    std::string deep = "<QTOFTuneParams>";
    for (int level = 0; level < 9000; ++level) deep += "<TOF>";
    const std::pair<std::string, int> malformed[] = {
        {"", 203},  {"<TunePreferences>", 203}, {"<a/><b/>", 209}, {"<a>&<b></a>", 204}, {"<a>1&#0;</a>", 214},
        {deep, 105}};
    for (const auto& [text, code] : malformed) {
        world.disk->put(preference_path, text);
        world.disk->put(parameter_path, text);
        clsTunePrefsXML store(platform());
        AbortHelper abort(platform());
        const std::function<void()> calls[] = {
            [&] { store.GetTunePreference("AbortFlag"); }, [&] { store.WriteTunePreference("AbortFlag", "1"); },
            [&] { abort.UserHasClickedAbort(); }, [&] { abort.TriggerAbort(); }, [&] { abort.Reset(); }};
        for (const auto& call : calls) EXPECT_EQ(raised(call), unavailable) << text.substr(0, 50);
        const std::string failed = "-904|" + reader + "TuneParamsXML: Failed to load XML file: " + parameter_path +
                                   "; parseError[" + std::to_string(code) + "]";
        EXPECT_EQ(raised([&] { params().GetAutotuneLimitValue("Calibration", "A"); }), failed);
        EXPECT_EQ(raised([&] { params().WriteTuneParamValue("Calibration", "A", "1"); }), failed);
        EXPECT_EQ(world.disk->content(preference_path), text);
        EXPECT_EQ(world.disk->content(parameter_path), text);
    }
    world.disk->remove(preference_path);
    EXPECT_EQ(raised([&] { prefs().GetTunePreference("AbortFlag"); }), unavailable);
}

TEST_F(Stores, LoadIsTriedThreeTimesAndThenLeavesAnEmptyDocument) {
    for (int failures = 0; failures < 3; ++failures) {
        world.clock->sleeps = 0;
        const double before = world.clock->total_seconds();
        files->failing_reads = failures;
        EXPECT_EQ(params().GetAutotuneLimitValue("Calibration", "A"), 1.5) << failures;
        EXPECT_EQ(world.clock->sleeps, failures);
        EXPECT_NEAR(world.clock->total_seconds() - before, 0.2 * failures, 1e-6);
    }
    trace();
    clsTuneParamsXML store = params();
    EXPECT_EQ(store.GetManualTuneValue("Calibration", "M"), 2);
    files->failing_reads = 3;
    EXPECT_NE(raised([&] { store.GetManualTuneValue("Calibration", "M", true); }), "no error");
    EXPECT_EQ(raised([&] { store.GetManualTuneValue("Calibration", "M"); }),
              "-905|TuneParams.GetManualTuneValue|ChosenRootNode is nothing");
    EXPECT_EQ(store.GetManualTuneValue("Calibration", "M", true), 2);
    files->failing_reads = 3;
    EXPECT_EQ(raised([&] { prefs().GetTunePreference("AbortFlag"); }), unavailable);
    EXPECT_EQ(trace(), R"(> GetManualTuneValue
> OpenTuneParamsXML
< OpenTuneParamsXML
< GetManualTuneValue
> GetManualTuneValue
> OpenTuneParamsXML
OpenTuneParamsXML: XML load failed; parseError[-16]
OpenTuneParamsXML: XML load failed; parseError[-16]
OpenTuneParamsXML: TuneParamXML: Failed to load XML: /base/TuneParams.xml; parseError[-16]
< OpenTuneParamsXML
GetManualTuneValue: GetManualTuneValue: error[-904, TuneParamsXML: Failed to load XML file: /base/TuneParams.xml; parseError[-16]] querying for element[M]
< GetManualTuneValue
> GetManualTuneValue
GetManualTuneValue: GetManualTuneValue: error[-905, ChosenRootNode is nothing] querying for element[M]
< GetManualTuneValue
> GetManualTuneValue
> OpenTuneParamsXML
< OpenTuneParamsXML
< GetManualTuneValue
> GetTunePreference
> OpenTunePrefsXML
OpenTunePrefsXML: XML load failed; parseError[-16]
OpenTunePrefsXML: XML load failed; parseError[-16]
OpenTunePrefsXML: TunePrefsXML: Failed to load XML: /base/TunePreferences.xml; parseError[-16]
OpenTunePrefsXML: OpenTunePrefsXML: error[-904, TunePrefsXML: Failed to load XML file: /base/TunePreferences.xml; parseError[-16]] opening Tune Prefs XML
< OpenTunePrefsXML
GetTunePreference: GetTunePreference: error[-901, TunePreferences XML file doesn't exist] querying for element[AbortFlag]
< GetTunePreference
)");
}

TEST_F(Stores, SaveIsTriedThreeTimesClearsReadOnlyAndReportsWithTheLoadTexts) {
    std::string saved = parameters;
    for (const std::string group : {"gainParams", "checkAbundParams", "resolutionParams", "RampParams", "PeakHandling",
                                    "Misc", "IndexedSlicer", "SetpointUI"}) {
        world.clock->sleeps = 0;
        files->failing_saves = static_cast<int>(group.size()) % 3;
        const int failures = files->failing_saves;
        world.disk->put(parameter_path, saved, true);
        params().WriteTuneParamValue(group, "A", "007.50");
        EXPECT_NE(trace().find("WriteTuneParamValue: XML file was set read-only; removing read-only attribute\n"),
                  std::string::npos);
        saved.replace(saved.find("<" + group + "><A>0<") + group.size() + 5, 1, "007.50");
        EXPECT_EQ(world.disk->content(parameter_path), saved) << group;
        EXPECT_FALSE(world.disk->status(parameter_path).read_only);
        EXPECT_EQ(world.clock->sleeps, failures);
    }
    params().WriteTuneParamValue("Misc", "M", "6", "ManualTuneParameters");
    EXPECT_EQ(params().GetTuneParamByXMLPath("/QTOFTuneParams/TOF/ManualTuneParameters/Misc", "M"), 6);
    world.disk->put(preference_path, preferences, true);
    trace();
    files->failing_saves = 2;
    prefs().WriteTunePreference("AbortFlag", "7");
    EXPECT_EQ(prefs().GetTunePreference("AbortFlag"), "7");
    files->failing_saves = 3;
    EXPECT_EQ(raised([&] { params().WriteTuneParamValue("Calibration", "A", "99"); }),
              "-904|" + reader + "TuneParamsXML: Failed to load XML file: " + parameter_path + "; parseError[0]");
    files->failing_saves = 3;
    EXPECT_EQ(raised([&] { prefs().WriteTunePreference("AbortFlag", "8"); }),
              "-904|" + reader + "TunePrefsXML: Failed to load XML file: " + preference_path + "; parseError[0]");
    EXPECT_EQ(trace(), R"(> WriteTunePreference
> OpenTunePrefsXML
< OpenTunePrefsXML
WriteTunePreference: XML load failed; parseError[0]
WriteTunePreference: XML load failed; parseError[0]
< WriteTunePreference
> GetTunePreference
> OpenTunePrefsXML
< OpenTunePrefsXML
< GetTunePreference
> WriteTuneParamValue
> OpenTuneParamsXML
< OpenTuneParamsXML
WriteTuneParamValue: XML load failed; parseError[0]
WriteTuneParamValue: XML load failed; parseError[0]
WriteTuneParamValue: TuneParamsXML: Failed to load XML: /base/TuneParams.xml; parseError[0]
WriteTuneParamValue: WriteTuneParamValue: error[-904, TuneParamsXML: Failed to load XML file: /base/TuneParams.xml; parseError[0]] writing element[A]
< WriteTuneParamValue
> WriteTunePreference
> OpenTunePrefsXML
< OpenTunePrefsXML
WriteTunePreference: XML load failed; parseError[0]
WriteTunePreference: XML load failed; parseError[0]
WriteTunePreference: TunePrefsXML: Failed to load XML: /base/TunePreferences.xml; parseError[0]
WriteTunePreference: WriteTunePreference: error[-904, TunePrefsXML: Failed to load XML file: /base/TunePreferences.xml; parseError[0]] writing element[AbortFlag]
< WriteTunePreference
)");
    EXPECT_EQ(prefs().GetTunePreference("AbortFlag"), "7");
}

TEST_F(Stores, ReadKeepsItsCopyUntilAReloadAndAWriteEditsTheFileOfNow) {
    clsTuneParamsXML first = params(), second = params();
    EXPECT_EQ(first.GetAutotuneLimitValue("Calibration", "A"), 1.5);
    EXPECT_TRUE(
        trace().ends_with("GetAutotuneLimitValue: Seeking Node[/QTOFTuneParams/TOF/AutotuneParameters/Calibration]\n"
                          "< GetAutotuneLimitValue\n"));
    second.WriteTuneParamValue("Calibration", "A", "2.5");
    EXPECT_EQ(first.GetAutotuneLimitValue("Calibration", "A"), 1.5);
    first.WriteTuneParamValue("Misc", "A", "9");
    EXPECT_EQ(params().GetAutotuneLimitValue("Calibration", "A"), 2.5) << "the other's write is lost";
    EXPECT_EQ(first.GetAutotuneLimitValue("Calibration", "A"), 2.5);
    EXPECT_TRUE(first.IsThisSourceSupportedForAutotuning("pos", "ESI"));
    EXPECT_TRUE(first.IsThisSourceSupportedForAutotuning("pos", "O'Neil"));
    EXPECT_FALSE(first.IsThisSourceSupportedForAutotuning("neg", "ESI"));
    EXPECT_FALSE(first.IsThisSourceSupportedForAutotuning("pos", "APCI"));
    EXPECT_FALSE(first.IsThisSourceSupportedForAutotuning("Pos", "ESI"));
    EXPECT_NE(raised([&] { first.IsThisSourceSupportedForAutotuning("pos", "a\"b"); }), "no error");
    world.disk->put(parameter_path, "<QTOFTuneParams/>");
    EXPECT_FALSE(first.IsThisSourceSupportedForAutotuning("pos", "ESI"));
}

TEST_F(Stores, AnyFlagTextButZeroIsAnAbortSeenByAnotherHelper) {
    AbortHelper interface(platform()), loop(platform());
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
    for (const std::string text : {"0", "1", "1 ", " 0", "0 ", "", "00", "no"}) {
        flag("<AbortFlag>" + text + "</AbortFlag>");
        EXPECT_EQ(loop.UserHasClickedAbort(), text != "0") << "[" << text << "]";
    }
    flag("");
    EXPECT_EQ(raised([&] { loop.UserHasClickedAbort(); }),
              "-904|" + reader + "Item[AbortFlag] not found in Tune XML config file");
    EXPECT_TRUE(
        trace().ends_with("UserHasClickedAbort: Error[-904]: Item[AbortFlag] not found in Tune XML config file\n"
                          "< UserHasClickedAbort\n"));
    world.disk->put(join_path("/base", "TunePreferences.xml"), preferences);
    world.layer->state->base_folder = "/base";
    EXPECT_FALSE(AbortHelper(platform()).UserHasClickedAbort()) << "a folder without a separator at its end";
}

}  // namespace
}  // namespace korvane
