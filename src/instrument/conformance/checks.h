// The list of checks as it grows.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "korvane/conformance.h"
#include "korvane/instrument_contract.h"
#include "platform/text.h"

namespace korvane {

/// What no instrument has.
inline constexpr contract::Number unknown_number{987654, "", "", "", ""};
inline constexpr contract::Text unknown_text{"NoSuchItem", "", "", "", ""};

/// The text of a failure unless the condition holds.
inline std::string unless(bool condition, const std::string& failure) {
    return condition ? std::string() : failure;
}
/// The first of two failures.
inline std::string first_of(const std::string& failure, const std::string& other) {
    return failure.empty() ? other : failure;
}
/// Fails where two numbers differ by more than a part of the expected one.
std::string unless_near(double measured, double expected, double part);
/// Fails where the text is empty or more than one line.
std::string unless_text(const std::string& text);
/// Fails where the value is not what its unit promises: one line of text for "text", else a finite number.
std::string unless_answer(const InstrumentValue& value, const std::string& unit);

class ConformanceChecks {
public:
    /// Passes when `body` returns no text; what it returns is the detail of the failure. An error is a failure.
    bool check(const std::string& operation, const std::string& expected, const std::function<std::string()>& body);
    /// Passes when `body` raises an error of this number whose description contains `item`.
    void refuses(const std::string& operation, std::int32_t number, const std::string& item,
                 const std::function<void()>& body);
    /// Every entry of a group of the contract is answered, and an unknown one refused where the contract says so.
    template <class Entry, class Entries, class Read>
    void answers(const Entries& entries, const Entry& unknown, const Read& read) {
        for (const Entry& entry : contract::entries<Entry>(entries))
            check(Entries::group.operation, text_of("answers for ", entry.key, " (", entry.name, ")"),
                  [&] { return unless_answer(read(entry), entry.unit); });
        if (Entries::group.error_number != 0)
            refuses(Entries::group.operation, Entries::group.error_number, text_of(unknown.key),
                    [&] { read(unknown); });
    }

    std::vector<ConformanceResult> results;
    ConformanceObserver observer = {};
};

void check_setpoints(ConformanceChecks& checks, InstrumentGlobals& globals);
void check_state(ConformanceChecks& checks, InstrumentGlobals& globals);
/// The calibration lent for positive ions, where there is one.
CalibrationObject check_calibrations(ConformanceChecks& checks, InstrumentGlobals& globals);
void check_spectra(ConformanceChecks& checks, InstrumentGlobals& globals);
void check_peak_finder(ConformanceChecks& checks, InstrumentLayer& layer, const CalibrationObject& calibration);

}  // namespace korvane
