#include "instrument/conformance/checks.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

constexpr std::int32_t experiment_parameter = 23;
constexpr std::int32_t quadrupole_channel = 22;
constexpr const char* missing_name = "NoSuchItem";

void check_texts(ConformanceChecks& checks, InstrumentGlobals& globals) {
    const auto text = [&](const std::string& operation, const std::function<std::string()>& read) {
        checks.check("InstrumentGlobals." + operation, "not empty", [&] { return unless(!read().empty(), "empty"); });
    };
    text("parameter_name", [&] { return globals.parameter_name(experiment_parameter); });
    text("source_type", [&] { return globals.source_type(); });
    text("source_word", [&] { return globals.source_word(); });
    text("time_stamp", [&] { return globals.time_stamp(); });
    text("title", [&] { return globals.title(); });
}

void check_dictionary(ConformanceChecks& checks, InstrumentGlobals& globals) {
    for (const char* const item :
         {"CoefA", "CoefB", "CalReserved1", "CalTraditionalWeighting", "CalPolynomialWeighting"})
        checks.check("InstrumentGlobals.dictionary_item", std::string("a number for ") + item,
                     [&] { return unless(std::isfinite(to_double(globals.dictionary_item(item))), "none"); });
    checks.refuses("InstrumentGlobals.dictionary_item", "error 5 naming an unknown item", error_number::invalid_call,
                   missing_name, [&] { globals.dictionary_item(missing_name); });
    checks.check("InstrumentGlobals.actual_value", "a number for ACTUAL.NDR[NRDYSTATE]", [&] {
        return unless(std::isfinite(to_double(globals.actual_value("ACTUAL.NDR[NRDYSTATE]", ""))), "none");
    });
    checks.refuses("InstrumentGlobals.actual_value", "error 5 naming an unknown register", error_number::invalid_call,
                   missing_name, [&] { globals.actual_value(missing_name, ""); });
    checks.check("InstrumentGlobals.sampling_interval_seconds", "between 0 and a microsecond", [&] {
        const double interval = globals.sampling_interval_seconds();
        return unless(interval > 0 && interval < 1e-6, number_text(interval));
    });
}

void check_hardware(ConformanceChecks& checks, InstrumentGlobals& globals) {
    checks.check("HardwareQueries.model", "not empty",
                 [&] { return unless(!globals.hardware().model().empty(), "empty"); });
    checks.check("HardwareQueries.option_present", "answers for the options of codes 4 and 13", [&] {
        HardwareQueries& hardware = globals.hardware();
        for (const std::int32_t code : {4, 13}) hardware.option_present(hardware.option_name(code));
        return std::string();
    });
    checks.check("HardwareQueries.option_present", "an unknown option is not present, or refused by name", [&] {
        try {
            return unless(!globals.hardware().option_present(missing_name), "it is present");
        } catch (const Error& error) {
            if (error.description().find(missing_name) == std::string::npos) throw;
            return std::string();
        }
    });
    checks.check("HardwareQueries", "answers the queries of the flight tube, acceleration and abundance reduction",
                 [&] {
                     HardwareQueries& hardware = globals.hardware();
                     hardware.has_160cm_flight_tube();
                     hardware.has_positive_post_acceleration();
                     hardware.abundance_reduction_setting();
                     return std::string();
                 });
}

void check_firmware(ConformanceChecks& checks, InstrumentGlobals& globals) {
    checks.check("FirmwareChannels.read, write", "channel 22 keeps its value", [&] {
        FirmwareChannels& firmware = globals.firmware();
        const double before = firmware.read(quadrupole_channel);
        firmware.write(quadrupole_channel, static_cast<float>(before));
        const double after = firmware.read(quadrupole_channel);
        return unless(std::fabs(after - before) <= 1e-3 * std::fabs(before),
                      number_text(after) + " instead of " + number_text(before));
    });
}

}  // namespace

void check_state(ConformanceChecks& checks, InstrumentGlobals& globals) {
    check_texts(checks, globals);
    check_dictionary(checks, globals);
    check_hardware(checks, globals);
    check_firmware(checks, globals);
}

}  // namespace korvane
