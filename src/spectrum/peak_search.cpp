// The peak finder, run over one stretch of a spectrum, and the peak of one given mass.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "korvane/forwarding.h"
#include "spectrum/parser_state.h"

namespace korvane {

namespace {

constexpr double ns_per_second = 1e9;
constexpr std::string_view abundance_line = "AUTOTUNE LOG: PeakFind: STATUS: Abundance of most abundant peak: ";

struct SearchWindow {
    double start_ns = 0, end_ns = 0;
};

double sampling_interval_ns(const ParserState& state) {
    const double interval_ns = state.instrument->sampling_interval_seconds() * ns_per_second;
    if (!std::isfinite(interval_ns)) raise_runtime_fault(error_number::overflow, "sampling interval");
    return interval_ns;
}

double ConvertIndexToTimeInNS(const ParserState& state, double index, double spectrum_start_ns) {
    return routine(state.trace, [&] { return index * sampling_interval_ns(state) + spectrum_start_ns; });
}

/// The peaks that `finder` sees in the window of the spectrum taken last; null where it returns no list.
PeakListObject run_finder(const ParserState& state, TraceObj& record, PeakFinder& finder, const SearchWindow& window,
                          double spectrum_start_ns) {
    record.TR_PRINT("Before PeakFinder Call");
    finder.set_sampling_interval_ns(sampling_interval_ns(state));
    finder.set_minimum_samples(contract::peak_finder.minimum_samples);
    finder.set_baseline_removal(contract::peak_finder.baseline_removal);
    finder.set_search_start_ns(window.start_ns);
    finder.set_search_end_ns(window.end_ns);
    finder.set_samples(state.searched.counts());
    record.TR_PRINT("XStartNS is : ", window.start_ns);
    record.TR_PRINT("EndNS is : ", window.end_ns);
    record.TR_PRINT("starttime is : ", spectrum_start_ns);
    PeakListObject list = finder.run(spectrum_start_ns);
    record.TR_PRINT("PeakFinder Call succeeded");
    return list;
}

/// The search of a calibrant position's window.
struct CalibrantSearch {
    CalibrantSearch(ParserState& state, TraceObj& record, std::int32_t mass_index, double spectrum_start_ns,
                    const VariantArray<double>& samples)
        : finder(state.platform.instrument->create_peak_finder()) {
        if (mass_index < 0 || static_cast<std::size_t>(mass_index) >= state.windows.size())
            raise_runtime_fault(error_number::subscript, "calibrant position ", mass_index);
        IndexRange range = state.windows[static_cast<std::size_t>(mass_index)];
        const std::int32_t last = samples.upper_bound();
        range.end = {std::min(range.end.index, static_cast<double>(last)), std::min(range.end.searched, last)};
        record.TR_PRINT("Copy Data - actually the whole YData, after fixing problem with pre-amp offset");
        state.searched.take(samples);
        record.TR_PRINT("Before masstime creation");
        window = {ConvertIndexToTimeInNS(state, range.start.searched, spectrum_start_ns),
                  ConvertIndexToTimeInNS(state, range.end.searched, spectrum_start_ns)};
        state.log("AUTOTUNE LOG: PeakFind: STATUS: dSpectrumStartTimeinNS[", spectrum_start_ns, "], dStartIndex[",
                  range.start.index, "], EndTimeRange[", range.end.index, "], dStartTimeToSearch[", window.start_ns,
                  "], dEndTimeToSearch[", window.end_ns, "]");
        list = run_finder(state, record, *finder, window, spectrum_start_ns);
        if (list)
            state.log("AUTOTUNE LOG: PeakFind: STATUS: Number of Peaks found in range: ", found = list->count());
        else
            record.TR_PRINT("PeakList is not set by PeakFinder");
    }

    void convert_to_amu(const CalibrationObject& calibration) const {
        if (!calibration) raise_runtime_fault(error_number::object_not_set, "mass-time calibration");
        list->convert(*calibration, convert_to_amu_mode);
    }
    bool first_lies_inside() const {
        const bool after_start = list->GetPeakAttributeInfo(0, true).pkCentroid > window.start_ns;
        const bool before_end = list->GetPeakAttributeInfo(0, true).pkCentroid < window.end_ns;
        return after_start && before_end;
    }

    std::unique_ptr<PeakFinder> finder;
    SearchWindow window;
    PeakListObject list;
    std::int32_t found = 0;
};

/// The `most` most abundant peaks of `all`, in the order they had there. Ties keep the earlier peak.
class KeptPeaks final : public ForwardingPeakList {
public:
    KeptPeaks(const PeakListObject& all, std::int32_t most)
        : ForwardingPeakList(all), kept_(static_cast<std::size_t>(all->count())) {
        std::iota(kept_.begin(), kept_.end(), 0);
        order(height_position, most_abundant_first);
        kept_.resize(static_cast<std::size_t>(most));
        std::sort(kept_.begin(), kept_.end());
    }

    std::int32_t count() const override { return static_cast<std::int32_t>(kept_.size()); }
    void order(std::int32_t position, std::int32_t direction) override {
        const auto value = [&](std::int32_t index) {
            return target().GetPeakAttributeInfo(index, true).value(position);
        };
        std::stable_sort(kept_.begin(), kept_.end(), [&](std::int32_t a, std::int32_t b) {
            return direction == most_abundant_first ? value(a) > value(b) : value(a) < value(b);
        });
    }
    PeakInfo GetPeakAttributeInfo(std::int32_t index, bool current_units) const override {
        return target().GetPeakAttributeInfo(kept(index), current_units);
    }
    std::optional<PeakUncertainty> uncertainty(std::int32_t index) const override {
        return target().uncertainty(kept(index));
    }
    std::optional<PeakQuality> quality(std::int32_t index) const override { return target().quality(kept(index)); }

private:
    std::int32_t kept(std::int32_t index) const {
        if (index < 0 || index >= count()) raise_runtime_fault(error_number::subscript, "peak ", index);
        return kept_[static_cast<std::size_t>(index)];
    }

    std::vector<std::int32_t> kept_;  // indexes in the whole list, which is never reordered
};

[[noreturn]] void raise_no_peaks() {
    // Callers of all three members match on the singular routine's name.
    throw Error(error_number::routine_detected, "GetPeakAttribute()", std::string(no_peaks_description));
}

/// The peaks up to `mass_window` amu to either side, searched once more in a fresh spectrum where there are none; null
/// where neither spectrum shows one.
PeakListObject search_twice(SpectrumParser& parser, TraceObj& record, const MassTimeCalibration& calibration,
                            double target_mass, double mass_window, enumPeakInfoUnits units) {
    const double start_ns = calibration.time_from_mass(target_mass - mass_window);
    const double end_ns = calibration.time_from_mass(target_mass + mass_window);
    record.TR_PRINT("PeakListWindowStart[", start_ns, "], PeakListWindowEnd[", end_ns, "]");
    PeakListObject list = parser.GetPeakList(start_ns, end_ns);
    if (list->count() == 0) list = parser.GetPeakList(start_ns, end_ns);
    if (list->count() == 0) return nullptr;
    if (units == enumPeakInfoUnits::amu) list->convert(calibration, convert_to_amu_mode);
    return list;
}

}  // namespace

std::int32_t SpectrumParser::FindPeakForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                             const VariantArray<double>& vYData, PeakInfo& peakInfoInNanoseconds,
                                             PeakInfo& peakInfoInAmu, double& baseLine,
                                             const CalibrationObject& pMTObj) {
    Impl& state = *impl_;
    return routine(state.trace, [&](TraceObj& record) {
        state.taken_uncertainty.reset();
        state.taken_quality.reset();
        if (vYData.is_empty()) {
            record.TR_PRINT("Error : Empty Y Data");
            return 0;
        }
        const CalibrantSearch search(state, record, massIndex, dSpectrumStartTimeInNS, vYData);
        if (search.found != 0) {
            record.TR_PRINT("Found Peaks");
            search.list->order(height_position, most_abundant_first);
            const PeakInfo peak = search.list->GetPeakAttributeInfo(0, true);
            const double found_baseline = search.finder->baseline();
            const auto uncertainty = search.list->uncertainty(0);
            const auto quality = search.list->quality(0);
            if (search.first_lies_inside()) {
                peakInfoInNanoseconds = peak;
                baseLine = found_baseline;
                search.convert_to_amu(pMTObj);
                peakInfoInAmu = search.list->GetPeakAttributeInfo(0, true);
                state.taken_uncertainty = uncertainty;
                state.taken_quality = quality;
            }
            if (record.is_on())
                record.TR_PRINT("SpectrumMax, #pts, #peaks, PeakAb = [", state.searched.maximum(), ", ",
                                state.searched.counts().size() - 1, ", ", search.list->count(), ", ", peak.pkHeight,
                                "]");
        } else if (search.list) {
            record.TR_PRINT("NO Peaks Found IN the requested time range");
            record.TR_PRINT("NO Peaks Found");
        }
        record.TR_PRINT("Baseline is", baseLine);
        state.log(abundance_line, peakInfoInNanoseconds.pkHeight);
        return search.found;
    });
}

std::int32_t SpectrumParser::FindPeakListForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                                 const VariantArray<double>& vYData, PeakListObject& peakList,
                                                 double& baseLine, const CalibrationObject& pMTObj,
                                                 enumPeakInfoUnits PeakInfoUnits) {
    Impl& state = *impl_;
    return routine(state.trace, [&](TraceObj& record) {
        if (vYData.is_empty()) {
            record.TR_PRINT("Error : Empty Y Data");
            return 0;
        }
        const CalibrantSearch search(state, record, massIndex, dSpectrumStartTimeInNS, vYData);
        if (search.list && PeakInfoUnits == enumPeakInfoUnits::amu) search.convert_to_amu(pMTObj);
        peakList = search.list;
        if (search.list) baseLine = search.finder->baseline();
        if (search.found == 0) state.log(abundance_line, 0);
        return search.found;
    });
}

PeakListObject SpectrumParser::GetPeakList(double dTimeToStartSearchInNS, double dTimeToEndSearchInNS,
                                           std::int32_t MaxPeaks) {
    Impl& state = *impl_;
    return routine(state.trace, numbered_line, [&](TraceObj& record) {
        record.TR_PRINT("maxpeaks: ", MaxPeaks);
        record.TR_PRINT("Getting spectrum data");
        AcquiredSpectrum spectrum;
        state.instrument.control().GetNextSpectrum(spectrum);
        const std::int32_t last = spectrum.y_data.upper_bound();
        record.TR_PRINT("Elements in lYValuesToSearch[] = ", spectrum.y_data.size(),
                        "; copying spectrum data to local copy");
        state.searched.take(spectrum.y_data);
        record.TR_PRINT("lYValuesToSearch count ", last + 1);
        record.TR_PRINT("dSpectrumStartTimeInNS = ", spectrum.start_time_ns);
        record.TR_PRINT(
            "GetPeakList.GettingPeakListInTimeWindow[startTimeinNS, endTimeinNS, dSpectrumStartTimeInNS] = [",
            dTimeToStartSearchInNS, ", ", dTimeToEndSearchInNS, ", ", spectrum.start_time_ns, "]");
        const auto finder = state.platform.instrument->create_peak_finder();
        PeakListObject list =
            run_finder(state, record, *finder, {dTimeToStartSearchInNS, dTimeToEndSearchInNS}, spectrum.start_time_ns);
        state.searched.release();
        if (!list) raise_runtime_fault(error_number::object_not_set, "peak list");
        const std::int32_t found = list->count();
        record.TR_PRINT("# Peak Found: ", found);
        if (MaxPeaks > 0 && found > MaxPeaks) list = std::make_shared<KeptPeaks>(list, MaxPeaks);
        for (std::int32_t i = 0; i < list->count(); ++i) {
            const PeakInfo peak = list->GetPeakAttributeInfo(i, true);
            record.TR_PRINT("Peak[", i, "].pkApexX,.pkHeight: [", peak.pkApexX, ", ", peak.pkHeight, "]");
        }
        return list;
    });
}

PeakInfo SpectrumParser::GetPeakAttributes(double targetMass, double dMassWindow, enumPeakInfoUnits PeakInfoUnits,
                                           bool bThrowErrorOnNoPeaksFound) {
    return routine(impl_->trace, [&](TraceObj& record) {
        const CalibrationObject calibration = impl_->current().calibration();
        const auto list = search_twice(*this, record, *calibration, targetMass, dMassWindow, PeakInfoUnits);
        if (!list && bThrowErrorOnNoPeaksFound) raise_no_peaks();
        if (!list) return PeakInfo{};
        list->order(height_position, most_abundant_first);
        return list->GetPeakAttributeInfo(0, true);
    });
}

PeakListObject SpectrumParser::GetPeakListOfOnlyThisOneMass(double targetMass, double dMassWindow,
                                                            enumPeakInfoUnits PeakInfoUnits) {
    return routine(impl_->trace, [&](TraceObj& record) {
        const CalibrationObject calibration = impl_->current().calibration();
        auto list = search_twice(*this, record, *calibration, targetMass, dMassWindow, PeakInfoUnits);
        if (!list) raise_no_peaks();
        return list;
    });
}

double SpectrumParser::GetPeakAttribute(PeakCalcType CalcType, double targetMass, double dMassWindow,
                                        bool bOKToReturnZero, bool bThrowErrorOnNoPeaksFound) {
    const auto zero_where_no_peaks = [&](TraceObj& record, RoutineName name, const Error& error) {
        NamedLine{"error"}(record, name, error);
        if (!bOKToReturnZero || !means_no_peaks(error)) throw error;
        record.TR_PRINT("no peaks returned, returning 0 height");
        return 0.0;
    };
    const auto peak = [&](enumPeakInfoUnits units) {
        return GetPeakAttributes(targetMass, dMassWindow, units, bThrowErrorOnNoPeaksFound);
    };
    return routine(impl_->trace, zero_where_no_peaks, [&] {
        switch (CalcType) {
            case PeakCalcType::TimeCentroid:
                return peak(enumPeakInfoUnits::ns).pkCentroid;
            case PeakCalcType::MassCentroid: {
                const CalibrationObject calibration = impl_->tune.GetCurrentCalibrationObjFromDD();
                return calibration->mass_from_time(peak(enumPeakInfoUnits::ns).pkCentroid);
            }
            case PeakCalcType::Resolution:
                return peak(enumPeakInfoUnits::amu).pkResolution;
            case PeakCalcType::Width:
                return peak(enumPeakInfoUnits::amu).pkWidth;
            case PeakCalcType::Height:
                return peak(enumPeakInfoUnits::amu).pkHeight;
            case PeakCalcType::Area:
                return peak(enumPeakInfoUnits::amu).pkArea;
        }
        return 0.0;
    });
}

}  // namespace korvane
