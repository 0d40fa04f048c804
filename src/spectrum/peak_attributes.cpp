// The peak of one given mass in the spectrum that the instrument is showing.
#include "spectrum/parser_state.h"

namespace korvane {

namespace {

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
