// Whether the spectrum that the instrument shows is one to tune on.
#pragma once

#include <string>

#include "spectrum/calibrant_peaks.h"
#include "spectrum/peak_attributes.h"

namespace korvane {

class SpectrumChecks {
public:
    SpectrumChecks(Session& session, CalibrantPeaks& calibrants, PeakAttributes& attributes)
        : session_(session), calibrants_(calibrants), attributes_(attributes) {}

    /// Error -821 after three spectra with fewer than four calibrants above the minimum abundance.
    void VerifyInstrumentIsShowingValidCalibrantSpectrum();
    /// Whether the lowest, the highest and the most abundant calibrant are all below the saturation limit.
    bool AbundancesAreBelowDualGainThreshold(const VariantArray<double>& varCalibrantMasses, double dMassWindow);

private:
    void raise_configured_error();
    bool next_spectrum_is_valid(TraceObj& record, int& NumInvalidSpectra);
    std::int32_t FindIndexOfMostAbundantMasses(const VariantArray<double>& varCalibrantMasses);

    Session& session_;
    CalibrantPeaks& calibrants_;
    PeakAttributes& attributes_;
};

}  // namespace korvane
