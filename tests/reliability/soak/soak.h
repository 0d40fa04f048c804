// A long run against an instrument that goes wrong once in a thousand calls of the client: what came out of every call,
// and what the process holds at the end.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace korvane {

struct SoakFigures {
    std::int64_t acquisitions = 0;  ///< spectra handed over
    std::int64_t calls = 0;         ///< of the client, all operations together
    std::int64_t troubles = 0;      ///< calls during which the instrument, or the user, made trouble
    std::int64_t unexplained = 0;   ///< results that the trouble of the call does not explain
    /// "operation, trouble: result" to its number of calls.
    std::map<std::string, std::int64_t> results;
    std::string first_unexplained;

    // Of the process, after a tenth of the run and at its end.
    std::int64_t memory_early_kib = 0, memory_late_kib = 0;
    std::int64_t handles_early = 0, handles_late = 0;
    double virtual_hours = 0;
};

/// Runs until that many spectra have been acquired.
SoakFigures soak(std::int64_t acquisitions, unsigned seed);

}  // namespace korvane
