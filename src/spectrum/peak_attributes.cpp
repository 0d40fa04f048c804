#include "spectrum/peak_attributes.h"

#include "spectrum/no_peaks.h"

namespace korvane {

namespace {

constexpr std::int32_t most_abundant_first = 0;
constexpr std::int32_t all_peaks = 0;

[[noreturn]] void raise_no_peaks() {
    // Callers of all three members match on the singular routine's name.
    throw Error(error_number::routine_detected, "GetPeakAttribute()", std::string(no_peaks_description));
}

}  // namespace

PeakListObject PeakAttributes::search_twice(TraceObj& record, const MassTimeCalibration& calibration,
                                            double target_mass, double mass_window) {
    const double start_ns = calibration.time_from_mass(target_mass - mass_window);
    const double end_ns = calibration.time_from_mass(target_mass + mass_window);
    record.TR_PRINT("PeakListWindowStart[", start_ns, "], PeakListWindowEnd[", end_ns, "]");
    PeakListObject list = search_.GetPeakList(start_ns, end_ns, all_peaks);
    if (list->count() == 0) list = search_.GetPeakList(start_ns, end_ns, all_peaks);
    return list->count() == 0 ? nullptr : list;
}

PeakInfo PeakAttributes::GetPeakAttributes(double targetMass, double dMassWindow, enumPeakInfoUnits PeakInfoUnits,
                                           bool bThrowErrorOnNoPeaksFound) {
    return routine(session_.trace, {"GetPeakAttributes"}, [&](TraceObj& record) {
        const CalibrationObject calibration = session_.calibration_of_current_polarity();
        const PeakListObject list = search_twice(record, *calibration, targetMass, dMassWindow);
        if (!list && bThrowErrorOnNoPeaksFound) raise_no_peaks();
        if (!list) return PeakInfo{};
        if (PeakInfoUnits == enumPeakInfoUnits::amu) list->convert(*calibration, convert_to_amu_mode);
        list->order(height_position, most_abundant_first);
        return list->GetPeakAttributeInfo(0, true);
    });
}

PeakListObject PeakAttributes::GetPeakListOfOnlyThisOneMass(double targetMass, double dMassWindow,
                                                            enumPeakInfoUnits PeakInfoUnits) {
    return routine(session_.trace, {"GetPeakListOfOnlyThisOneMass"}, [&](TraceObj& record) {
        const CalibrationObject calibration = session_.calibration_of_current_polarity();
        PeakListObject list = search_twice(record, *calibration, targetMass, dMassWindow);
        if (!list) raise_no_peaks();
        if (PeakInfoUnits == enumPeakInfoUnits::amu) list->convert(*calibration, convert_to_amu_mode);
        return list;
    });
}

double PeakAttributes::GetPeakAttribute(PeakCalcType CalcType, double targetMass, double dMassWindow,
                                        bool bOKToReturnZero, bool bThrowErrorOnNoPeaksFound) {
    const auto zero_without_peaks = [&](TraceObj& record, RoutineName name, const Error& error) {
        NamedLine{"error"}(record, name, error);
        if (!bOKToReturnZero || !means_no_peaks(error)) throw error;
        record.TR_PRINT("no peaks returned, returning 0 height");
        return 0.0;
    };
    return routine(session_.trace, {"GetPeakAttribute"}, zero_without_peaks,
                   [&] { return measured_attribute(CalcType, targetMass, dMassWindow, bThrowErrorOnNoPeaksFound); });
}

double PeakAttributes::measured_attribute(PeakCalcType type, double target_mass, double mass_window,
                                          bool raise_without_peak) {
    const auto record_in = [&](enumPeakInfoUnits units) {
        return GetPeakAttributes(target_mass, mass_window, units, raise_without_peak);
    };
    switch (type) {
        case PeakCalcType::TimeCentroid:
            return record_in(enumPeakInfoUnits::ns).pkCentroid;
        case PeakCalcType::MassCentroid: {
            const CalibrationObject calibration = session_.tune.GetCurrentCalibrationObjFromDD();
            return calibration->mass_from_time(record_in(enumPeakInfoUnits::ns).pkCentroid);
        }
        case PeakCalcType::Resolution:
            return record_in(enumPeakInfoUnits::amu).pkResolution;
        case PeakCalcType::Width:
            return record_in(enumPeakInfoUnits::amu).pkWidth;
        case PeakCalcType::Height:
            return record_in(enumPeakInfoUnits::amu).pkHeight;
        case PeakCalcType::Area:
            return record_in(enumPeakInfoUnits::amu).pkArea;
    }
    return 0;
}

}  // namespace korvane
