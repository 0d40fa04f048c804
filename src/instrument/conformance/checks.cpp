#include "instrument/conformance/checks.h"

namespace korvane {

namespace {

std::string text_of_error(const Error& error) {
    return "error " + std::to_string(error.number()) + ": " + error.description();
}

/// Error of the body, or a text of what came instead.
std::string outcome(const std::function<void()>& body, std::int32_t number, const std::string& item) {
    try {
        body();
    } catch (const Error& error) {
        if (error.number() != number) return text_of_error(error);
        return unless(error.description().find(item) != std::string::npos,
                      text_of_error(error) + " does not name " + item);
    } catch (const std::exception& fault) {
        return std::string("an exception that is no error: ") + fault.what();
    }
    return "no error";
}

}  // namespace

void ConformanceChecks::check(const std::string& operation, const std::string& expected,
                              const std::function<std::string()>& body) {
    std::string failure;
    try {
        failure = body();
    } catch (const Error& error) {
        failure = text_of_error(error);
    } catch (const std::exception& fault) {
        failure = std::string("an exception that is no error: ") + fault.what();
    }
    results.push_back({operation, expected, failure.empty(), failure});
}

void ConformanceChecks::refuses(const std::string& operation, const std::string& expected, std::int32_t number,
                                const std::string& item, const std::function<void()>& body) {
    const std::string failure = outcome(body, number, item);
    results.push_back({operation, expected, failure.empty(), failure});
}

std::vector<ConformanceResult> check_instrument_layer(InstrumentLayer& layer) {
    ConformanceChecks checks;
    std::unique_ptr<InstrumentGlobals> globals;
    checks.check("InstrumentLayer.create_globals", "makes a view of the instrument that initialises", [&] {
        globals = layer.create_globals();
        if (!globals) return std::string("made nothing");
        globals->initialise();
        return std::string();
    });
    checks.check("InstrumentLayer.create_path_information", "names a base folder", [&] {
        const auto paths = layer.create_path_information();
        return unless(paths && !paths->base_folder().empty(), "no base folder");
    });
    checks.check("InstrumentLayer.create_logbook_entry", "makes an entry that can be written", [&] {
        const auto entry = layer.create_logbook_entry();
        if (!entry) return std::string("made nothing");
        entry->write(32, "Conformance check of the instrument layer", 5, 0, 0, "");
        return std::string();
    });
    if (globals) {
        check_setpoints(checks, *globals);
        check_control(checks, *globals);
        check_calibrations(checks, *globals);
        check_state(checks, *globals);
    }
    check_peak_finder(checks, layer);
    return checks.results;
}

}  // namespace korvane
