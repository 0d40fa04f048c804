#include "spectrum/peak_search.h"

#include <cmath>

#include "spectrum/kept_peaks.h"

namespace korvane {

namespace {

constexpr std::int32_t most_abundant_first = 0;
constexpr double ns_per_second = 1e9;
constexpr std::string_view abundance_line = "AUTOTUNE LOG: PeakFind: STATUS: Abundance of most abundant peak: ";

const MassTimeCalibration& required(const CalibrationObject& calibration) {
    if (!calibration) raise_runtime_fault(error_number::object_not_set, "mass-time calibration");
    return *calibration;
}

bool lies_inside(const PeakList& list, double start_ns, double end_ns) {
    const bool after_start = list.GetPeakAttributeInfo(0, true).pkCentroid > start_ns;
    const bool before_end = list.GetPeakAttributeInfo(0, true).pkCentroid < end_ns;
    return after_start && before_end;
}

}  // namespace

double PeakSearch::sampling_interval_ns() const {
    const double interval_ns = session_.instrument->sampling_interval_seconds() * ns_per_second;
    if (!std::isfinite(interval_ns)) raise_runtime_fault(error_number::overflow, "sampling interval");
    return interval_ns;
}

double PeakSearch::ConvertIndexToTimeInNS(double index, double spectrum_start_ns) const {
    return index * sampling_interval_ns() + spectrum_start_ns;
}

void PeakSearch::run(TraceObj& record, Finding& finding, double spectrum_start_ns) const {
    record.TR_PRINT("Before PeakFinder Call");
    PeakFinder& finder = *finding.finder;
    finder.set_sampling_interval_ns(sampling_interval_ns());
    finder.set_minimum_samples(contract::peak_finder.minimum_samples);
    finder.set_baseline_removal(contract::peak_finder.baseline_removal);
    finder.set_search_start_ns(finding.window.start_ns);
    finder.set_search_end_ns(finding.window.end_ns);
    finder.set_samples(copy_.counts());
    record.TR_PRINT("XStartNS is : ", finding.window.start_ns);
    record.TR_PRINT("EndNS is : ", finding.window.end_ns);
    record.TR_PRINT("starttime is : ", spectrum_start_ns);
    finding.list = finder.run(spectrum_start_ns);
    record.TR_PRINT("PeakFinder Call succeeded");
}

PeakSearch::Finding PeakSearch::find_in_calibrant_window(TraceObj& record, std::int32_t mass_index,
                                                         double spectrum_start_ns,
                                                         const VariantArray<double>& samples) {
    Finding finding{session_.platform.instrument->create_peak_finder(), nullptr, {}};
    IndexRange range = windows_.range(mass_index);
    const double last_index = samples.upper_bound();
    if (range.end > last_index) range.end = last_index;
    record.TR_PRINT("Copy Data - actually the whole YData, after fixing problem with pre-amp offset");
    copy_.take(samples);
    record.TR_PRINT("Before masstime creation");
    finding.window = {ConvertIndexToTimeInNS(range.start, spectrum_start_ns),
                      ConvertIndexToTimeInNS(range.end, spectrum_start_ns)};
    session_.log(text_of("AUTOTUNE LOG: PeakFind: STATUS: dSpectrumStartTimeinNS[", spectrum_start_ns,
                         "], dStartIndex[", range.start, "], EndTimeRange[", range.end, "], dStartTimeToSearch[",
                         finding.window.start_ns, "], dEndTimeToSearch[", finding.window.end_ns, "]"));
    run(record, finding, spectrum_start_ns);
    if (finding.list)
        session_.log(
            text_of("AUTOTUNE LOG: PeakFind: STATUS: Number of Peaks found in range: ", finding.list->count()));
    else
        record.TR_PRINT("PeakList is not set by PeakFinder");
    return finding;
}

std::int32_t PeakSearch::FindPeakForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                         const VariantArray<double>& vYData, const CalibrationObject& pMTObj,
                                         WindowPeak& peak) {
    return routine(session_.trace, {"FindPeakForMass"}, [&](TraceObj& record) {
        if (vYData.is_empty()) {
            record.TR_PRINT("Error : Empty Y Data");
            return 0;
        }
        const Finding finding = find_in_calibrant_window(record, massIndex, dSpectrumStartTimeInNS, vYData);
        const std::int32_t found = finding.list ? finding.list->count() : 0;
        if (found != 0) {
            take_most_abundant(record, finding, pMTObj, peak);
        } else if (finding.list) {
            record.TR_PRINT("NO Peaks Found IN the requested time range");
            record.TR_PRINT("NO Peaks Found");
        }
        record.TR_PRINT("Baseline is", peak.baseline);
        session_.log(text_of(abundance_line, peak.nanoseconds.pkHeight));
        return found;
    });
}

void PeakSearch::take_most_abundant(TraceObj& record, const Finding& finding, const CalibrationObject& calibration,
                                    WindowPeak& peak) const {
    record.TR_PRINT("Found Peaks");
    PeakList& list = *finding.list;
    list.order(height_position, most_abundant_first);
    WindowPeak taken{list.GetPeakAttributeInfo(0, true), {}, finding.finder->baseline(), list.uncertainty(0)};
    const double height = taken.nanoseconds.pkHeight;
    if (lies_inside(list, finding.window.start_ns, finding.window.end_ns)) {
        list.convert(required(calibration), convert_to_amu_mode);
        taken.amu = list.GetPeakAttributeInfo(0, true);
        peak = taken;
    }
    record.TR_PRINT("SpectrumMax, #pts, #peaks, PeakAb = [", copy_.maximum(), ", ", copy_.counts().size() - 1, ", ",
                    list.count(), ", ", height, "]");
}

std::int32_t PeakSearch::FindPeakListForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                             const VariantArray<double>& vYData, PeakListObject& peakList,
                                             double& baseLine, const CalibrationObject& pMTObj,
                                             enumPeakInfoUnits PeakInfoUnits) {
    return routine(session_.trace, {"FindPeakListForMass"}, [&](TraceObj& record) {
        if (vYData.is_empty()) {
            record.TR_PRINT("Error : Empty Y Data");
            return 0;
        }
        const Finding finding = find_in_calibrant_window(record, massIndex, dSpectrumStartTimeInNS, vYData);
        const std::int32_t found = finding.list ? finding.list->count() : 0;
        if (finding.list && PeakInfoUnits == enumPeakInfoUnits::amu)
            finding.list->convert(required(pMTObj), convert_to_amu_mode);
        peakList = finding.list;
        if (finding.list) baseLine = finding.finder->baseline();
        if (found == 0) session_.log(text_of(abundance_line, 0));
        return found;
    });
}

PeakListObject PeakSearch::GetPeakList(double dTimeToStartSearchInNS, double dTimeToEndSearchInNS,
                                       std::int32_t MaxPeaks) {
    return routine(session_.trace, {"GetPeakList"}, number_line, [&](TraceObj& record) {
        return peak_list(record, {dTimeToStartSearchInNS, dTimeToEndSearchInNS}, MaxPeaks);
    });
}

PeakListObject PeakSearch::peak_list(TraceObj& record, Window window, std::int32_t most) {
    record.TR_PRINT("maxpeaks: ", most);
    record.TR_PRINT("Getting spectrum data");
    AcquiredSpectrum spectrum;
    session_.control().GetNextSpectrum(spectrum);
    const std::int32_t last = spectrum.y_data.upper_bound();
    record.TR_PRINT("Elements in lYValuesToSearch[] = ", spectrum.y_data.size(),
                    "; copying spectrum data to local copy");
    copy_.take(spectrum.y_data);
    record.TR_PRINT("lYValuesToSearch count ", last + 1);
    record.TR_PRINT("dSpectrumStartTimeInNS = ", spectrum.start_time_ns);
    record.TR_PRINT("GetPeakList.GettingPeakListInTimeWindow[startTimeinNS, endTimeinNS, dSpectrumStartTimeInNS] = [",
                    window.start_ns, ", ", window.end_ns, ", ", spectrum.start_time_ns, "]");
    Finding finding{session_.platform.instrument->create_peak_finder(), nullptr, window};
    run(record, finding, spectrum.start_time_ns);
    release_spectrum();
    if (!finding.list) raise_runtime_fault(error_number::object_not_set, "peak list");
    const std::int32_t found = finding.list->count();
    record.TR_PRINT("# Peak Found: ", found);
    if (most > 0 && found > most) finding.list = most_abundant_peaks(finding.list, most);
    for (std::int32_t i = 0; i < finding.list->count(); ++i) {
        const PeakInfo peak = finding.list->GetPeakAttributeInfo(i, true);
        record.TR_PRINT("Peak[", i, "].pkApexX,.pkHeight: [", peak.pkApexX, ", ", peak.pkHeight, "]");
    }
    return finding.list;
}

}  // namespace korvane
