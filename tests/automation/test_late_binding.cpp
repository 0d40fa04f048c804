// Late-bound calls on real objects with a scripted instrument.
#include <gtest/gtest.h>

#include "automation/class_description.h"
#include "automation/native_object.h"
#include "embedded_world.h"
#include "korvane/automation.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane::automation {
namespace {

class LateBinding : public testing::Test {
protected:
    Object create(const std::string& name) { return create_object("Korvane." + name, world.platform()); }
    Object create_embedded(const std::string& name) { return embedded.create(name); }

    static Error error_of(const std::function<void()>& call) {
        try {
            call();
        } catch (const Error& error) {
            return error;
        }
        return Error(0, "", "no error");
    }

    TestPlatform world;
    EmbeddedWorld embedded;
};

TEST_F(LateBinding, EveryClassIsCreatedByItsProgIdWhateverTheCase) {
    for (const char* name :
         {"TuneGlobals", "SpectrumParser", "CalMassList", "clsTuneParamsXML", "clsTunePrefsXML", "AbortHelper"})
        EXPECT_EQ(create(name)->class_name(), name);
    EXPECT_EQ(create_object("korvane.TUNEGLOBALS", world.platform())->class_name(), "TuneGlobals");
}

TEST_F(LateBinding, AnUnknownClassOrOneThatIsNotCreatableIsRefusedByName) {
    for (const char* prog_id : {"Korvane.NoSuchClass", "Korvane.PeakList", "Other.TuneGlobals", ""}) {
        const Error error = error_of([&] { create_object(prog_id, world.platform()); });
        EXPECT_EQ(error.number(), 429);
        EXPECT_NE(error.description().find(prog_id), std::string::npos);
    }
}

TEST_F(LateBinding, PropertiesAreLetAndRead) {
    const Object globals = create("TuneGlobals");
    globals->put("CurrentTimeSegment", "7");
    globals->put("errormsgstring", 2.5);
    EXPECT_EQ(globals->get("CurrentTimeSegment"), Value(7));
    EXPECT_EQ(globals->call("ErrorMsgString"), Value("2.5"));
    EXPECT_EQ(error_of([&] { globals->put("GetPolarityStr", 1); }).number(), 438);
    EXPECT_EQ(error_of([&] { globals->get("GetPolarityStr"); }).number(), 438);
    EXPECT_EQ(error_of([&] { globals->put("CurrentTimeSegment", 3e9); }).number(), 6);
    EXPECT_EQ(globals->get("CurrentTimeSegment"), Value(7)) << "a refused value must not change the property";
}

TEST_F(LateBinding, ArgumentsGoByPositionByNameOrAreLeftOut) {
    world.preference("Greeting", "hello");
    const Object preferences = create("clsTunePrefsXML");
    EXPECT_EQ(preferences->call("GetTunePreference", {"Greeting"}), Value("hello"));
    EXPECT_EQ(preferences->call("GetTunePreference", {"Greeting", Missing{}}), Value("hello"));
    world.preference("Greeting", "changed");
    EXPECT_EQ(preferences->call("GetTunePreference", {"Greeting"}), Value("hello")) << "False is the default";
    Arguments reopen{{}, {{"breopenxmlfile", true}, {"ParamName", "Greeting"}}};
    EXPECT_EQ(preferences->invoke("GetTunePreference", reopen), Value("changed"));
}

TEST_F(LateBinding, WrongArgumentsAreRefusedByNumberAndName) {
    const Object preferences = create("clsTunePrefsXML");
    const auto refused = [&](Arguments arguments) {
        return error_of([&] { preferences->invoke("GetTunePreference", arguments); });
    };
    EXPECT_EQ(refused({}).number(), 449);
    EXPECT_NE(refused({}).description().find("ParamName"), std::string::npos);
    EXPECT_EQ(refused({{Missing{}, true}, {}}).number(), 449);
    EXPECT_EQ(refused({{"a", true, 3}, {}}).number(), 450);
    EXPECT_EQ(refused({{"a"}, {{"NoSuchName", 1}}}).number(), 448);
    EXPECT_EQ(refused({{"a"}, {{"ParamName", "b"}}}).number(), 450);
    const Error mismatch = refused({{"a", "perhaps"}, {}});
    EXPECT_EQ(mismatch.number(), 13);
    EXPECT_NE(mismatch.description().find("bReOpenXMLFile of GetTunePreference"), std::string::npos)
        << mismatch.description();
    EXPECT_EQ(refused({{Null{}}, {}}).number(), 94);
    EXPECT_EQ(error_of([&] { preferences->call("NoSuchMember"); }).number(), 438);
}

TEST_F(LateBinding, ErrorsOfTheClassesPassUnchanged) {
    const Error error = error_of([&] { create("clsTunePrefsXML")->call("GetTunePreference", {"NoSuchPreference"}); });
    clsTunePrefsXML native(world.platform());
    const Error expected = error_of([&] { native.GetTunePreference("NoSuchPreference"); });
    EXPECT_EQ(error.number(), -904);
    EXPECT_EQ(error.source(), expected.source());
    EXPECT_EQ(error.description(), expected.description());
}

TEST_F(LateBinding, ChangedReferencesComeBackUnderTheirTypeAndOthersStay) {
    const Object globals = create("TuneGlobals");
    auto data = std::make_shared<const std::vector<double>>(std::vector<double>{1, 2, 3});
    Arguments arguments{{Array({{0, 3}, {0, 1}}, data), Empty{}}, {{"StdDevs", "anything"}}};
    globals->invoke("CalculateMeanAndStdevForThisData", arguments);
    EXPECT_EQ(arguments.positional[0], Value(Array({{0, 3}, {0, 1}}, data)));
    EXPECT_EQ(arguments.positional[1], Value(Array(std::vector<double>{2})));
    EXPECT_EQ(arguments.named[0].second, Value(Array(std::vector<double>{1})));
}

TEST_F(LateBinding, ReferencesKeepTheirValuesWhenTheMemberRaises) {
    const Object globals = create("TuneGlobals");
    auto row = std::make_shared<const std::vector<double>>(std::vector<double>{1});
    Arguments arguments{{Array({{0, 1}, {0, 1}}, row), "mean", "deviation"}, {}};
    EXPECT_EQ(error_of([&] { globals->invoke("CalculateMeanAndStdevForThisData", arguments); }).number(), 11);
    EXPECT_EQ(arguments.positional[1], Value("mean"));
    EXPECT_EQ(arguments.positional[2], Value("deviation"));
}

TEST_F(LateBinding, RecordsCrossAsWhatTheyAre) {
    const Object globals = create_embedded("TuneGlobals");
    CalibrationCoefficients coefficients;
    coefficients.A = 2;
    coefficients.B = 0.5;
    const Value converted = globals->call("convert_coefficients_usec_to_nsec", {coefficients});
    const auto* record = converted.get_if<Record>();
    ASSERT_TRUE(record);
    EXPECT_DOUBLE_EQ(std::get<CalibrationCoefficients>(*record).A, 0.002);
    EXPECT_EQ(error_of([&] { globals->call("convert_coefficients_usec_to_nsec", {PeakInfo{}}); }).number(), 13);
}

TEST_F(LateBinding, ObjectsCrossAsWhatTheyAre) {
    const Object globals = create_embedded("TuneGlobals");
    const Object calibration = globals->call("GetCurrentCalibrationObjFromDD").as_object();
    ASSERT_TRUE(calibration);
    EXPECT_EQ(calibration->class_name(), "MassTimeCalibration");
    const auto native = [](const Value& object) { return native_from<MassTimeCalibration>(object.as_object()); };
    EXPECT_EQ(native(calibration), native(globals->call("GetCurrentCalibrationObjFromDD")));
    EXPECT_NE(native(calibration), native(calibration->call("Clone")));
    const double time = calibration->call("TimeFromMass", {922.0}).as_double();
    EXPECT_NEAR(calibration->call("MassFromTime", {time}).as_double(), 922.0, 1e-9);
    globals->call("WriteThisCalibrationObjToDD", {calibration});
    EXPECT_EQ(error_of([&] { globals->call("WriteThisCalibrationObjToDD", {Object{}}); }).number(), 91);
    EXPECT_EQ(error_of([&] { globals->call("WriteThisCalibrationObjToDD", {globals}); }).number(), 13);
    EXPECT_EQ(error_of([&] { globals->call("WriteThisCalibrationObjToDD", {3}); }).number(), 424);
}

TEST_F(LateBinding, AMissingListIsNotAnEmptyOne) {
    const Object parser = create_embedded("SpectrumParser");
    const Error empty = error_of([&] { parser->call("GetPeakInfoForCalibrantMasses", {Empty{}}); });
    EXPECT_EQ(empty.number(), 13) << "an empty list has no upper bound";
    const Error missing = error_of([&] { parser->call("GetPeakInfoForCalibrantMasses"); });
    EXPECT_NE(missing.number(), 13) << "left out, the default list counts: " << missing.description();
}

TEST_F(LateBinding, TriggerAbortGivesEmptyAndAnotherObjectSeesIt) {
    world.preference("AbortFlag", "0");
    const Object helper = create("AbortHelper");
    EXPECT_EQ(helper->call("UserHasClickedAbort"), Value(false));
    EXPECT_EQ(helper->call("TriggerAbort"), Value());
    EXPECT_EQ(create("AbortHelper")->call("UserHasClickedAbort"), Value(true));
    EXPECT_EQ(create("TuneGlobals")->call("UserHasClickedAbort"), Value(true));
}

}  // namespace
}  // namespace korvane::automation
