// Seam: the peak finder and the list of peaks that it returns.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "korvane/export.h"
#include "korvane/mass_time.h"
#include "korvane/records.h"

namespace korvane {

/// Conversion mode of a peak list: amu.
inline constexpr std::int32_t convert_to_amu_mode = 2;
/// Record positions that the library uses by number.
inline constexpr std::int32_t centroid_position = 3;
inline constexpr std::int32_t height_position = 5;
/// Full width at half maximum of a Gaussian over its standard deviation, 2 sqrt(2 ln 2).
inline constexpr double fwhm_per_sigma = 2.3548200450309493;

class KORVANE_API PeakList {
public:
    virtual ~PeakList() = default;

    virtual std::int32_t count() const = 0;
    /// Orders by a record position (0 to 7); direction 0 puts the largest value first, any other the smallest.
    virtual void order(std::int32_t position, std::int32_t direction) = 0;
    /// Record of a peak, index from 0; error 9 outside. `current_units` false gives nanoseconds even after a
    /// conversion.
    virtual PeakInfo GetPeakAttributeInfo(std::int32_t index, bool current_units) const = 0;
    /// Converts all records from ns to amu; `mode` other than `convert_to_amu_mode` is error 5. Converting twice is
    /// converting once.
    virtual void convert(const MassTimeCalibration& calibration, std::int32_t mode) = 0;
    /// Stated standard errors of a peak, in the units of the list; nothing from a finder that states none.
    virtual std::optional<PeakUncertainty> uncertainty(std::int32_t /*index*/) const { return std::nullopt; }
    /// What is known about a peak besides; nothing from a finder that tells nothing.
    virtual std::optional<PeakQuality> quality(std::int32_t /*index*/) const { return std::nullopt; }
    /// Counts that all peaks of the list make together as they were fitted, with the baseline, at `count` flight times
    /// from `start_ns` on; no elements from a finder that does not tell, or without a peak.
    virtual std::vector<double> fitted_counts(double /*start_ns*/, double /*interval_ns*/,
                                              std::size_t /*count*/) const {
        return {};
    }
};

using PeakListObject = std::shared_ptr<PeakList>;

/// Searches an intensity array between two flight times. Configured in the order of the members below, then run.
class KORVANE_API PeakFinder {
public:
    virtual ~PeakFinder() = default;

    virtual void set_sampling_interval_ns(double interval_ns) = 0;
    /// Option "least number of samples of a peak".
    virtual void set_minimum_samples(std::int32_t samples) = 0;
    /// Option "baseline removal": 1 on, 0 off.
    virtual void set_baseline_removal(std::int32_t on) = 0;
    virtual void set_search_start_ns(double time_ns) = 0;
    virtual void set_search_end_ns(double time_ns) = 0;
    /// The whole spectrum, counts per sample; must stay alive until `run` returns.
    virtual void set_samples(std::span<const std::int32_t> counts) = 0;
    /// `start_time_ns` is the flight time of sample 0. May return null.
    virtual PeakListObject run(double start_time_ns) = 0;
    /// Baseline of the last run, counts.
    virtual double baseline() const = 0;
};

}  // namespace korvane
