// The calibrant peaks of one fresh spectrum.
#include <tuple>
#include <utility>

#include "spectrum/parser_state.h"

namespace korvane {

namespace {

constexpr double configured_window = -1.0;
constexpr double initial_baseline = 4.0;
constexpr std::size_t record_ns = 0, record_amu = 1, records_per_mass = 2;

/// The scintillator setpoint, out of the way while peaks are measured. Not a guard: an error leaves the setpoint at 0,
/// as the routines that measure promise.
class Scintillator {
public:
    /// By the setpoint table, restored always; or through the tune globals, awaited, and restored where it differs.
    enum class Access { table, awaited };

    Scintillator(ParserState& state, Access access, TraceObj& record)
        : state_(state), access_(access), kept_(state.current().value(contract::setpoint.scintillator)) {
        if (kept_ == 0) return;
        record.TR_PRINT("Scint NOT TTI mode; setting scint=0");
        set(0);
    }
    void restore() {
        if (access_ == Access::table || state_.current().value(contract::setpoint.scintillator) != kept_) set(kept_);
    }

private:
    void set(double value) {
        if (access_ == Access::table)
            state_.current().write(contract::setpoint.scintillator, value);
        else
            state_.tune.SetMSSetpointValueByIdx(contract::setpoint.scintillator, value, 0, 0, true);
    }

    ParserState& state_;
    const Access access_;
    const double kept_;
};

/// The given masses at their positions, those below the lower bound 0; without any the default list.
VariantArray<double> chosen_masses(ParserState& state, const SpectrumParser::OptionalMasses& given) {
    if (!given) {
        const std::string list_type = state.tune.GetMassListTypeFromSourceTypeString(state.instrument->source_type());
        return state.tune.GetDefaultMassList(list_type, state.tune.GetPolarityStr());
    }
    const std::int32_t last = given->upper_bound();
    if (last < 0 || given->lower_bound() < 0) raise_runtime_fault(error_number::subscript, "calibrant masses");
    std::vector<double> masses(static_cast<std::size_t>(given->lower_bound()));
    masses.insert(masses.end(), given->elements().begin(), given->elements().end());
    return masses;
}

/// One spectrum, ready to be searched at every position of the mass list.
class Measurement {
public:
    Measurement(SpectrumParser& parser, ParserState& state) : parser_(parser), state_(state) {}

    /// Puts the scintillator aside, takes a spectrum, sets up windows of so many percent of flight time (the
    /// configured ones, replacing the mark for them), and has `search` search them.
    template <class Search>
    void run(TraceObj& record, RoutineName name, Scintillator::Access access, double& window_percent,
             const SpectrumParser::OptionalMasses& given, const Search& search) {
        Scintillator scintillator(state_, access, record);
        (void)state_.current().code(contract::setpoint.source_type);
        masses = chosen_masses(state_, given);
        if (!state_.WaitForSpectrumWithProperPolarityAndExperimentIndex(parser_, spectrum_))
            throw Error(error_number::polarity_timeout, std::string(name.name),
                        "Timed out waiting for a spectrum of the sought polarity");
        calibration_ = state_.current().calibration();
        // The window in amu that the windows would fall back to is the figure just read, percent though it is.
        double delta_mass = 0;
        if (window_percent == configured_window)
            window_percent = delta_mass = state_.limit("PeakHandling", "PeakFindWindowInPercentT");
        record.TR_PRINT("dPeakFindTimeWindow = ", window_percent);
        parser_.CalculateTimeIndex(spectrum_.mass_data, calibration_, masses, delta_mass, to_single(window_percent));
        search();
        state_.searched.release();
        scintillator.restore();
    }

    /// Records of the most abundant peak at a position, in ns and in amu.
    std::pair<PeakInfo, PeakInfo> find_peak(std::int32_t position) {
        std::pair<PeakInfo, PeakInfo> peak;
        double baseline = initial_baseline;
        log_search(parser_.FindPeakForMass(position, spectrum_.start_time_ns, spectrum_.y_data, peak.first, peak.second,
                                           baseline, calibration_));
        log_height("massIndex", position, "peakInfoInNanoseconds.pkHeight", peak.first.pkHeight);
        return peak;
    }
    PeakListObject find_list(std::int32_t position) {
        PeakListObject list;
        double baseline = initial_baseline;
        log_search(parser_.FindPeakListForMass(position, spectrum_.start_time_ns, spectrum_.y_data, list, baseline,
                                               calibration_));
        const bool has_peaks = list && list->count() > 0;
        log_height("massIdx", position, "peakList.GetPeakAttributeInfo(0, True).pkHeight",
                   has_peaks ? list->GetPeakAttributeInfo(0, true).pkHeight : 0);
        return list;
    }

    VariantArray<double> masses;

private:
    void log_search(std::int32_t found) {
        state_.log("AUTOTUNE LOG: STATUS: FindPeakForMass: FindPeakForMass() returned = ", found);
    }
    void log_height(std::string_view position_name, std::int32_t position, std::string_view height_name,
                    double height) {
        const bool low = height < state_.limit("RampParams", "MinimumAcceptableAbundance");
        state_.log(low ? "AUTOTUNE LOG: WARNING: FindPeakForMass: right after FindPeakForMass() "
                       : "AUTOTUNE LOG: INFO: FindPeakForMass: right after FindPeakForMass(),  ",
                   position_name, "/mass[", position, "/", masses.at(position), "], ", height_name, " = ", height);
    }

    SpectrumParser& parser_;
    ParserState& state_;
    AcquiredSpectrum spectrum_;
    CalibrationObject calibration_;
};

}  // namespace

VariantMatrix<PeakInfo> SpectrumParser::GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses,
                                                                      double& dPeakFindTimeWindow) {
    constexpr RoutineName name{"GetPeakInfoForCalibrantMasses"};
    return routine(impl_->trace, name, [&](TraceObj& record) {
        impl_->uncertainties.clear();
        impl_->qualities.clear();
        VariantMatrix<PeakInfo> peaks;
        Measurement measured(*this, *impl_);
        measured.run(record, name, Scintillator::Access::table, dPeakFindTimeWindow, varCalibrantMasses, [&] {
            peaks = VariantMatrix<PeakInfo>(measured.masses.size(), records_per_mass);
            for (std::size_t i = 0; i < peaks.rows(); ++i) {
                std::tie(peaks.at(i, record_ns), peaks.at(i, record_amu)) =
                    measured.find_peak(static_cast<std::int32_t>(i));
                impl_->uncertainties.push_back(impl_->taken_uncertainty);
                impl_->qualities.push_back(impl_->taken_quality);
            }
        });
        return peaks;
    });
}

VariantMatrix<PeakInfo> SpectrumParser::GetPeakInfoForCalibrantMasses(const OptionalMasses& varCalibrantMasses) {
    double window_percent = configured_window;
    return GetPeakInfoForCalibrantMasses(varCalibrantMasses, window_percent);
}

const std::vector<std::optional<PeakUncertainty>>& SpectrumParser::last_uncertainties() const {
    return impl_->uncertainties;
}

const std::vector<std::optional<PeakQuality>>& SpectrumParser::last_qualities() const {
    return impl_->qualities;
}

VariantArray<PeakListObject> SpectrumParser::GetPeakListsForCalibrantMasses(const OptionalMasses& varCalibrantMasses) {
    constexpr RoutineName name{"GetPeakListsForCalibrantMasses"};
    return routine(impl_->trace, name, [&](TraceObj& record) {
        std::vector<PeakListObject> lists;
        double window_percent = configured_window;
        Measurement measured(*this, *impl_);
        measured.run(record, name, Scintillator::Access::table, window_percent, varCalibrantMasses, [&] {
            for (std::size_t i = 0; i < measured.masses.size(); ++i)
                lists.push_back(measured.find_list(static_cast<std::int32_t>(i)));
        });
        return VariantArray<PeakListObject>(std::move(lists));
    });
}

double SpectrumParser::Impl::GetPeakAbForThisMass(SpectrumParser& parser, double mass) {
    constexpr RoutineName name{"GetPeakAbForThisMass"};
    return routine(trace, name, [&](TraceObj& record) {
        double abundance = 0;
        double window_percent = configured_window;
        Measurement measured(parser, *this);
        measured.run(record, name, Scintillator::Access::awaited, window_percent, std::vector<double>{mass},
                     [&] { abundance = measured.find_peak(0).first.pkHeight; });
        return abundance;
    });
}

}  // namespace korvane
