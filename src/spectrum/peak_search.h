// The peak finder, run over one stretch of a spectrum.
#pragma once

#include <memory>
#include <optional>

#include "korvane/enumerations.h"
#include "korvane/peak_finder.h"
#include "spectrum/mass_time_windows.h"
#include "spectrum/search_copy.h"
#include "spectrum/session.h"

namespace korvane {

/// The most abundant peak of a window. Keeps what it holds where no peak was taken.
struct WindowPeak {
    PeakInfo nanoseconds;
    PeakInfo amu;
    double baseline = 0;
    std::optional<PeakUncertainty> uncertainty;  ///< in ns
};

class PeakSearch {
public:
    PeakSearch(Session& session, const MassTimeWindows& windows) : session_(session), windows_(windows) {}

    /// Number of peaks in the window of a calibrant position. `peak` changes only when the most abundant peak's
    /// centroid lies strictly inside the window. 0, and nothing else, for empty `vYData`.
    std::int32_t FindPeakForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                 const VariantArray<double>& vYData, const CalibrationObject& pMTObj, WindowPeak& peak);
    /// The same for the whole list of the window, in the units asked for.
    std::int32_t FindPeakListForMass(std::int32_t massIndex, double dSpectrumStartTimeInNS,
                                     const VariantArray<double>& vYData, PeakListObject& peakList, double& baseLine,
                                     const CalibrationObject& pMTObj, enumPeakInfoUnits PeakInfoUnits);
    /// Peaks of the next spectrum between two flight times; `MaxPeaks` above 0 keeps the most abundant ones.
    PeakListObject GetPeakList(double dTimeToStartSearchInNS, double dTimeToEndSearchInNS, std::int32_t MaxPeaks);
    /// Lets go of the spectrum searched last, so that the instrument may have its memory back.
    void release_spectrum() { copy_.release(); }

private:
    struct Window {
        double start_ns = 0;
        double end_ns = 0;
    };
    /// A search that has run.
    struct Finding {
        std::unique_ptr<PeakFinder> finder;
        PeakListObject list;  ///< null where the finder returned none
        Window window;
    };

    double sampling_interval_ns() const;
    double ConvertIndexToTimeInNS(double index, double spectrum_start_ns) const;
    Finding find_in_calibrant_window(TraceObj& record, std::int32_t mass_index, double spectrum_start_ns,
                                     const VariantArray<double>& samples);
    void run(TraceObj& record, Finding& finding, double spectrum_start_ns) const;
    void take_most_abundant(TraceObj& record, const Finding& finding, const CalibrationObject& calibration,
                            WindowPeak& peak) const;
    PeakListObject peak_list(TraceObj& record, Window window, std::int32_t most);

    Session& session_;
    const MassTimeWindows& windows_;
    SearchCopy copy_;
};

}  // namespace korvane
