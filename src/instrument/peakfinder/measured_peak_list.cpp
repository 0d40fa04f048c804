#include "instrument/peakfinder/measured_peak_list.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "instrument/peakfinder/peak_shape.h"

namespace korvane {

namespace {

void convert_to_amu(const MassTimeCalibration& calibration, MeasuredPeak& peak) {
    const PeakInfo ns = peak.record;
    PeakInfo& amu = peak.record;
    for (const auto place : {&PeakInfo::pkApexX, &PeakInfo::pkStart, &PeakInfo::pkCentroid, &PeakInfo::pkEnd})
        amu.*place = calibration.mass_from_time(ns.*place);
    amu.pkWidth = calibration.mass_from_time(ns.pkCentroid + 0.5 * ns.pkWidth) -
                  calibration.mass_from_time(ns.pkCentroid - 0.5 * ns.pkWidth);
    amu.pkResolution = amu.pkWidth > 0 ? amu.pkCentroid / amu.pkWidth : 0;
    const double amu_per_ns = ns.pkWidth > 0 ? amu.pkWidth / ns.pkWidth : 0;
    peak.uncertainty.centroid *= std::abs(amu_per_ns);
    peak.uncertainty.width *= std::abs(amu_per_ns);
}

}  // namespace

MeasuredPeakList::MeasuredPeakList(const std::vector<MeasuredPeak>& peaks_ns) {
    peaks_.reserve(peaks_ns.size());
    for (const auto& peak : peaks_ns) peaks_.push_back({peak.record, peak});
}

const MeasuredPeakList::Entry& MeasuredPeakList::entry(std::int32_t index) const {
    if (index < 0 || index >= count()) raise_runtime_fault(error_number::subscript, "peak " + std::to_string(index));
    return peaks_[static_cast<std::size_t>(index)];
}

void MeasuredPeakList::order(std::int32_t position, std::int32_t direction) {
    PeakInfo{}.value(position);  // refuses a position outside the record, also for an empty list
    std::ranges::stable_sort(peaks_, [&](const Entry& left, const Entry& right) {
        const double left_value = left.current.record.value(position);
        const double right_value = right.current.record.value(position);
        return direction == 0 ? left_value > right_value : left_value < right_value;
    });
}

PeakInfo MeasuredPeakList::GetPeakAttributeInfo(std::int32_t index, bool current_units) const {
    return current_units ? entry(index).current.record : entry(index).ns;
}

void MeasuredPeakList::convert(const MassTimeCalibration& calibration, std::int32_t mode) {
    if (mode != convert_to_amu_mode)
        raise_runtime_fault(error_number::invalid_call, "peak conversion mode " + std::to_string(mode));
    if (converted_) return;
    // A conversion that fails leaves the list as it was.
    std::vector<Entry> converted = peaks_;
    for (auto& peak : converted) convert_to_amu(calibration, peak.current);
    peaks_ = std::move(converted);
    converted_ = true;
}

std::optional<PeakUncertainty> MeasuredPeakList::uncertainty(std::int32_t index) const {
    return entry(index).current.uncertainty;
}

std::optional<PeakQuality> MeasuredPeakList::quality(std::int32_t index) const {
    return entry(index).current.quality;
}

std::vector<double> MeasuredPeakList::fitted_counts(double start_ns, double interval_ns, std::size_t count) const {
    if (peaks_.empty()) return {};
    const double middle_ns = start_ns + 0.5 * interval_ns * static_cast<double>(count);
    const auto distance = [&](const Entry& peak) { return std::abs(peak.current.signal.centre_ns - middle_ns); };
    std::vector<double> counts(count, std::ranges::min_element(peaks_, {}, distance)->current.signal.baseline);
    for (const Entry& peak : peaks_) {
        const FittedSignal& signal = peak.current.signal;
        const SampleAxis axis{start_ns, interval_ns};
        add_late_peak_samples({signal.height, axis.sample(signal.centre_ns), signal.sigma_ns / interval_ns},
                              signal.late_part, 0, counts);
    }
    return counts;
}

}  // namespace korvane
