// Mass errors of the calibrants over repeated spectra.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "korvane/tune_globals.h"
#include "session.h"

namespace korvane::program {

struct MassErrorStatistics {
    double mass = 0;
    std::int64_t found = 0;           ///< in so many spectra
    std::optional<double> mean_ppm;   ///< over these; nothing when never found
    std::optional<double> stdev_ppm;  ///< sample standard deviation; nothing when found less than twice
};

/// One row a calibrant of the default list.
std::vector<MassErrorStatistics> mass_error_statistics(Session& session, TuneGlobals& globals, std::int64_t repeats);

}  // namespace korvane::program
