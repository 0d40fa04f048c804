// What the members of the tune globals share. Each is defined in the file of its topic.
#pragma once

#include <optional>
#include <string>

#include "frame/routine.h"
#include "globals/current_setpoints.h"
#include "globals/log_file.h"
#include "korvane/abort_helper.h"
#include "korvane/tune_globals.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane {

inline constexpr double ns_per_us = 1000;

struct TuneGlobalsState {
    explicit TuneGlobalsState(const Platform& given);
    TuneGlobalsState(const TuneGlobalsState&) = delete;
    TuneGlobalsState& operator=(const TuneGlobalsState&) = delete;

    HardwareQueries& hardware() const { return instrument->hardware(); }
    bool has_option(std::int32_t code) const { return hardware().option_present(hardware().option_name(code)); }
    /// Only the first characters tell.
    bool is_model_4410() const { return hardware().model().starts_with(contract::model_4410); }
    double limit(const std::string& group, const std::string& key) {
        return parameters.GetAutotuneLimitValue(group, key);
    }
    /// Whether the setpoint log is kept: the preference at creation or, where the base folder was not known then, at
    /// the first setpoint line.
    bool logs_setpoint_traffic();

    const Platform platform;
    const LazyInstrument instrument{platform.instrument};
    Segments segments;
    const CurrentSetpoints setpoints{instrument, segments};
    clsTunePrefsXML preferences{platform};
    clsTuneParamsXML parameters{platform};
    AbortHelper abort{platform};
    std::string error_message;
    std::string unreported_item;  // of the last wait for a setpoint
    const Trace trace{platform.tracers, &error_message};

    double abundance_reduction_vcap = 0, abundance_reduction_fragmentor = 0;
    std::optional<bool> log_setpoint_traffic;
    LogFile tune_log{platform}, setpoint_log{platform};
};

struct TuneGlobals::Impl final : TuneGlobalsState {
    using TuneGlobalsState::TuneGlobalsState;
};

}  // namespace korvane
