// A peak's abundance as the mean over several fresh spectra.
#pragma once

#include "spectrum/calibrant_peaks.h"

namespace korvane {

class AveragedAbundance {
public:
    AveragedAbundance(Session& session, CalibrantPeaks& calibrants) : session_(session), calibrants_(calibrants) {}

    /// Mean over `spectra` measurements, halves to even. Error 11 for 0 of them; 0 for fewer.
    std::int32_t GetAveragedPeakAbundance(double mz, std::int32_t spectra);

private:
    Session& session_;
    CalibrantPeaks& calibrants_;
};

}  // namespace korvane
