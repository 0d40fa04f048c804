// Arguments for any member: fitting ones, and what a careless script may pass.
#pragma once

#include <cmath>
#include <limits>
#include <map>

#include "automation/class_description.h"
#include "automation/native_object.h"
#include "automation/records.h"
#include "embedded_world.h"
#include "korvane/abort_helper.h"

namespace korvane::automation {

/// A value that the parameter accepts, so that the others are what is tested.
inline Value fitting_value(EmbeddedWorld& world, const Member& member, const Parameter& parameter) {
    static const std::map<std::string_view, const char*> texts{{"XMLPath", "TOF/AutotuneParameters/checkAbundParams"},
                                                               {"ParamGroupName", "checkAbundParams"},
                                                               {"LimitGroupType", "checkAbundParams"},
                                                               {"ParamName", "TargetAbundance"},
                                                               {"strParamName", "TargetAbundance"},
                                                               {"strNewParamValue", "140000"},
                                                               {"strAltTreeNode", "AutotuneParameters"},
                                                               {"polarity", "Positive"},
                                                               {"strPolarity", "Positive"},
                                                               {"massList", "118.0863,322.0481"},
                                                               {"InternalNameOfParameterToRetrieve", "Fragmentor"}};
    switch (parameter.type.kind) {
        case TypeKind::boolean:
            return false;
        case TypeKind::long_integer:
        case TypeKind::enumeration:
            return 1;
        case TypeKind::single:
        case TypeKind::real:
            return 294.939;
        case TypeKind::text: {
            if (parameter.name == "fileName")
                return (world.base() / "MassLists" / "default_calibration_mass_list.xml").string();
            if (member.name.ends_with("TunePreference") && parameter.name.ends_with("ParamName"))
                return "LogSetpointTraffic";
            const auto text = texts.find(parameter.name);
            return text == texts.end() ? "ESI" : text->second;
        }
        case TypeKind::record:
            return make_record(*find_record(parameter.type.name));
        case TypeKind::object:
            if (parameter.type.name == "PeakList") return Object{};
            return world.create("TuneGlobals")->call("GetCurrentCalibrationObjFromDD");
        default:
            if (parameter.name == "wait_time_in_seconds" || parameter.has_default()) return 1;
            return Array(std::vector<double>{158.964, 294.939});
    }
}

inline std::vector<Value> fitting_values(EmbeddedWorld& world, const Member& member) {
    std::vector<Value> values;
    for (const Parameter& parameter : member.parameters()) values.push_back(fitting_value(world, member, parameter));
    return values;
}

inline std::vector<std::pair<const char*, Value>> hostile_values(EmbeddedWorld& world) {
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

inline const ClassDescription& class_named(std::string_view name) {
    return *find_class(name);
}

/// Objects of every class, those that are not creatable as a member returns them.
inline Object object_of(EmbeddedWorld& world, const ClassDescription& description) {
    if (description.create) return world.create(std::string(description.name));
    if (description.name == "PeakList")
        return world.create("SpectrumParser")->call("GetPeakListsForCalibrantMasses").as_array().element(0).as_object();
    return world.create("TuneGlobals")->call("GetCurrentCalibrationObjFromDD").as_object();
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

}  // namespace korvane::automation
