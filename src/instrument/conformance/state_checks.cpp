// What the instrument says of itself, its hardware and its firmware.
#include "instrument/conformance/checks.h"

namespace korvane {

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

}  // namespace korvane
