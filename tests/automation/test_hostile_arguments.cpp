// Every member with every parameter set to what a careless script may pass: an error or a result, never a crash.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "automation/class_description.h"
#include "automation/native_object.h"
#include "automation/records.h"
#include "embedded_world.h"
#include "korvane/abort_helper.h"

namespace korvane::automation {
namespace {

/// A value that the parameter accepts, so that the others are what is tested.
Value fitting_value(EmbeddedWorld& world, const Parameter& parameter) {
    switch (parameter.type.kind) {
        case TypeKind::boolean:
            return false;
        case TypeKind::long_integer:
        case TypeKind::enumeration:
            return 1;
        case TypeKind::single:
        case TypeKind::real:
            return 294.939;
        case TypeKind::text:
            return "ESI";
        case TypeKind::record:
            return make_record(*find_record(parameter.type.name));
        case TypeKind::object:
            if (parameter.type.name == "PeakList") return Object{};
            return world.create("TuneGlobals")->call("GetCurrentCalibrationObjFromDD");
        case TypeKind::variant:
            if (parameter.name == "wait_time_in_seconds" ||
                !std::holds_alternative<std::monostate>(parameter.default_value))
                return 1;
            return Array(std::vector<double>{158.964, 294.939});
        default:
            return Array(std::vector<double>{158.964, 294.939});
    }
}

std::vector<std::pair<const char*, Value>> hostile_values(EmbeddedWorld& world) {
    const Array two_by_two({{1, 2}, {1, 2}},
                           std::make_shared<const std::vector<double>>(std::vector<double>{1, 2, 3, 4}));
    return {
        {"missing", Missing{}},
        {"empty", Empty{}},
        {"null", Null{}},
        {"nothing", Object{}},
        {"wrong object", world.create("AbortHelper")},
        {"wrong record", CalibrationSettings{}},
        {"text that is no number", "hostile \xC3\xA9 text"},
        {"empty text", ""},
        {"not a number", std::nan("")},
        {"huge", std::numeric_limits<double>::max()},
        {"least integer", std::numeric_limits<std::int32_t>::min()},
        {"empty array", Array(std::vector<double>())},
        {"array from 1", Array(std::vector<double>{158.964, 294.939}, 1)},
        {"array from -5", Array(std::vector<Value>{1, 2}, -5)},
        {"array of nulls", Array(std::vector<Value>{Null{}, Empty{}, Missing{}})},
        {"array of texts", Array(std::vector<std::string>{"a", "b"})},
        {"array of objects", Array(std::vector<Object>{nullptr, world.create("CalMassList")})},
        {"array of records", Array(std::vector<Record>{PeakInfo{}})},
        {"matrix from 1", two_by_two},
        {"array of no dimension", Array({}, Array::Elements<double>())},
    };
}

/// Objects of every class, those that are not creatable as a member returns them.
Object object_of(EmbeddedWorld& world, const ClassDescription& description) {
    if (description.create) return world.create(std::string(description.name));
    if (description.name == "PeakList")
        return world.create("SpectrumParser")->call("GetPeakListsForCalibrantMasses").as_array().element(0).as_object();
    return world.create("TuneGlobals")->call("GetCurrentCalibrationObjFromDD").as_object();
}

struct Tally {
    int calls = 0;
    int results = 0;
    int errors = 0;
};

void call_with(const Object& object, const Member& member, Arguments arguments, Tally& tally, const std::string& what) {
    const Access access = member.kind == MemberKind::property_put ? Access::put : Access::call;
    ++tally.calls;
    try {
        object->invoke(member.dispid, arguments, access);
        ++tally.results;
    } catch (const Error& error) {
        EXPECT_NE(error.number(), 0) << what;
        EXPECT_NE(error.number(), 51) << what << " ended in an internal error: " << error.description();
        ++tally.errors;
    } catch (const std::exception& error) {
        ADD_FAILURE() << what << " let an exception out that is no error: " << error.what();
    }
}

/// Aborts what waits for too long, as a user would: a wait of 1e300 seconds is granted.
class ImpatientUser {
public:
    explicit ImpatientUser(EmbeddedWorld& world) : abort_(world.platform()), clock_(*world.clock) {
        clock_.on_events = [this] {
            if (++events_ == 200) abort_.TriggerAbort();
        };
    }
    ~ImpatientUser() { clock_.on_events = nullptr; }
    void calm_down() {
        if (events_ >= 200) abort_.Reset();
        events_ = 0;
    }

private:
    AbortHelper abort_;
    VirtualClock& clock_;
    int events_ = 0;
};

class HostileArguments : public testing::TestWithParam<std::string> {};

TEST_P(HostileArguments, EndInAnErrorOrAResult) {
    EmbeddedWorld world;
    const ClassDescription& description = class_named(GetParam());
    const Object object = object_of(world, description);
    ASSERT_TRUE(object);
    ImpatientUser user(world);
    Tally tally;
    for (const Member& member : description.members) {
        std::vector<Value> fitting;
        for (const Parameter& parameter : member.parameters()) fitting.push_back(fitting_value(world, parameter));
        call_with(object, member, {fitting, {}}, tally, std::string(member.name));
        for (std::size_t place = 0; place < fitting.size(); ++place)
            for (const auto& [name, value] : hostile_values(world)) {
                Arguments arguments{fitting, {}};
                arguments.positional[place] = value;
                user.calm_down();
                call_with(
                    object, member, arguments, tally,
                    std::string(member.name) + ", " + std::string(member.parameter_slots[place].name) + " = " + name);
            }
    }
    EXPECT_EQ(tally.results + tally.errors, tally.calls) << "a call ended in neither";
}

INSTANTIATE_TEST_SUITE_P(Classes, HostileArguments,
                         testing::Values("TuneGlobals", "SpectrumParser", "CalMassList", "clsTuneParamsXML",
                                         "clsTunePrefsXML", "AbortHelper", "PeakList", "MassTimeCalibration"),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace korvane::automation
