// What the instrument says of itself, its setpoints, and the calibrations that it lends.
#include <algorithm>
#include <cmath>

#include "instrument/conformance/checks.h"

namespace korvane {

namespace {

SetpointValue in_type(std::int32_t type, double value) {
    if (type == contract::variable_type.int32) return to_int32(value);
    if (type == contract::variable_type.int16) return to_int16(value);
    return value;
}

/// Moves a setpoint that takes any number by one step of its resolution, and back; others are codes and switches, which
/// are left alone.
bool follows(SetpointTable& table, std::int32_t index, double before) {
    if (table.variable_type(index) != contract::variable_type.real) return true;
    const double step = table.resolution(index);
    const double moved = before + step <= table.upper_limit(index) ? before + step : before - step;
    if (moved < table.lower_limit(index)) return true;
    table.write(index, 0, 0, moved);
    const double now = to_double(table.value(index, 0, 0));
    table.write(index, 0, 0, before);
    const double back = to_double(table.value(index, 0, 0));
    return std::fabs(now - moved) < 0.5 * step && std::fabs(back - before) < 0.5 * step;
}

const std::vector<double> calibration_masses{120.0, 622.0, 1522.0};
constexpr double no_mass = -1;
constexpr double highest_mass = 20000;  // of the library's mass ranges
constexpr std::int32_t no_polarity = 7;

std::string unless_all_near(const std::vector<double>& measured, const std::vector<double>& expected) {
    if (measured.size() != expected.size()) return text_of(measured.size(), " values");
    for (std::size_t place = 0; place < measured.size(); ++place)
        if (std::string difference = unless_near(measured[place], expected[place], 1e-9); !difference.empty())
            return difference;
    return {};
}

void check_calibration(ConformanceChecks& checks, const std::string& polarity, const MassTimeCalibration& calibration) {
    const auto check = [&](const char* name, const char* expected, const std::function<std::string()>& body) {
        checks.check(text_of("MassTimeCalibration.", name, polarity), expected, body);
    };
    std::vector<double> times;
    check("time_from_mass", "is undone by mass_from_time", [&] {
        std::vector<double> back;
        for (const double mass : calibration_masses) {
            times.push_back(calibration.time_from_mass(mass));
            back.push_back(calibration.mass_from_time(times.back()));
        }
        return unless_all_near(back, calibration_masses);
    });
    check("time_from_mass", "gives a flight time up to the highest mass", [&] {
        const double time_ns = calibration.time_from_mass(highest_mass);
        return unless(std::isfinite(time_ns) && time_ns > 0, text_of(time_ns, " for ", highest_mass));
    });
    check("times_from_masses", "agrees with time_from_mass",
          [&] { return unless_all_near(calibration.times_from_masses(calibration_masses), times); });
    check("masses_from_times", "agrees with mass_from_time",
          [&] { return unless_all_near(calibration.masses_from_times(times), calibration_masses); });
    check("coefficients", "A is above 0", [&] { return unless(calibration.coefficients().A > 0, "it is not"); });
    check("use_flags", "an array", [&] { return unless(!calibration.use_flags().is_empty(), "none"); });
    check("clone", "is independent", [&] {
        const CalibrationCoefficients before = calibration.coefficients();
        CalibrationCoefficients other = before;
        other.B += 1;
        const auto copy = calibration.clone();
        if (!copy) return "nothing";
        copy->set_coefficients(other);
        CalibrationSettings settings = copy->settings();
        settings.CalReserved1 += 1;
        copy->set_settings(settings);
        if (copy->coefficients() != other || copy->settings() != settings) return "the copy keeps no change";
        return calibration.coefficients() == before ? "" : "a change of the copy changed the calibration";
    });
    checks.refuses("MassTimeCalibration.time_from_mass" + polarity, error_number::invalid_call, "-1",
                   [&] { calibration.time_from_mass(no_mass); });
}

}  // namespace

void check_state(ConformanceChecks& checks, InstrumentGlobals& globals) {
    const std::pair<const char*, std::function<InstrumentValue()>> texts[] = {
        {"InstrumentGlobals.source_type", [&] { return globals.source_type(); }},
        {"InstrumentGlobals.source_word", [&] { return globals.source_word(); }},
        {"InstrumentGlobals.time_stamp", [&] { return globals.time_stamp(); }},
        {"InstrumentGlobals.title", [&] { return globals.title(); }},
        {"HardwareQueries.model", [&] { return globals.hardware().model(); }}};
    for (const auto& [operation, read] : texts)
        checks.check(operation, "one line of text", [&] { return unless_answer(read(), "text"); });
    checks.check("InstrumentGlobals.source_word", "no quotation marks, for a query of the parameter file", [&] {
        return unless(globals.source_word().find('"') == std::string::npos, "[" + globals.source_word() + "]");
    });
    checks.answers(contract::parameter, unknown_number,
                   [&](std::int32_t number) -> InstrumentValue { return globals.parameter_name(number); });
    checks.answers(contract::dictionary_item, unknown_text,
                   [&](const std::string& name) { return globals.dictionary_item(name); });
    checks.answers(contract::instrument_register, unknown_text, [&](const std::string& path) {
        const bool run_state = path == contract::instrument_register.run_state.key;
        return globals.actual_value(path, run_state ? contract::run_state_type : contract::not_ready_state_type);
    });
    checks.answers(contract::firmware_channel, unknown_number,
                   [&](std::int32_t channel) -> InstrumentValue { return globals.firmware().read(channel); });
    checks.answers(contract::option, unknown_number,
                   [&](std::int32_t code) -> InstrumentValue { return globals.hardware().option_name(code); });
    checks.check("InstrumentGlobals.sampling_interval_seconds", "between 0 and a microsecond", [&] {
        const double interval = globals.sampling_interval_seconds();
        return unless(interval > 0 && interval < 1e-6, text_of(interval));
    });
    checks.check("HardwareQueries.option_present", "an unknown option is not present, or refused by name", [&] {
        try {
            return unless(!globals.hardware().option_present(unknown_text), "it is present");
        } catch (const Error& error) {
            return unless(error.description().find(unknown_text.key) != std::string::npos, error.description());
        }
    });
    checks.check("HardwareQueries", "answers what the library asks", [&] {
        for (const contract::Number& code : contract::entries<contract::Number>(contract::option))
            globals.hardware().option_present(globals.hardware().option_name(code));
        globals.hardware().has_160cm_flight_tube();
        globals.hardware().has_positive_post_acceleration();
        globals.hardware().abundance_reduction_setting();
        return "";
    });
    checks.check("FirmwareChannels.write", "the quadrupole's channel keeps its value", [&] {
        const double before = globals.firmware().read(contract::firmware_channel.quad_amu);
        const auto keeps = [&](double value) {
            globals.firmware().write(contract::firmware_channel.quad_amu, static_cast<float>(value));
            return unless_near(globals.firmware().read(contract::firmware_channel.quad_amu), value, 1e-3);
        };
        const std::string failure = keeps(before < 1000 ? 1.01 * before + 1 : 0.99 * before);
        return first_of(keeps(before), failure);
    });
}

void check_setpoints(ConformanceChecks& checks, InstrumentGlobals& globals) {
    const auto table = [&]() -> SetpointTable& { return globals.setpoints(); };
    std::vector<std::int32_t> all;
    checks.check("SetpointTable.indexes", "ascending, each once", [&] {
        all = table().indexes();
        const bool ascend = std::ranges::adjacent_find(all, std::greater_equal<>()) == all.end();
        return unless(!all.empty() && ascend, all.empty() ? "none" : "they do not ascend");
    });
    checks.answers(contract::setpoint, unknown_number, [&](std::int32_t index) {
        if (index != unknown_number && !std::ranges::binary_search(all, index))
            raise_runtime_fault(error_number::subscript, "not among the indexes");
        return table().value(index, 0, 0);
    });
    /// A property of every setpoint, asked for by an operation that refuses an unknown one.
    const auto each = [&](const char* name, const char* expected, const std::function<bool(std::int32_t)>& holds) {
        const std::string operation = text_of("SetpointTable.", name);
        checks.check(operation, expected, [&] {
            std::string failing;
            for (const std::int32_t index : all)
                if (!holds(index)) failing += (failing.empty() ? "not so for " : ", ") + text_of(index);
            return failing;
        });
        checks.refuses(operation, error_number::subscript, text_of(unknown_number.key), [&] { holds(unknown_number); });
    };
    const auto number = [&](std::int32_t index) { return to_double(table().value(index, 0, 0)); };
    each("value", "a number for every index", [&](std::int32_t index) { return std::isfinite(number(index)); });
    each("lower_limit", "not above the value", [&](std::int32_t index) {
        const double limit = table().lower_limit(index);
        return index == unknown_number || limit <= number(index) + table().tolerance(index);
    });
    each("upper_limit", "not below the value", [&](std::int32_t index) {
        const double limit = table().upper_limit(index);
        return index == unknown_number || limit >= number(index) - table().tolerance(index);
    });
    each("resolution", "above 0", [&](std::int32_t index) { return table().resolution(index) > 0; });
    each("tolerance", "above 0", [&](std::int32_t index) { return table().tolerance(index) > 0; });
    each("variable_type", "3, 4 or 6", [&](std::int32_t index) {
        const auto types = contract::entries<contract::Number>(contract::variable_type);
        return std::ranges::find(types, table().variable_type(index), &contract::Number::key) != types.end();
    });
    each("external_name", "one line of text",
         [&](std::int32_t index) { return unless_text(table().external_name(index)).empty(); });
    each("internal_name", "one line of text, found by index_of", [&](std::int32_t index) {
        const std::string name = table().internal_name(index);
        return unless_text(name).empty() && table().index_of(name) == index;
    });
    each("write", "the value can be read back", [&](std::int32_t index) {
        if (index == unknown_number) return table().write(index, 0, 0, 1.0), true;
        const double before = number(index);
        table().write(index, 0, 0, in_type(table().variable_type(index), before));
        return std::fabs(number(index) - before) < table().tolerance(index) && follows(table(), index, before);
    });
    checks.check(contract::slicer.group.operation, "a slicer's position has running hours", [&] {
        for (const std::int32_t index : all)
            if (table().internal_name(index) == contract::slicer.position.key) {
                const std::int32_t position = to_int32(table().value(index, 0, 0));
                return unless_answer(globals.dictionary_item(contract::slicer_hours_item(position)), "h");
            }
        return std::string();
    });
    checks.check("SetpointTable.value", "transients are 1 or more", [&] {
        for (const std::int32_t index : {contract::setpoint.transients_1_ghz, contract::setpoint.transients_2_ghz,
                                         contract::setpoint.transients_4_ghz})
            if (!(number(index) >= 1)) return "not so for " + text_of(index);
        return std::string();
    });
    checks.refuses("SetpointTable.index_of", error_number::invalid_call, unknown_text,
                   [&] { table().index_of(unknown_text); });
}

CalibrationObject check_calibrations(ConformanceChecks& checks, InstrumentGlobals& globals) {
    CalibrationObject lent[2];
    for (const contract::Number& polarity : contract::entries<contract::Number>(contract::polarity)) {
        const std::string name = text_of(" (", polarity.name, ")");
        CalibrationObject& calibration = lent[polarity];
        checks.check("CalibrationStore.calibration" + name, "lends an object", [&] {
            calibration = globals.calibrations().calibration(polarity);
            return unless(calibration != nullptr, "nothing");
        });
        if (!calibration) continue;
        check_calibration(checks, name, *calibration);
        checks.check("CalibrationStore.store" + name, "what was stored is lent", [&] {
            const auto before = calibration->clone(), other = calibration->clone();
            if (!before || !other) return std::string("clone gives nothing");
            CalibrationCoefficients moved = before->coefficients();
            moved.B += 1;
            other->set_coefficients(moved);
            const auto lends = [&](const MassTimeCalibration& stored) {
                globals.calibrations().store(polarity, stored);
                const CalibrationObject now = globals.calibrations().calibration(polarity);
                return unless(now && now->coefficients() == stored.coefficients(), "other coefficients");
            };
            const std::string failure = lends(*other);
            return first_of(lends(*before), failure);
        });
    }
    checks.refuses("CalibrationStore.calibration", error_number::invalid_call, text_of(no_polarity),
                   [&] { globals.calibrations().calibration(no_polarity); });
    return lent[contract::polarity.positive];
}

}  // namespace korvane
