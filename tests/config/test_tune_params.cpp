#include <gtest/gtest.h>

#include <algorithm>

#include "config/store_files.h"
#include "korvane/tune_params_xml.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

using Lines = std::vector<std::string>;

const char* const parameters = R"(<?xml version="1.0"?>
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

class TuneParams : public ::testing::Test {
protected:
    TuneParams() {
        write_text(path(), parameters);
        failing = std::make_shared<FailingFiles>(test.files);
        test.files = failing;
    }
    std::string path() const { return (test.base() / "TuneParams.xml").string(); }
    clsTuneParamsXML store() const { return clsTuneParamsXML(test.platform()); }

    TestPlatform test;
    std::shared_ptr<FailingFiles> failing;
};

TEST_F(TuneParams, EveryFailureHasItsNumberSourceTextAndTraceLine) {
    struct Row {
        std::function<void(clsTuneParamsXML&)> call;
        std::string error, trace;
    };
    const std::string reader = "AutotuneParameterXMLConfigFileReader|";
    const std::string autotune = "/QTOFTuneParams/TOF/AutotuneParameters/";
    const Row rows[] = {
        {[](auto& s) { s.GetTuneParamByXMLPath("/QTOFTuneParams/No", "A"); },
         "-905|GetTuneParamByXMLPath|XML Query failed for /QTOFTuneParams/No, A",
         "GetTuneParamByXMLPath: GetTuneParamByXMLPath: error[-905, XML Query failed for /QTOFTuneParams/No, A] "
         "querying for element[A]"},
        {[](auto& s) { s.GetTuneParamByXMLPath("/QTOFTuneParams/TOF", "B"); },
         "-904|" + reader + "Item[B] not found in Tune XML config file at path[/QTOFTuneParams/TOF]", ""},
        {[](auto& s) { s.GetAutotuneLimitValue("No", "A"); },
         "-905|GetTuneParamByXMLPath|XML Query failed for " + autotune + "No, A",
         "GetAutotuneLimitValue: GetAutotuneLimitValue: error[-905, XML Query failed for " + autotune +
             "No, A] querying for element[A]"},
        {[](auto& s) { s.GetAutotuneLimitValue("Calibration", "B"); },
         "-904|" + reader + "Item[Calibration\\B] not found in Tune XML config file", ""},
        {[](auto& s) { s.GetManualTuneValue("Misc", "M"); }, "-906||",
         "GetManualTuneValue: GetManualTuneValue: error[-906, ] querying for element[M]"},
        {[](auto& s) { s.GetManualTuneValue("calibration", "M"); }, "-906||", ""},
        {[](auto& s) { s.GetManualTuneValue("Calibration", "B"); },
         "-904|" + reader + "Item[Calibration\\B] not found in Tune XML config file", ""},
        {[](auto& s) { s.WriteTuneParamValue("Other", "A", "1"); }, "-906||",
         "WriteTuneParamValue: WriteTuneParamValue: error[-906, ] writing element[A]"},
        {[](auto& s) { s.WriteTuneParamValue("Misc", "A", "1", "NoTree"); },
         "-905|GetTuneParamByXMLPath|XML Query failed for " + autotune + "Misc, A, 1", ""},
        {[](auto& s) { s.WriteTuneParamValue("Misc", "B", "1"); },
         "-904|" + reader + "Item[Misc\\B] not found in Tune XML config file", ""},
        {[](auto& s) { s.IsThisSourceSupportedForAutotuning("neg", "APCI"); },
         "-904|" + reader +
             "Item[Allowed] not found in Tune XML config file at "
             "path[/QTOFTuneParams/Mode/Tune[@polarity=\"neg\" and @source=\"APCI\"]]",
         ""},
    };
    for (const Row& row : rows) {
        test.trace().lines.clear();
        auto fresh = store();
        EXPECT_EQ(raised([&] { row.call(fresh); }), row.error);
        EXPECT_TRUE(row.trace.empty() || test.trace().contains(row.trace)) << row.trace;
    }
    EXPECT_EQ(read_text(path()), parameters);
}

TEST_F(TuneParams, MissingManualGroupAndLeafThatIsNoNumberNameTheirItem) {
    test.raw_parameters("");
    auto fresh = store();
    EXPECT_EQ(raised([&] { fresh.GetManualTuneValue("Calibration", "M"); }),
              "-905|TuneParams.GetManualTuneValue|ChosenRootNode is nothing");
    write_text(path(), parameters);
    for (const std::string name : {"Text", "Empty"}) {
        const std::string text = name == "Text" ? "1,5x" : "";
        EXPECT_EQ(raised([&] { fresh.GetAutotuneLimitValue("Calibration", name, true); }),
                  "13|Korvane|Type mismatch: [" + text + "] (Item[" + name + "] of " + path() + ")");
    }
}

TEST_F(TuneParams, NumberAsElementNameGoesThroughTheQueryEngine) {
    auto fresh = store();
    const std::string error = raised([&] { fresh.GetAutoParm("Calibration", 12); });
    EXPECT_EQ(error.substr(0, 24), "-2147467259|XPath|Query[") << error;
    const auto& lines = test.trace().lines;
    const std::string start = "GetAutotuneLimitValue: GetAutotuneLimitValue: error[-2147467259, Query";
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [&](const auto& l) { return l.starts_with(start); }), 1);
}

TEST_F(TuneParams, WholeTraceOfARead) {
    auto fresh = store();
    EXPECT_EQ(fresh.GetAutotuneLimitValue("Calibration", "A"), 1.5);
    EXPECT_EQ(fresh.GetManualTuneValue("IndexedSlicer", "M"), 3);
    EXPECT_EQ(test.trace().lines,
              (Lines{"> GetAutotuneLimitValue", "> OpenTuneParamsXML", "< OpenTuneParamsXML",
                     "GetAutotuneLimitValue: Seeking Node[/QTOFTuneParams/TOF/AutotuneParameters/Calibration]",
                     "< GetAutotuneLimitValue", "> GetManualTuneValue", "< GetManualTuneValue"}));
}

TEST_F(TuneParams, LoadIsTriedThreeTimesAndThenLeavesAnEmptyDocument) {
    for (int failures = 0; failures < 3; ++failures) {
        test.clock->sleeps = 0;
        failing->failing_reads = failures;
        const double before = test.clock->total_seconds();
        EXPECT_EQ(store().GetAutotuneLimitValue("Calibration", "A"), 1.5) << failures;
        EXPECT_EQ(test.clock->sleeps, failures);
        EXPECT_NEAR(test.clock->total_seconds() - before, 0.2 * failures, 1e-6);
    }
    test.trace().lines.clear();
    failing->failing_reads = 3;
    auto fresh = store();
    EXPECT_EQ(raised([&] { fresh.GetManualTuneValue("Calibration", "M"); }),
              "-904|AutotuneParameterXMLConfigFileReader|TuneParamsXML: Failed to load XML file: " + path() +
                  "; parseError[-16]");
    EXPECT_EQ(
        test.trace().lines,
        (Lines{"> GetManualTuneValue", "> OpenTuneParamsXML", "OpenTuneParamsXML: XML load failed; parseError[-16]",
               "OpenTuneParamsXML: XML load failed; parseError[-16]",
               "OpenTuneParamsXML: TuneParamXML: Failed to load XML: " + path() + "; parseError[-16]",
               "< OpenTuneParamsXML",
               "GetManualTuneValue: GetManualTuneValue: error[-904, TuneParamsXML: Failed to load XML file: " + path() +
                   "; parseError[-16]] querying for element[M]",
               "< GetManualTuneValue"}));
    EXPECT_EQ(raised([&] { fresh.GetManualTuneValue("Calibration", "M"); }),
              "-905|TuneParams.GetManualTuneValue|ChosenRootNode is nothing");
    EXPECT_EQ(fresh.GetManualTuneValue("Calibration", "M", true), 2);
}

TEST_F(TuneParams, NestingTooDeepIsALoadFailureWithItsCodeForReadsAndWrites) {
    std::string deep = "<QTOFTuneParams>";
    for (int level = 0; level < 9000; ++level) deep += "<TOF>";
    for (int level = 0; level < 9000; ++level) deep += "</TOF>";
    write_text(path(), deep += "</QTOFTuneParams>");
    auto fresh = store();
    const std::string expected =
        "-904|AutotuneParameterXMLConfigFileReader|TuneParamsXML: Failed to load XML file: " + path() +
        "; parseError[105]";
    EXPECT_EQ(raised([&] { fresh.GetAutotuneLimitValue("Calibration", "A"); }), expected);
    EXPECT_EQ(raised([&] { fresh.WriteTuneParamValue("Calibration", "A", "1"); }), expected);
    EXPECT_EQ(read_text(path()), deep);
}

TEST_F(TuneParams, SaveIsTriedThreeTimesAndReportsWithTheLoadTexts) {
    for (int failures = 0; failures < 3; ++failures) {
        failing->failing_saves = failures;
        test.clock->sleeps = 0;
        const std::string value = std::to_string(failures + 10);
        auto fresh = store();
        fresh.WriteTuneParamValue("Calibration", "A", value);
        EXPECT_EQ(test.clock->sleeps, failures);
        EXPECT_EQ(store().GetAutotuneLimitValue("Calibration", "A"), failures + 10);
    }
    const std::string saved = read_text(path());
    test.trace().lines.clear();
    failing->failing_saves = 3;
    auto fresh = store();
    EXPECT_EQ(raised([&] { fresh.WriteTuneParamValue("Calibration", "A", "99"); }),
              "-904|AutotuneParameterXMLConfigFileReader|TuneParamsXML: Failed to load XML file: " + path() +
                  "; parseError[0]");
    const std::string prefix = "WriteTuneParamValue: ";
    EXPECT_EQ(test.trace().lines,
              (Lines{"> WriteTuneParamValue", "> OpenTuneParamsXML", "< OpenTuneParamsXML",
                     prefix + "XML load failed; parseError[0]", prefix + "XML load failed; parseError[0]",
                     prefix + "TuneParamsXML: Failed to load XML: " + path() + "; parseError[0]",
                     prefix + "WriteTuneParamValue: error[-904, TuneParamsXML: Failed to load XML file: " + path() +
                         "; parseError[0]] writing element[A]",
                     "< WriteTuneParamValue"}));
    EXPECT_EQ(read_text(path()), saved);
}

TEST_F(TuneParams, WritesOneLeafOfEveryPermittedGroupIntoAReadOnlyFile) {
#ifdef _WIN32
    const std::filesystem::perms writable{0666};
#else
    const std::filesystem::perms writable{0644};
#endif
    std::string expected = parameters;
    for (const std::string group : {"gainParams", "checkAbundParams", "resolutionParams", "RampParams", "PeakHandling",
                                    "Misc", "IndexedSlicer", "SetpointUI"}) {
        std::filesystem::permissions(path(), std::filesystem::perms(0444));
        test.trace().lines.clear();
        auto fresh = store();
        fresh.WriteTuneParamValue(group, "A", "007.50");
        EXPECT_TRUE(
            test.trace().contains("WriteTuneParamValue: XML file was set read-only; removing read-only attribute"));
        expected.replace(expected.find("<" + group + "><A>0<") + group.size() + 5, 1, "007.50");
        ASSERT_EQ(read_text(path()), expected) << group;
        EXPECT_EQ(std::filesystem::status(path()).permissions(), writable);
    }
    auto fresh = store();
    fresh.WriteTuneParamValue("Misc", "M", "6", "ManualTuneParameters");
    EXPECT_EQ(fresh.GetTuneParamByXMLPath("/QTOFTuneParams/TOF/ManualTuneParameters/Misc", "M"), 6);
}

TEST_F(TuneParams, ReadKeepsItsCopyUntilAReloadAndAWriteEditsTheFileOfNow) {
    auto reader = store();
    auto writer = store();
    EXPECT_EQ(reader.GetAutotuneLimitValue("Calibration", "A"), 1.5);
    writer.WriteTuneParamValue("Calibration", "A", "2.5");
    EXPECT_EQ(reader.GetAutotuneLimitValue("Calibration", "A"), 1.5);
    reader.WriteTuneParamValue("Misc", "A", "9");
    EXPECT_EQ(store().GetAutotuneLimitValue("Calibration", "A"), 2.5) << "the other's write is lost";
    EXPECT_EQ(reader.GetAutotuneLimitValue("Calibration", "A"), 2.5);
}

TEST_F(TuneParams, SourceIsAllowedByItsTextInAnyCaseAndByTheFileOfNow) {
    auto fresh = store();
    EXPECT_TRUE(fresh.IsThisSourceSupportedForAutotuning("pos", "ESI"));
    EXPECT_TRUE(fresh.IsThisSourceSupportedForAutotuning("pos", "O'Neil"));
    EXPECT_FALSE(fresh.IsThisSourceSupportedForAutotuning("neg", "ESI"));
    EXPECT_FALSE(fresh.IsThisSourceSupportedForAutotuning("pos", "APCI"));
    EXPECT_FALSE(fresh.IsThisSourceSupportedForAutotuning("Pos", "ESI"));
    write_text(path(), "<QTOFTuneParams/>");
    EXPECT_FALSE(fresh.IsThisSourceSupportedForAutotuning("pos", "ESI"));
    EXPECT_NE(raised([&] { fresh.IsThisSourceSupportedForAutotuning("pos", "a\"b"); }), "no error");
}

}  // namespace
}  // namespace korvane
