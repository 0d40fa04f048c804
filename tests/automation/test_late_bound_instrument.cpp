// An instrument layer of automation objects: the simulator, offered late bound and taken back the same way.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "automation/late_bound_instrument.h"
#include "automation/layer_objects.h"
#include "automation/native_object.h"
#include "embedded_world.h"
#include "korvane/conformance.h"
#include "support/raised.h"

namespace korvane::automation {
namespace {

/// What a call by name, "SetpointTable.Value", does instead of what the object does; nothing where it does just that.
using Bend = std::function<std::optional<Value>(const std::string& call)>;

/// Somebody else's object: nothing of it is known but its members. Objects that come out of it are strangers too.
class Stranger final : public LateBound {
public:
    Stranger(Object object, Bend bend) : object_(std::move(object)), bend_(std::move(bend)) {}

    std::string class_name() const override { return "Stranger"; }
    std::int32_t dispid_of(std::string_view member) const override { return object_->dispid_of(member); }
    Value invoke(std::int32_t dispid, Arguments& arguments, Access access) override {
        const ClassDescription& known = static_cast<const NativeObject&>(*object_).description();
        const std::string call = object_->class_name() + "." + std::string(known.find(dispid, access)->name);
        if (const std::optional<Value> answer = bend_ ? bend_(call) : std::nullopt) return *answer;
        for (Value& argument : arguments.positional) argument = unmask(argument);
        Value result = mask(object_->invoke(dispid, arguments, access), bend_);
        for (Value& argument : arguments.positional) argument = mask(argument, bend_);
        return result;
    }

    static Value mask(const Value& value, const Bend& bend = {}) {
        const auto* object = value.get_if<Object>();
        return object && *object ? Value(Object(std::make_shared<Stranger>(*object, bend))) : value;
    }

private:
    static Value unmask(const Value& value) {
        const auto* object = value.get_if<Object>();
        const auto* stranger = object ? dynamic_cast<const Stranger*>(object->get()) : nullptr;
        return stranger ? Value(stranger->object_) : value;
    }

    Object object_;
    Bend bend_;
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

// The same seed measured through late binding and directly.
TEST_F(LateBoundInstrument, ConformsAndMeasuresAsTheLayerBehindItDoes) {
    const Value outer = create_object("Korvane.SpectrumParser", outside)->call("GetPeakInfoForCalibrantMasses");
    EmbeddedWorld same;
    EXPECT_EQ(outer, same.create("SpectrumParser")->call("GetPeakInfoForCalibrantMasses"));
    for (const ConformanceResult& result : check_instrument_layer(*outside.instrument))
        EXPECT_TRUE(result.passed) << result.operation << ": " << result.check << ": " << result.detail;
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

    const Object wrong = Stranger::mask(world.create("AbortHelper")).as_object();
    const std::string refusal = raised([&] { globals->call("WriteThisCalibrationObjToDD", {wrong}); });
    EXPECT_EQ(refusal,
              "13|Korvane|Type mismatch: an object Stranger is no MassTimeCalibration: it has no MassFromTime "
              "(pMTCalcObj[an object Stranger] of WriteThisCalibrationObjToDD)");
}

// One member after the other raises what is no error, or returns another record: every check of the layer ends, and one
// of those that fail names the call.
TEST_F(LateBoundInstrument, IsNeverTrusted) {
    const Value layer = object_of_layer(world.platform().instrument);
    for (const ClassDescription& description : layer_class_descriptions())
        for (const Member& member : description.members) {
            const std::string name = std::string(description.name) + "." + std::string(member.name);
            const bool raises = member.dispid % 2 == 1 || member.result.kind == TypeKind::none;
            const Bend bend = [&](const std::string& call) -> std::optional<Value> {
                if (call != name) return std::nullopt;
                if (raises) throw 42;
                return CalibrationSettings{};
            };
            const auto results =
                check_instrument_layer(*make_late_bound_layer([&] { return Stranger::mask(layer, bend).as_object(); }));
            EXPECT_TRUE(std::ranges::any_of(results, [&](const ConformanceResult& result) {
                return !result.passed && result.detail.find("(" + name + ")") != std::string::npos;
            })) << name;
        }
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

}  // namespace
}  // namespace korvane::automation
