// Whether the spectrum that the instrument shows is one to tune on.
#include <cmath>

#include "spectrum/parser_state.h"

namespace korvane {

namespace {

constexpr int invalid_spectra_limit = 3;
constexpr int sufficient_calibrants = 4;
constexpr double low_mass_margin = 0.005;  // of the flight time
constexpr std::string_view peak_separator = ", ";
constexpr const char* too_few_calibrants =
    "Insufficient number of calibrant ions detected in current spectral data for Autotune to continue.\r\n\r\n"
    "Calibration solution in Bottle B may have run out, or there may be a hardware or configuration problem.";

/// Lets the host's error paths be exercised on a working instrument.
void raise_configured_error(ParserState& state) {
    if (state.prefs.GetTunePreference("TriggerError_VerifyInstrumentIsShowingValidCalibrantSpectrum") != "Yes") return;
    const std::int32_t number =
        to_int32(located_number(state.prefs.GetTunePreference("TriggerErrorin_TriggerErrorNumber"),
                                [] { return "TriggerErrorin_TriggerErrorNumber in TunePreferences.xml"; }));
    const std::string description = state.prefs.GetTunePreference("TriggerErrorin_TriggerErrorString");
    // An error without a number cannot be raised.
    if (number == 0) raise_runtime_fault(error_number::invalid_call, "TriggerErrorin_TriggerErrorNumber is 0");
    throw Error(number, "", description);
}

bool next_spectrum_is_valid(SpectrumParser& parser, ParserState& state, TraceObj& record) {
    const VariantMatrix<PeakInfo> peaks = parser.GetPeakInfoForCalibrantMasses();
    int sufficient = 0;
    std::string peak_text;
    for (std::size_t row = 0; row < peaks.rows(); ++row) {
        const PeakInfo& peak = peaks.at(row, 0);
        append_text(peak_text, "[", peak.pkCentroid, ", ", peak.pkHeight, "]", peak_separator);
        if (peak.pkHeight > state.limit("RampParams", "MinimumAcceptableAbundance")) ++sufficient;
    }
    if (!peak_text.empty()) peak_text.resize(peak_text.size() - peak_separator.size());
    state.log("STATUS: Verify Spectrum: MinimumAcceptableAbundance[",
              state.limit("RampParams", "MinimumAcceptableAbundance"), "]; Got these peaks: [", peak_text, "]");
    record.TR_PRINT("InstrumentIsShowingValidCalibrantSpectrum() resulted in ", peak_text);
    record.TR_PRINT("NumCalibrantMassesWithSufficientAbundances = ", sufficient);
    return sufficient >= sufficient_calibrants;
}

/// Row of the most abundant peak that is not the low mass's own, for which the first row stands in.
std::size_t largest_peak_row(TraceObj& record, const VariantMatrix<PeakInfo>& peaks, double low_mass_time_ns) {
    std::size_t best = 0;
    for (std::size_t row = 0; row < peaks.rows(); ++row) {
        const PeakInfo& peak = peaks.at(row, 0);
        record.TR_PRINT("Peak[", row, "] = [", peak.pkCentroid, ", ", peak.pkHeight, "]");
        const bool is_another_mass = std::abs(peak.pkCentroid - low_mass_time_ns) > low_mass_margin * low_mass_time_ns;
        if (peak.pkHeight > peaks.at(best, 0).pkHeight && is_another_mass) best = row;
    }
    return best;
}

std::int32_t index_of_nearest_mass(const VariantArray<double>& masses, double sought) {
    std::int32_t nearest = masses.lower_bound();
    for (std::int32_t i = nearest; i <= masses.upper_bound(); ++i)
        if (std::abs(masses.at(i) - sought) < std::abs(masses.at(nearest) - sought)) nearest = i;
    return nearest;
}

std::int32_t FindIndexOfMostAbundantMasses(SpectrumParser& parser, ParserState& state,
                                           const VariantArray<double>& varCalibrantMasses) {
    return routine(state.trace, numbered_line, [&](TraceObj& record) {
        const VariantMatrix<PeakInfo> peaks = parser.GetPeakInfoForCalibrantMasses(varCalibrantMasses);
        const CalibrationObject calibration = state.tune.GetCurrentCalibrationObjFromDD();
        record.TR_PRINT("Finding largest peak in list (other than low mass)");
        const double low_mass = varCalibrantMasses.at(varCalibrantMasses.lower_bound());
        const std::size_t best = largest_peak_row(record, peaks, calibration->time_from_mass(low_mass));
        record.TR_PRINT("Most Abundant Mass Idx = ", best);
        record.TR_PRINT("Searching Calibrant Masses for matching mass");
        const std::int32_t index = index_of_nearest_mass(varCalibrantMasses, peaks.at(best, 1).pkCentroid);
        record.TR_PRINT("CalibrantIdx of most abundant mass = ", index);
        return index;
    });
}

}  // namespace

void SpectrumParser::VerifyInstrumentIsShowingValidCalibrantSpectrum() {
    constexpr RoutineName name{"VerifyInstrumentIsShowingValidCalibrantSpectrum"};
    Impl& state = *impl_;
    routine(state.trace, name, [&](TraceObj& record) {
        raise_configured_error(state);
        for (int invalid = 1; invalid <= invalid_spectra_limit; ++invalid) {
            if (next_spectrum_is_valid(*this, state, record)) {
                record.TR_PRINT("Current Spectrum is Valid Calib Spectrum");
                state.log("STATUS: Verify Spectrum: Valid Spectrum");
                return record.TR_PRINT("Valid Calib Spectrum found");
            }
            record.TR_PRINT("Current Spectrum is NOT Valid Calib Spectrum");
            state.log("STATUS: Verify Spectrum: Not Valid Spectrum; NumInvalidSpectra: [", invalid, "]");
        }
        record.TR_PRINT("Valid Calib Spectrum NOT found");
        throw Error(error_number::invalid_spectrum, std::string(name.name), too_few_calibrants);
    });
}

bool SpectrumParser::AbundancesAreBelowDualGainThreshold(const VariantArray<double>& varCalibrantMasses,
                                                         double dMassWindow) {
    constexpr ErrorLine line{"AbundancesAreBelowDualGainThreshold.Error[",
                             "] in AbundancesAreBelowDualGainThreshold(): "};
    return routine(impl_->trace, line, [&](TraceObj& record) {
        const double MaxAllowableAb = impl_->tune.GetMaxAbBeforeSaturationOccurs();
        const double low_mass = varCalibrantMasses.at(varCalibrantMasses.lower_bound());
        const double most_abundant_mass =
            varCalibrantMasses.at(FindIndexOfMostAbundantMasses(*this, *impl_, varCalibrantMasses));
        const double high_mass = varCalibrantMasses.at(varCalibrantMasses.upper_bound());
        const double LowMassAb = GetPeakAttributes(low_mass, dMassWindow).pkHeight;
        const double MostAbMassAb = GetPeakAttributes(most_abundant_mass, dMassWindow).pkHeight;
        const double HighMassAb = GetPeakAttributes(high_mass, dMassWindow).pkHeight;
        record.TR_PRINT("Abundances[", low_mass, ", ", most_abundant_mass, ", ", high_mass, "] = [", LowMassAb, ", ",
                        MostAbMassAb, ", ", HighMassAb, "]");
        record.TR_PRINT("LowMassAb, MostAbMassAb, HighMassAb = [", LowMassAb, ", ", MostAbMassAb, ", ", HighMassAb,
                        "]");
        record.TR_PRINT("MaxAllowableAb = ", MaxAllowableAb);
        const bool below = LowMassAb < MaxAllowableAb && MostAbMassAb < MaxAllowableAb && HighMassAb < MaxAllowableAb;
        record.TR_PRINT(below ? "returning TRUE" : "returning FALSE");
        return below;
    });
}

}  // namespace korvane
