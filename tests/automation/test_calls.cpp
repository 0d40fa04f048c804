// Late-bound calls on the real classes: what scripts rely on, as lines of "korvane call -" and what each gives.
#include <gtest/gtest.h>

#include "argument_values.h"
#include "support/raised.h"

namespace korvane::automation {
namespace {

class Calls : public testing::Test {
protected:
    /// The result and what changed by reference, or "number|source|description".
    std::string outcome(const std::string& line) {
        std::string text;
        const std::string error = raised([&] {
            const Json json = Json::parse(calls.call(words_of_line(line)));
            text = json["result"].dump();
            if (json.contains("by_reference")) text += " and " + json["by_reference"].dump();
        });
        return text.empty() ? error : text;
    }
    void expect(const std::vector<std::pair<std::string, std::string>>& script) {
        for (const auto& [call, gives] : script) EXPECT_EQ(outcome(call), gives) << call;
    }

    EmbeddedWorld world;
    TextCalls calls{world.platform()};
};

TEST_F(Calls, FindMembersConvertArgumentsAndNameWhatIsWrong) {
    expect({
        {"TuneGlobals.GetPolarityStr", "\"Positive\""},
        {"korvane.TUNEGLOBALS.getpolaritystr", "\"Positive\""},
        {"TuneGlobals.CurrentTimeSegment= '\"7\"'", "null"},
        {"TuneGlobals.CurrentTimeSegment= 3e9",
         "6|Korvane|Overflow: [3000000000] (value[3000000000] of CurrentTimeSegment)"},
        {"TuneGlobals.CurrentTimeSegment= 4294967296",
         "6|Korvane|Overflow: [4294967296] (value[4294967296] of CurrentTimeSegment)"},
        {"TuneGlobals.CurrentTimeSegment", "7"},
        {"TuneGlobals.errormsgstring= 2.5", "null"},
        {"TuneGlobals.ErrorMsgString", "\"2.5\""},
        {"TuneGlobals.GetPolarityStr= 1",
         "438|Korvane|Object doesn't support this property or method: TuneGlobals, member number 12"},
        {"clsTunePrefsXML.GetTunePreference LogSetpointTraffic", "\"No\""},
        {"clsTunePrefsXML.GetTunePreference breopenxmlfile=true ParamName=LogSetpointTraffic", "\"No\""},
        {"clsTunePrefsXML.GetTunePreference",
         "449|Korvane|Argument not optional (ParamName[a missing argument] of GetTunePreference)"},
        {"clsTunePrefsXML.GetTunePreference a true 3",
         "450|Korvane|Wrong number of arguments or invalid property assignment: GetTunePreference"},
        {"clsTunePrefsXML.GetTunePreference a ParamName=b",
         "450|Korvane|Wrong number of arguments or invalid property assignment: ParamName of GetTunePreference is "
         "given twice"},
        {"clsTunePrefsXML.GetTunePreference a perhaps",
         "13|Korvane|Type mismatch: [perhaps] (bReOpenXMLFile[perhaps] of GetTunePreference)"},
        {"clsTunePrefsXML.GetTunePreference NoSuchPreference",
         "-904|AutotuneParameterXMLConfigFileReader|Item[NoSuchPreference] not found in Tune XML config file"},
        {"TuneGlobals.NoSuchMember",
         "438|Korvane|Object doesn't support this property or method: TuneGlobals.NoSuchMember"},
        {"Korvane.PeakList.Count", "429|Korvane|ActiveX component can't create object: Korvane.PeakList"},
        {"Other.TuneGlobals.QuadType", "429|Korvane|ActiveX component can't create object: Other.TuneGlobals"},
        {"NoPoint", "5|Korvane|Invalid procedure call or argument: NoPoint is no CLASS.MEMBER"},
        {"TuneGlobals.LargestMassInMassList '[1, 2'",
         "5|Korvane|Invalid procedure call or argument: [[1, 2] is malformed JSON"},
        {"\"TuneGlobals", "5|Korvane|Invalid procedure call or argument: [\"TuneGlobals] has a quote without end"},
    });
    Arguments unknown{{"a"}, {{"NoSuchName", 1}}};
    EXPECT_EQ(raised([&] { world.create("clsTunePrefsXML")->invoke("GetTunePreference", unknown); }),
              "448|Korvane|Named argument not found: NoSuchName of GetTunePreference");
}

// "1.50" must not be stored as 1.5, nor a text that looks like a list be taken for one.
TEST_F(Calls, TextsForTextParametersStayAsWritten) {
    for (const char* text : {"1.50", "007", "true", "[0]", "a=b", "", "\\", "it's #1", "\"quoted\"", "C:\\folder"}) {
        std::string quoted = text;
        if (const auto quote = quoted.find('\''); quote != std::string::npos) quoted.replace(quote, 1, R"('\'')");
        expect({{"clsTunePrefsXML.WriteTunePreference LogSetpointTraffic '" + quoted + "'", "null"}});
        const std::string written = text == std::string("\"quoted\"") ? "quoted" : text;
        EXPECT_EQ(outcome("clsTunePrefsXML.GetTunePreference LogSetpointTraffic"), Json(written).dump());
    }
    EXPECT_EQ(words_of_line(" a\tb\\ c\"d\\\"\\e\"'f\\'  # g"), (std::vector<std::string>{"a", "b cd\"\\ef\\"}));
}

TEST_F(Calls, ResultsReferencesRecordsAndObjectsCrossAsWhatTheyAre) {
    expect({
        {"TuneGlobals.LargestMassInMassList '[1, 3.5, -2]'", "3.5"},
        {"TuneGlobals.LargestMassInMassList '[1, \"7\", true]'", "7.0"},
        {"TuneGlobals.LargestMassInMassList '[\"1\", \"7\"]'", "7.0"},
        {"AbortHelper.TriggerAbort", "null"},
        {"TuneGlobals.UserHasClickedAbort", "true"},
        {"AbortHelper.Reset", "null"},
        {"TuneGlobals.CalculateMeanAndStdevForThisData [[1],[2],[3]] null StdDevs=0",
         R"(null and {"Means":[2.0],"StdDevs":[1.0]})"},
        {"TuneGlobals.CalculateMeanAndStdevForThisData [[1]] null null",
         "11|Korvane|Division by zero: standard deviation of 1 values"},
        {R"(TuneGlobals.convert_coefficients_usec_to_nsec '{"A": 2, "B": 0.5}')",
         R"({"A":0.002,"B":500.0,"C":0.0,"D":0.0,"E":0.0,"F":0.0,"G":0.0,"H":0.0})"},
        {R"(TuneGlobals.convert_coefficients_usec_to_nsec '{"pkApexX": 2}')",
         "13|Korvane|Type mismatch: a record is no CalibrationCoefficients record (calcoef[a record] of "
         "convert_coefficients_usec_to_nsec)"},
        {R"(TuneGlobals.convert_coefficients_usec_to_nsec '{"A": 1, "Z": 2}')",
         R"(5|Korvane|Invalid procedure call or argument: {"A":1,"Z":2} is no record)"},
        {"SpectrumParser.CalculateTimeIndex [100,200,300] null [200] 1 0",
         "94|Korvane|Invalid use of Null (mtDLL[Null] of CalculateTimeIndex)"},
        {R"(SpectrumParser.CalculateTimeIndex [100,200,300] '{"call": "TuneGlobals.GetCurrentCalibrationObjFromDD"}')"
         " [200] 1 percentT=0",
         "null"},
        {R"(TuneGlobals.WriteThisCalibrationObjToDD '{"call": "TuneGlobals.getDefaultMTObj_nsec"}')", "null"},
        {"TuneGlobals.WriteThisCalibrationObjToDD 3",
         "424|Korvane|Object required: a Long is no object (pMTCalcObj[3] of WriteThisCalibrationObjToDD)"},
    });
    const Json peaks = Json::parse(outcome("SpectrumParser.GetPeakInfoForCalibrantMasses"));
    ASSERT_EQ(peaks.at(0).size(), 2u);
    EXPECT_GT(peaks[0][0]["pkHeight"], 0.0);

    const Object globals = calls.object_of("TuneGlobals"), parser = calls.object_of("SpectrumParser");
    const auto current = [&] { return globals->call("GetCurrentCalibrationObjFromDD").as_object(); };
    const auto native = [](const Value& object) { return native_from<MassTimeCalibration>(object.as_object()); };
    EXPECT_EQ(native(current()), native(current()));
    EXPECT_NE(native(current()), native(current()->call("Clone")));
    EXPECT_NEAR(current()->call("MassFromTime", {current()->call("TimeFromMass", {922.0})}).as_double(), 922.0, 1e-9);
    EXPECT_EQ(raised([&] { globals->call("WriteThisCalibrationObjToDD", {Object{}}); }).substr(0, 3), "91|");
    EXPECT_EQ(raised([&] { globals->call("WriteThisCalibrationObjToDD", {globals}); }),
              "13|Korvane|Type mismatch: an object TuneGlobals is no MassTimeCalibration (pMTCalcObj[an object "
              "TuneGlobals] of WriteThisCalibrationObjToDD)");
    // A mass window needs no calibration, a percentage does.
    const std::vector<Value> window{Array(std::vector<double>{100, 200}), Object{}, Array(std::vector<double>{150})};
    EXPECT_EQ(raised([&] { parser->call("CalculateTimeIndex", {window[0], window[1], window[2], 1, 0}); }), "no error");
    EXPECT_EQ(raised([&] {
                  parser->call("CalculateTimeIndex", {window[0], window[1], window[2], 1, 2});
              }).substr(0, 3),
              "91|");
    // Left out, the default list counts; an empty one has no upper bound.
    EXPECT_EQ(raised([&] { parser->call("GetPeakInfoForCalibrantMasses", {Empty{}}); }).substr(0, 3), "13|");
}

// A reference is the caller's own variable: whoever handles an event sees in it what the routine put there and may set
// it, and a failure leaves what there was by then.
TEST_F(Calls, ReferencesAreTheCallersVariablesWhileTheRoutineRuns) {
    const Object parser = world.create("SpectrumParser");
    Arguments spectrum{{1, 2, 3, "4", true}, {}};
    bool seen = true;
    world.clock->on_events = [&] {
        seen = spectrum.positional[4].as_boolean();
        spectrum.positional[4] = true;
    };
    parser->invoke("GetNewSpectrumAndVerifyDataIsPopulated", spectrum);
    EXPECT_FALSE(seen) << "the routine begins with False";
    EXPECT_EQ(spectrum.positional[4], Value(true)) << "what the handler set was written over";
    EXPECT_GT(spectrum.positional[3].as_double(), 1000) << "nanoseconds";

    // The first poll ends in an abort, before the arrays are touched.
    calls.call({"AbortHelper.TriggerAbort"});
    const std::vector<Value> before = spectrum.positional;
    EXPECT_EQ(raised([&] { parser->invoke("GetNewSpectrumAndVerifyDataIsPopulated", spectrum); }).substr(0, 2), "1|");
    EXPECT_EQ(spectrum.positional, before);

    struct Failing {
        void run(VariantArray<double>& assigned, VariantArray<double>&, double& number, std::string&) {
            assigned = std::vector<double>{1};
            number = 2;
            throw std::runtime_error("a fault of another kind");
        }
    };
    static constexpr auto table =
        member_table(method<&Failing::run>(1, "Run", "", result("a"), result("b"), reference("c"), reference("d")));
    static const ClassDescription description{"Failing", {}, {}, {}, table};
    NativeObject object(description, std::make_shared<Failing>());
    Arguments arguments{{"a", "b", 1, "d"}, {}};
    EXPECT_EQ(raised([&] { object.invoke(1, arguments, Access::call); }).substr(0, 34),
              "51|Korvane|a fault of another kind");
    EXPECT_EQ(arguments.positional, (std::vector<Value>{Array(std::vector<double>{1}), "b", 2.0, "d"}));
}

// Every member with every parameter set to what a careless script may pass: an error or a result, never a crash.
void call_with(const Object& object, const Member& member, Arguments arguments, const std::string& what) {
    try {
        object->invoke(member.dispid, arguments, member.access);
    } catch (const Error& error) {
        EXPECT_NE(error.number(), 0) << what;
        EXPECT_NE(error.number(), 51) << what << " ended in an internal error: " << error.description();
    } catch (const std::exception& error) {
        ADD_FAILURE() << what << " let an exception out that is no error: " << error.what();
    }
}

TEST(HostileArguments, EndInAnErrorOrAResult) {
    for (const ClassDescription& description : class_descriptions()) {
        EmbeddedWorld world;
        const Object object = object_of(world, description);
        ASSERT_TRUE(object) << description.name;
        ImpatientUser user(world);
        for (const Member& member : description.members) {
            const std::vector<Value> fitting = fitting_values(world, member);
            call_with(object, member, {fitting, {}}, std::string(member.name));
            for (std::size_t place = 0; place < fitting.size(); ++place)
                for (const auto& [name, value] : hostile_values(world)) {
                    Arguments arguments{fitting, {}};
                    arguments.positional[place] = value;
                    user.calm_down();
                    call_with(object, member, arguments,
                              std::string(member.name) + ", " + std::string(member.parameter_slots[place].name) +
                                  " = " + name);
                }
        }
    }
}

}  // namespace
}  // namespace korvane::automation
