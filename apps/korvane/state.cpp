#include <fmt/format.h>

#include <algorithm>

#include "commands.h"
#include "korvane/tune_globals.h"

namespace korvane::program {

namespace {

constexpr const char* not_ready_register = "ACTUAL.NDR[NRDYSTATE]";

double not_ready_number(const InstrumentValue& value) {
    if (const auto* integer = std::get_if<std::int32_t>(&value)) return *integer;
    if (const auto* number = std::get_if<double>(&value)) return *number;
    throw Error(error_number::type_mismatch, not_ready_register, "the instrument's not-ready state is not a number");
}

// Ready unless the not-ready state is negative.
bool is_ready(Session& session) {
    return not_ready_number(session.instrument().actual_value(not_ready_register, "")) > -0.5;
}

std::string quad_type_text(enumQuadType type) {
    switch (type) {
        case enumQuadType::MaxMass4k:
            return "4000 amu";
        case enumQuadType::MaxMass8k:
            return "8000 amu";
    }
    return "unknown";
}

Json state_json(Session& session) {
    TuneGlobals globals(session.platform());
    return Json{{"title", session.instrument().title()},
                {"source", globals.GetSourceTypeStr()},
                {"polarity", globals.GetPolarityStr()},
                {"state", globals.GetCurrentInstrumentStateAsString()},
                {"time_segment", globals.CurrentTimeSegment()},
                {"scan_segment", globals.CurrentScanSegment()},
                {"quad_type", quad_type_text(globals.QuadType())},
                {"max_mass", globals.GetMaxMassForCurrentMassRange()},
                {"min_spectrum_time_usec", globals.GetMinSpectrumTime_usec()},
                {"max_spectrum_time_usec", globals.GetMaxSpectrumTime_usec()},
                {"sampling_interval_ns", session.instrument().sampling_interval_seconds() * 1e9},
                {"saturation_threshold_begin", globals.GetSaturationThreshold_Begin()},
                {"saturation_threshold_hard", globals.GetSaturationThreshold_Hard()},
                {"ready", is_ready(session)},
                {"base_folder", utf8_from_path(session.base_folder())}};
}

std::string value_text(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    return value.is_number_integer() ? fmt::format("{}", value.get<std::int64_t>())
                                     : fmt::format("{:.10g}", value.get<double>());
}

ExitCode run_state(Session& session) {
    const Json state = state_json(session);
    if (session.json) {
        session.print_json(state);
        return ExitCode::done;
    }
    for (const auto& [name, value] : state.items()) {
        std::string label = name;
        std::replace(label.begin(), label.end(), '_', ' ');
        session.print(fmt::format("{:<28}{}\n", label, value_text(value)));
    }
    return ExitCode::done;
}

}  // namespace

void add_state(CLI::App& program, Session& session) {
    CLI::App* command =
        add_command(program, session, "state",
                    "tell what the instrument is set to: source, polarity, mass range, saturation, readiness",
                    "korvane state --json");
    on_run(command, session, run_state);
}

}  // namespace korvane::program
