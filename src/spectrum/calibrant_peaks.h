// The calibrant peaks of one fresh spectrum.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "spectrum/acquisition.h"
#include "spectrum/peak_search.h"
#include "spectrum/scintillator.h"

namespace korvane {

class CalibrantPeaks {
public:
    using OptionalMasses = std::optional<VariantArray<double>>;

    CalibrantPeaks(Session& session, SpectrumAcquisition& acquisition, MassTimeWindows& windows, PeakSearch& search)
        : session_(session), acquisition_(acquisition), windows_(windows), search_(search) {}

    /// Rows are calibrants, columns the record in ns and in amu. Masses left out: the default list. A window of
    /// exactly -1 is replaced by the configured one.
    VariantMatrix<PeakInfo> GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses,
                                                          double& dPeakFindTimeWindow);
    VariantArray<PeakListObject> GetPeakListsForCalibrantMasses(const OptionalMasses& varCalibrantMasses);
    /// Height of the most abundant peak in the window of one mass; 0 without a peak.
    double GetPeakAbForThisMass(double mass);

    /// Of the last `GetPeakInfoForCalibrantMasses`, one a calibrant, in ns.
    const std::vector<std::optional<PeakUncertainty>>& last_uncertainties() const { return uncertainties_; }

private:
    /// One spectrum, ready to be searched at every position of the mass list.
    struct Measurement {
        VariantArray<double> masses;
        SpectrumTriple spectrum;
        CalibrationObject calibration;
    };
    /// Where a routine's masses come from, and the window in percent of flight time (replaced when it is the
    /// configured one's mark).
    struct Request {
        std::string_view routine_name;
        Scintillator::Access access;
        std::function<VariantArray<double>()> choose_masses;
        double& window_percent;
    };
    /// Puts the scintillator aside, takes a spectrum, sets up the windows, has `search` search them.
    void measure_calibrants(TraceObj& record, const Request& request,
                            const std::function<void(const Measurement&)>& search);
    void set_up_windows(TraceObj& record, const Measurement& measurement, double& window_percent);
    VariantArray<double> chosen_masses(const OptionalMasses& given);
    WindowPeak find_peak(const Measurement& measurement, std::int32_t position);
    void log_search(std::int32_t found) const;
    void log_height(std::string_view position_name, std::int32_t position, double mass, std::string_view height_name,
                    double height);

    Session& session_;
    SpectrumAcquisition& acquisition_;
    MassTimeWindows& windows_;
    PeakSearch& search_;
    std::vector<std::optional<PeakUncertainty>> uncertainties_;
};

}  // namespace korvane
