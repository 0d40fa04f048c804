// Calls given as texts, and values as JSON.
#include <gtest/gtest.h>

#include "automation/json_values.h"
#include "embedded_world.h"
#include "support/raised.h"

namespace korvane::automation {
namespace {

class CallsFromTexts : public testing::Test {
protected:
    Json call(const std::string& member, const std::vector<std::string>& arguments = {}) {
        return Json::parse(call_from_texts(world.platform(), member, arguments));
    }
    std::string failure(const std::string& member, const std::vector<std::string>& arguments = {}) {
        return raised([&] { call_from_texts(world.platform(), member, arguments); });
    }
    EmbeddedWorld world;
};

TEST_F(CallsFromTexts, ResultsAreJsonOfTheirKind) {
    EXPECT_EQ(call("TuneGlobals.GetPolarityStr")["result"], "Positive");
    EXPECT_EQ(call("TuneGlobals.GetMinSpectrumTime_usec")["result"], 10);
    EXPECT_EQ(call("TuneGlobals.LargestMassInMassList", {"[1, 3.5, -2]"})["result"], 3.5);
    EXPECT_EQ(call("AbortHelper.UserHasClickedAbort")["result"], false);
    EXPECT_EQ(call("TuneGlobals.convert_coefficients_usec_to_nsec", {R"({"A": 2})"})["result"]["A"], 0.002);
    const Json peaks = call("SpectrumParser.GetPeakInfoForCalibrantMasses")["result"];
    ASSERT_EQ(peaks[0].size(), 2u);
    EXPECT_GT(peaks[0][0]["pkHeight"], 0.0);
    EXPECT_TRUE(call("AbortHelper.TriggerAbort")["result"].is_null());
}

TEST_F(CallsFromTexts, ChangedReferencesAreReportedUnderTheirNames) {
    const Json json = call("TuneGlobals.CalculateMeanAndStdevForThisData", {"[[1], [2], [3]]", "null", "StdDevs=0"});
    EXPECT_EQ(json["by_reference"], Json::parse(R"({"Means": [2.0], "StdDevs": [1.0]})"));
    EXPECT_FALSE(call("TuneGlobals.GetPolarityStr").contains("by_reference"));
}

// "1.50" must not be stored as 1.5, nor a text that looks like a list be taken for one.
TEST_F(CallsFromTexts, TextsForTextParametersStayAsWritten) {
    for (const char* text : {"1.50", "007", "true", "[0]", "a=b", ""}) {
        call("clsTunePrefsXML.WriteTunePreference", {"LogSetpointTraffic", text});
        EXPECT_EQ(call("clsTunePrefsXML.GetTunePreference", {"LogSetpointTraffic"})["result"], text);
    }
    call("clsTunePrefsXML.WriteTunePreference", {"LogSetpointTraffic", "\"quoted\""});
    EXPECT_EQ(call("clsTunePrefsXML.GetTunePreference", {"ParamName=LogSetpointTraffic"})["result"], "quoted");
}

TEST_F(CallsFromTexts, ObjectsAreAskedOfAnotherMember) {
    const Json json = call(
        "SpectrumParser.CalculateTimeIndex",
        {"[100, 200, 300]", R"({"call": "TuneGlobals.GetCurrentCalibrationObjFromDD"})", "[200]", "1", "percentT=0"});
    EXPECT_TRUE(json["result"].is_null());
    EXPECT_EQ(call("TuneGlobals.GetCurrentCalibrationObjFromDD")["result"]["class"], "MassTimeCalibration");
}

TEST_F(CallsFromTexts, FaultyWordsAreNamed) {
    EXPECT_EQ(failure("NoPoint").substr(0, 2), "5|");
    EXPECT_NE(failure("Nobody.Member").find("Nobody"), std::string::npos);
    EXPECT_NE(failure("TuneGlobals.Nothing").find("Nothing"), std::string::npos);
    EXPECT_NE(failure("TuneGlobals.LargestMassInMassList", {"[1, 2"}).find("[1, 2"), std::string::npos);
    EXPECT_NE(failure("TuneGlobals.convert_coefficients_usec_to_nsec", {R"({"A": 1, "Z": 2})"}).find("\"Z\""),
              std::string::npos);
    EXPECT_EQ(failure("TuneGlobals.GetPolarityStr", {"1"}).substr(0, 4), "450|");
    EXPECT_EQ(failure("TuneGlobals.LargestMassInMassList").substr(0, 4), "449|");
}

TEST(JsonValues, SurviveTheWayThereAndBack) {
    for (const char* text : {"1", "-2147483648", "1.5", "1e300", "\"text\"", "true", "null", "[1.0,2.5]",
                             "[\"a\",\"b\"]", "[[1.0,2.0],[3.0,4.0]]", "[1,\"a\",null]", "[]",
                             R"({"CalReserved1":1,"CalTraditionalWeighting":2,"CalPolynomialWeighting":3})"}) {
        const Json json = Json::parse(text);
        EXPECT_EQ(json_of(value_of_json(json)), json) << text;
    }
    EXPECT_EQ(json_of(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(value_of_json(Json::parse("4294967296")), Value(4294967296.0));
}

}  // namespace
}  // namespace korvane::automation
