#include "instrument/conformance/checks.h"

#include <algorithm>
#include <cmath>

#include "platform/files.h"

namespace korvane {

namespace {

std::string text_of_error(const Error& error) {
    return text_of("error ", error.number(), ": ", error.description());
}

}  // namespace

std::string unless_near(double measured, double expected, double part) {
    return unless(std::fabs(measured - expected) <= part * std::fabs(expected),
                  text_of(measured, " instead of ", expected));
}

std::string unless_text(const std::string& text) {
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    return first_of(unless(!text.empty(), "empty"),
                    unless(std::ranges::none_of(text, is_control), "with line breaks or other control characters"));
}

std::string unless_answer(const InstrumentValue& value, const std::string& unit) {
    const auto* text = std::get_if<std::string>(&value);
    if (unit == "text") return text ? unless_text(*text) : "no text";
    if (text) return "a text, [" + *text + "]";
    return unless(std::isfinite(to_double(value)), "no number");
}

bool ConformanceChecks::check(const std::string& operation, const std::string& expected,
                              const std::function<std::string()>& body) {
    std::string failure = "an exception that is no error";
    if (observer) observer({operation, expected, false, {}}, false);
    try {
        failure = body();
    } catch (const Error& error) {
        failure = text_of_error(error);
    } catch (const std::exception& fault) {
        append_text(failure, ": ", fault.what());
    } catch (...) {  // the text that stands there
    }
    results.push_back({operation, expected, failure.empty(), failure});
    if (observer) observer(results.back(), true);
    return failure.empty();
}

void ConformanceChecks::refuses(const std::string& operation, std::int32_t number, const std::string& item,
                                const std::function<void()>& body) {
    check(operation, text_of("error ", number, item.empty() ? "" : " for ", item), [&]() -> std::string {
        try {
            body();
        } catch (const Error& error) {
            if (error.number() != number) throw;
            const bool named = error.description().find(item) != std::string::npos;
            return unless(named, text_of_error(error) + " does not name " + item);
        }
        return "no error";
    });
}

std::vector<ConformanceResult> check_instrument_layer(InstrumentLayer& layer, const ConformanceObserver& observer) {
    ConformanceChecks checks{{}, observer};
    std::unique_ptr<InstrumentGlobals> globals;
    CalibrationObject calibration;
    checks.check("InstrumentLayer.create_globals", "makes a view of the instrument that initialises", [&] {
        auto made = layer.create_globals();
        if (!made) return "made nothing";
        made->initialise();
        globals = std::move(made);
        return "";
    });
    checks.check("InstrumentLayer.create_path_information", "names a base folder, absolute", [&] {
        const auto paths = layer.create_path_information();
        const std::string folder = paths ? paths->base_folder() : "";
        return first_of(unless_text(folder),
                        unless(path_from_utf8(folder).is_absolute(), "[" + folder + "] is not absolute"));
    });
    checks.check("InstrumentLayer.create_logbook_entry", "makes an entry that can be written", [&] {
        const auto entry = layer.create_logbook_entry();
        if (!entry) return "made nothing";
        entry->write(contract::logbook.kind, "Conformance check of the instrument layer", contract::logbook.code, 0, 0,
                     "");
        return "";
    });
    if (globals) {
        check_setpoints(checks, *globals);
        check_state(checks, *globals);
        calibration = check_calibrations(checks, *globals);
        check_spectra(checks, *globals);
    }
    check_peak_finder(checks, layer, calibration);
    return checks.results;
}

}  // namespace korvane
