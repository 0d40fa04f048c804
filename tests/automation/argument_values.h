// A world of the simulated instrument, and arguments for any member: fitting ones, and what a careless script may pass.
#pragma once

#include <cmath>
#include <limits>

#include "automation/class_description.h"
#include "automation/json_values.h"
#include "automation/native_object.h"
#include "automation/records.h"
#include "instrument/simulator/simulator.h"
#include "korvane/abort_helper.h"
#include "korvane/embedded.h"
#include "platform/files.h"
#include "support/test_platform.h"

namespace korvane::automation {

/// The simulated instrument on a base folder of its own, with a clock that only moves when something waits.
class EmbeddedWorld {
public:
    EmbeddedWorld() {
        create_base_folder(base());
        platform_.files = make_system_files();
        platform_.clock = clock;
        platform_.message_box = std::make_shared<RecordingMessageBox>();
        platform_.tracers = make_file_tracer_factory();
        platform_.instrument =
            make_simulator({.base_folder = base().string(), .seed = 1, .scene_path = {}, .state_path = {}},
                           platform_.files, platform_.clock);
    }

    const Platform& platform() const { return platform_; }
    std::filesystem::path base() const { return folder_.path() / "base"; }
    Object create(const std::string& class_name) { return create_object("Korvane." + class_name, platform_); }

    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();

private:
    TemporaryFolder folder_;
    Platform platform_;
};

/// A value that the parameter accepts, so that the others are what is tested.
inline Value fitting_value(EmbeddedWorld& world, const Member& member, const Parameter& parameter) {
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
            static const Json texts = Json::parse(read_text(KORVANE_SOURCE_DIR "/tests/automation/fitting_texts.json"));
            return texts.value(std::string(parameter.name), "ESI");
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
