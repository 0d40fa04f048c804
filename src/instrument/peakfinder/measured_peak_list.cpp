#include "instrument/peakfinder/measured_peak_list.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>

namespace korvane {

namespace {

MeasuredPeak to_amu(const MeasuredPeak& peak, const MassTimeCalibration& calibration) {
    const PeakInfo& ns = peak.record;
    MeasuredPeak amu = peak;
    amu.record.pkApexX = calibration.mass_from_time(ns.pkApexX);
    amu.record.pkStart = calibration.mass_from_time(ns.pkStart);
    amu.record.pkCentroid = calibration.mass_from_time(ns.pkCentroid);
    amu.record.pkEnd = calibration.mass_from_time(ns.pkEnd);
    amu.record.pkWidth = calibration.mass_from_time(ns.pkCentroid + 0.5 * ns.pkWidth) -
                         calibration.mass_from_time(ns.pkCentroid - 0.5 * ns.pkWidth);
    amu.record.pkResolution = amu.record.pkWidth > 0 ? amu.record.pkCentroid / amu.record.pkWidth : 0;
    const double amu_per_ns = ns.pkWidth > 0 ? amu.record.pkWidth / ns.pkWidth : 0;
    amu.uncertainty.centroid *= std::abs(amu_per_ns);
    amu.uncertainty.width *= std::abs(amu_per_ns);
    return amu;
}

}  // namespace

std::size_t MeasuredPeakList::checked_index(std::int32_t index) const {
    if (index < 0 || index >= count()) raise_runtime_fault(error_number::subscript, "peak " + std::to_string(index));
    return static_cast<std::size_t>(index);
}

void MeasuredPeakList::order(std::int32_t position, std::int32_t direction) {
    PeakInfo{}.value(position);  // refuses a position outside the record, also for an empty list
    const auto& keys = current_peaks();
    std::vector<std::size_t> ranks(keys.size());
    std::iota(ranks.begin(), ranks.end(), std::size_t{0});
    std::stable_sort(ranks.begin(), ranks.end(), [&](std::size_t left, std::size_t right) {
        const double left_value = keys[left].record.value(position);
        const double right_value = keys[right].record.value(position);
        return direction == 0 ? left_value > right_value : left_value < right_value;
    });
    auto reorder = [&](std::vector<MeasuredPeak>& peaks) {
        std::vector<MeasuredPeak> ordered;
        ordered.reserve(peaks.size());
        for (const auto rank : ranks) ordered.push_back(peaks[rank]);
        peaks = std::move(ordered);
    };
    if (converted_) reorder(peaks_amu_);
    reorder(peaks_ns_);
}

PeakInfo MeasuredPeakList::GetPeakAttributeInfo(std::int32_t index, bool current_units) const {
    const std::size_t checked = checked_index(index);
    return current_units ? current_peaks()[checked].record : peaks_ns_[checked].record;
}

void MeasuredPeakList::convert(const MassTimeCalibration& calibration, std::int32_t mode) {
    if (mode != convert_to_amu_mode)
        raise_runtime_fault(error_number::invalid_call, "peak conversion mode " + std::to_string(mode));
    if (converted_) return;
    std::vector<MeasuredPeak> converted;
    converted.reserve(peaks_ns_.size());
    for (const auto& peak : peaks_ns_) converted.push_back(to_amu(peak, calibration));
    peaks_amu_ = std::move(converted);
    converted_ = true;
}

std::optional<PeakUncertainty> MeasuredPeakList::uncertainty(std::int32_t index) const {
    return current_peaks()[checked_index(index)].uncertainty;
}

}  // namespace korvane
