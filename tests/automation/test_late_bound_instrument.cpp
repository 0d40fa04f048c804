// An instrument layer of automation objects: the simulator, offered late bound and taken back the same way.
#include <gtest/gtest.h>

#include <fstream>

#include "automation/late_bound_instrument.h"
#include "automation/native_types.h"
#include "embedded_world.h"
#include "korvane/conformance.h"
#include "layer_objects.h"
#include "support/raised.h"

namespace korvane::automation {
namespace {

/// Somebody else's object: nothing of it is known but its members. Objects that come out of it are strangers too.
class Stranger final : public LateBound {
public:
    explicit Stranger(Object object) : object_(std::move(object)) {}

    std::string class_name() const override { return "Stranger"; }
    std::int32_t dispid_of(std::string_view member) const override { return object_->dispid_of(member); }
    Value invoke(std::int32_t dispid, Arguments& arguments, Access access) override {
        for (Value& argument : arguments.positional) argument = unmask(argument);
        Value result = mask(object_->invoke(dispid, arguments, access));
        for (Value& argument : arguments.positional) argument = mask(argument);
        return result;
    }

    static Value mask(const Value& value) {
        const auto* object = value.get_if<Object>();
        return object && *object ? Value(Object(std::make_shared<Stranger>(*object))) : value;
    }

private:
    static Value unmask(const Value& value) {
        const auto* object = value.get_if<Object>();
        const auto* stranger = object ? dynamic_cast<const Stranger*>(object->get()) : nullptr;
        return stranger ? Value(stranger->object_) : value;
    }

    Object object_;
};

class LateBoundInstrument : public testing::Test {
protected:
    LateBoundInstrument() {
        const Object layer = object_of_layer(world.platform().instrument);
        outside = world.platform();
        outside.instrument = make_late_bound_layer([layer] { return Stranger::mask(layer).as_object(); });
    }

    EmbeddedWorld world;
    Platform outside;
};

TEST_F(LateBoundInstrument, ConformsAsTheLayerBehindItDoes) {
    for (const ConformanceResult& result : check_instrument_layer(*outside.instrument))
        EXPECT_TRUE(result.passed) << result.operation << ": " << result.check << ": " << result.detail;
}

// The same seed measured through late binding and directly.
TEST_F(LateBoundInstrument, MeasuresTheSamePeaks) {
    const Value outer = create_object("Korvane.SpectrumParser", outside)->call("GetPeakInfoForCalibrantMasses");
    EmbeddedWorld same;
    const Value inner = same.create("SpectrumParser")->call("GetPeakInfoForCalibrantMasses");
    EXPECT_EQ(outer, inner);
    EXPECT_GT(inner.as_array().size(), 4u);
}

TEST_F(LateBoundInstrument, ForeignObjectsComeBackAsThemselves) {
    const Object globals = create_object("Korvane.TuneGlobals", outside);
    const Object calibration = globals->call("GetCurrentCalibrationObjFromDD").as_object();
    EXPECT_EQ(calibration->class_name(), "Stranger");
    globals->call("SetNewCalibrationWithTheseAAndt0Values_usec", {0.45, 0.021});
    globals->call("WriteThisCalibrationObjToDD", {calibration});
    const Object list = create_object("Korvane.SpectrumParser", outside)
                            ->call("GetPeakListOfOnlyThisOneMass", {158.964, 1.0})
                            .as_object();
    EXPECT_EQ(list->class_name(), "Stranger");
    EXPECT_NEAR(list->call("GetPeakValue", {0, "pkCentroid"}).as_double(), 158.964, 0.2);
}

TEST_F(LateBoundInstrument, WritesSetpointsInTheirType) {
    const auto globals = outside.instrument->create_globals();
    globals->initialise();
    globals->setpoints().write(18, 0, 0, SetpointValue(std::int32_t{1}));
    EXPECT_EQ(globals->setpoints().value(18, 0, 0), InstrumentValue(1));
    EXPECT_EQ(create_object("Korvane.TuneGlobals", world.platform())->call("GetMSSetpointValueByIdx", {18}),
              Value(1.0));
}

TEST_F(LateBoundInstrument, AnObjectWithoutTheMembersIsRefusedByName) {
    const Object globals = create_object("Korvane.TuneGlobals", outside);
    const Object wrong = Stranger::mask(world.create("AbortHelper")).as_object();
    const std::string refusal = raised([&] { globals->call("WriteThisCalibrationObjToDD", {wrong}); });
    EXPECT_EQ(refusal.substr(0, 3), "13|");
    EXPECT_NE(refusal.find("MassFromTime"), std::string::npos) << refusal;
}

// What the page says of a member is what the library asks for, and the other way round.
TEST(LayerObjects, AreThoseOfThePage) {
    std::ifstream page(KORVANE_SOURCE_DIR "/docs/instrument-objects.md");
    std::vector<std::string> written, offered;
    for (std::string line; std::getline(page, line);)
        if (line.starts_with("## ") || line.starts_with("| `")) written.push_back(line.substr(3, line.find("` |") - 3));
    for (const ClassDescription& description : layer_class_descriptions()) {
        offered.emplace_back(description.name);
        for (const Member& member : description.members) offered.push_back(signature_text(member));
    }
    EXPECT_EQ(written, offered);
}

TEST(RecordArrays, StandForRecordsOfAsManyFields) {
    const std::vector<double> eight{1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(Native<PeakInfo>::from(Array(eight)).pkEnd, 8.0);
    EXPECT_EQ(Native<CalibrationCoefficients>::from(Array(eight, 1)).H, 8.0);
    EXPECT_EQ(raised([&] { Native<CalibrationSettings>::from(Array(eight)); }).substr(0, 3), "13|");
}

}  // namespace
}  // namespace korvane::automation
