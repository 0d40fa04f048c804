// What one run leaves behind: the instrument before and after, the calibrants, and how they were judged.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "korvane/calibrants.h"
#include "korvane/calibration_fit.h"
#include "korvane/secant_search.h"
#include "korvane/verdict.h"

namespace korvane {

/// The samples around one calibrant, for a picture.
struct PeakTrace {
    double start_ns = 0;     ///< flight time of the first sample
    double interval_ns = 0;  ///< between samples
    std::vector<std::int32_t> counts;
    double window_start_ns = 0, window_end_ns = 0;  ///< where the peak was looked for
    double baseline = 0;                            ///< counts
    /// Counts with the baseline, around the highest peak of the window: what the peak finder fitted, or, where it does
    /// not tell, a Gaussian of the recorded centroid, height and width.
    double fit_start_ns = 0, fit_interval_ns = 0;
    std::vector<double> fit;
    bool fit_is_told = false;
};

struct RecordedCalibrant {
    MeasuredCalibrant measured;
    CalibrantVerdict verdict;
    std::optional<PeakTrace> trace;
};

/// A setpoint, named by its internal name, in its own unit.
struct RecordedSetpoint {
    std::string name;
    double before = 0, after = 0;
};

/// One search of a setpoint for an abundance.
struct RecordedSearch {
    std::string setpoint;  ///< internal name
    double mz = 0;
    double target = 0;  ///< counts
    double before = 0, after = 0;
    std::string end;  ///< "within tolerance", "resolution reached", ...
    std::vector<SecantProbe> probes;
};

/// A record of the history. Whatever a run did not come to is empty.
struct TuneRecord {
    std::int64_t id = 0;  ///< given by the history; 0 before
    std::string time;     ///< UTC, "2026-11-22T08:51:49Z"
    std::string kind;     ///< what was run: "measure", "adjust", "calibration fit", "tune", or "mark"
    std::string note;     ///< of the user; of a mark, its word and its text
    std::string version;  ///< of the library
    std::string instrument, serial;
    std::optional<std::uint64_t> seed;  ///< of a simulated instrument
    std::string source, polarity;
    std::vector<RecordedSetpoint> setpoints;                                       ///< all of them
    std::optional<CalibrationCoefficients> calibration_before, calibration_after;  ///< by ns
    std::optional<TuneLimits> limits;
    std::vector<RecordedCalibrant> calibrants;
    std::vector<CalibrantResidual> residuals;  ///< of a calibration fit
    std::vector<RecordedSearch> searches;
    std::string verdict;    ///< "ok", or what is wrong; empty where nothing was judged
    std::string log;        ///< path of the tune log, UTF-8
    std::string recording;  ///< path of the recording, UTF-8, where one was kept
};

}  // namespace korvane
