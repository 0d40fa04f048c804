#include "spectrum/calibrant_peaks.h"

namespace korvane {

namespace {

constexpr double configured_window = -1.0;
constexpr double initial_baseline = 4.0;
constexpr std::size_t record_ns = 0, record_amu = 1, records_per_mass = 2;

/// Elements keep their positions; those below the given array's lower bound are 0.
VariantArray<double> from_position_0(const VariantArray<double>& given) {
    const std::int32_t last = given.upper_bound();
    if (last < 0 || given.lower_bound() < 0) raise_runtime_fault(error_number::subscript, "calibrant masses");
    std::vector<double> masses(static_cast<std::size_t>(last) + 1);
    for (std::int32_t i = given.lower_bound(); i <= last; ++i) masses[static_cast<std::size_t>(i)] = given.at(i);
    return masses;
}

}  // namespace

VariantArray<double> CalibrantPeaks::chosen_masses(const OptionalMasses& given) {
    if (given) return from_position_0(*given);
    const std::string list_type = session_.tune.GetMassListTypeFromSourceTypeString(session_.instrument->source_type());
    return session_.tune.GetDefaultMassList(list_type, session_.tune.GetPolarityStr());
}

void CalibrantPeaks::measure_calibrants(TraceObj& record, const Request& request,
                                        const std::function<void(const Measurement&)>& search) {
    Scintillator scintillator(session_, request.access);
    scintillator.put_aside(record);
    const Segments segments = session_.current_segments();
    (void)CurrentSetpoints(session_.instrument, segments).code(contract::setpoint.source_type);
    Measurement measurement;
    measurement.masses = request.choose_masses();
    VariantArray<std::string> vMetaDesc;
    bool bUserHasCancelledRampInGUI = false;
    const std::int32_t status = acquisition_.WaitForSpectrumWithProperPolarityAndExperimentIndex(
        measurement.spectrum, vMetaDesc, bUserHasCancelledRampInGUI);
    if (status != wait_status::arrived) raise_wait_status(status, request.routine_name);
    measurement.calibration = session_.calibration_of_current_polarity();
    set_up_windows(record, measurement, request.window_percent);
    search(measurement);
    search_.release_spectrum();
    scintillator.restore();
}

void CalibrantPeaks::set_up_windows(TraceObj& record, const Measurement& measurement, double& window_percent) {
    // The window in amu that the windows would fall back to is the figure just read, percent though it is.
    double delta_mass = 0;
    if (window_percent == configured_window)
        window_percent = delta_mass = session_.limit("PeakHandling", "PeakFindWindowInPercentT");
    record.TR_PRINT("dPeakFindTimeWindow = ", window_percent);
    windows_.CalculateTimeIndex(measurement.spectrum.vMassData, measurement.calibration, measurement.masses, delta_mass,
                                to_single(window_percent));
}

VariantMatrix<PeakInfo> CalibrantPeaks::GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses,
                                                                      double& dPeakFindTimeWindow) {
    constexpr std::string_view name = "GetPeakInfoForCalibrantMasses";
    return routine(session_.trace, {name}, [&](TraceObj& record) {
        uncertainties_.clear();
        VariantMatrix<PeakInfo> peaks;
        const Request request{name, Scintillator::Access::table, [&] { return chosen_masses(varCalibrantMasses); },
                              dPeakFindTimeWindow};
        measure_calibrants(record, request, [&](const Measurement& measurement) {
            peaks = VariantMatrix<PeakInfo>(measurement.masses.size(), records_per_mass);
            for (std::size_t i = 0; i < peaks.rows(); ++i) {
                const WindowPeak peak = find_peak(measurement, static_cast<std::int32_t>(i));
                peaks.at(i, record_ns) = peak.nanoseconds;
                peaks.at(i, record_amu) = peak.amu;
                uncertainties_.push_back(peak.uncertainty);
            }
        });
        return peaks;
    });
}

VariantArray<PeakListObject> CalibrantPeaks::GetPeakListsForCalibrantMasses(const OptionalMasses& varCalibrantMasses) {
    constexpr std::string_view name = "GetPeakListsForCalibrantMasses";
    return routine(session_.trace, {name}, [&](TraceObj& record) {
        std::vector<PeakListObject> lists;
        double window_percent = configured_window;
        const Request request{name, Scintillator::Access::table, [&] { return chosen_masses(varCalibrantMasses); },
                              window_percent};
        measure_calibrants(record, request, [&](const Measurement& measurement) {
            lists.resize(measurement.masses.size());
            for (std::size_t i = 0; i < lists.size(); ++i) {
                const auto position = static_cast<std::int32_t>(i);
                double baseline = initial_baseline;
                log_search(search_.FindPeakListForMass(position, measurement.spectrum.dSpectrumStartTimeInNS,
                                                       measurement.spectrum.vYData, lists[i], baseline,
                                                       measurement.calibration, enumPeakInfoUnits::amu));
                const bool has_peaks = lists[i] && lists[i]->count() > 0;
                log_height("massIdx", position, measurement.masses.at(position),
                           "peakList.GetPeakAttributeInfo(0, True).pkHeight",
                           has_peaks ? lists[i]->GetPeakAttributeInfo(0, true).pkHeight : 0);
            }
        });
        return VariantArray<PeakListObject>(std::move(lists));
    });
}

double CalibrantPeaks::GetPeakAbForThisMass(double mass) {
    constexpr std::string_view name = "GetPeakAbForThisMass";
    return routine(session_.trace, {name}, [&](TraceObj& record) {
        double abundance = 0;
        double window_percent = configured_window;
        const Request request{name, Scintillator::Access::awaited,
                              [&] { return VariantArray<double>(std::vector<double>{mass}); }, window_percent};
        measure_calibrants(record, request, [&](const Measurement& measurement) {
            abundance = find_peak(measurement, 0).nanoseconds.pkHeight;
        });
        return abundance;
    });
}

/// Searches one position and logs what was found.
WindowPeak CalibrantPeaks::find_peak(const Measurement& measurement, std::int32_t position) {
    WindowPeak peak;
    peak.baseline = initial_baseline;
    log_search(search_.FindPeakForMass(position, measurement.spectrum.dSpectrumStartTimeInNS,
                                       measurement.spectrum.vYData, measurement.calibration, peak));
    log_height("massIndex", position, measurement.masses.at(position), "peakInfoInNanoseconds.pkHeight",
               peak.nanoseconds.pkHeight);
    return peak;
}

void CalibrantPeaks::log_search(std::int32_t found) const {
    session_.log(text_of("AUTOTUNE LOG: STATUS: FindPeakForMass: FindPeakForMass() returned = ", found));
}

void CalibrantPeaks::log_height(std::string_view position_name, std::int32_t position, double mass,
                                std::string_view height_name, double height) {
    const bool low = height < session_.limit("RampParams", "MinimumAcceptableAbundance");
    session_.log(text_of(low ? "AUTOTUNE LOG: WARNING: FindPeakForMass: right after FindPeakForMass() "
                             : "AUTOTUNE LOG: INFO: FindPeakForMass: right after FindPeakForMass(),  ",
                         position_name, "/mass[", position, "/", mass, "], ", height_name, " = ", height));
}

}  // namespace korvane
