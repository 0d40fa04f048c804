// The list that the embedded peak finder returns.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "korvane/peak_finder.h"

namespace korvane {

/// What was fitted to the samples: a Gaussian, with late ions, on a baseline.
struct FittedSignal {
    double height = 0;  ///< counts above the baseline
    double centre_ns = 0, sigma_ns = 1;
    double late_part = 0;  ///< of the ions
    double baseline = 0;   ///< counts
};

/// One peak in ns, with its standard errors.
struct MeasuredPeak {
    PeakInfo record;
    PeakUncertainty uncertainty;
    PeakQuality quality = {};
    FittedSignal signal = {};
};

/// Peaks in the order of flight time until `order` is called.
class MeasuredPeakList final : public PeakList {
public:
    explicit MeasuredPeakList(const std::vector<MeasuredPeak>& peaks_ns);

    std::int32_t count() const override { return static_cast<std::int32_t>(peaks_.size()); }
    /// Ties keep their order.
    void order(std::int32_t position, std::int32_t direction) override;
    PeakInfo GetPeakAttributeInfo(std::int32_t index, bool current_units) const override;
    void convert(const MassTimeCalibration& calibration, std::int32_t mode) override;
    std::optional<PeakUncertainty> uncertainty(std::int32_t index) const override;
    std::optional<PeakQuality> quality(std::int32_t index) const override;
    std::vector<double> fitted_counts(double start_ns, double interval_ns, std::size_t count) const override;

private:
    struct Entry {
        PeakInfo ns;
        MeasuredPeak current;  // ns, or amu once converted
    };
    const Entry& entry(std::int32_t index) const;

    std::vector<Entry> peaks_;
    bool converted_ = false;
};

}  // namespace korvane
