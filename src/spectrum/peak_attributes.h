// The peak of one given mass in the spectrum that the instrument is showing.
#pragma once

#include "korvane/enumerations.h"
#include "spectrum/peak_search.h"

namespace korvane {

/// Windows reach `dMassWindow` amu to either side. A window without a peak is searched once more, in a fresh spectrum.
class PeakAttributes {
public:
    PeakAttributes(Session& session, PeakSearch& search) : session_(session), search_(search) {}

    /// Record of the most abundant peak. No peak: error -1, or an empty record.
    PeakInfo GetPeakAttributes(double targetMass, double dMassWindow, enumPeakInfoUnits PeakInfoUnits,
                               bool bThrowErrorOnNoPeaksFound);
    PeakListObject GetPeakListOfOnlyThisOneMass(double targetMass, double dMassWindow, enumPeakInfoUnits PeakInfoUnits);
    /// One value of the record: the time centroid in ns, the width in amu, the mass centroid converted from the time
    /// centroid.
    double GetPeakAttribute(PeakCalcType CalcType, double targetMass, double dMassWindow, bool bOKToReturnZero,
                            bool bThrowErrorOnNoPeaksFound);

private:
    /// Null where neither spectrum shows a peak.
    PeakListObject search_twice(TraceObj& record, const MassTimeCalibration& calibration, double target_mass,
                                double mass_window);
    double measured_attribute(PeakCalcType type, double target_mass, double mass_window, bool raise_without_peak);

    Session& session_;
    PeakSearch& search_;
};

}  // namespace korvane
