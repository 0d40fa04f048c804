// Detector targets and thresholds, and the default values a tune starts from, by the instrument's hardware options.
#include "globals/tune_globals_state.h"

namespace korvane {

namespace {

constexpr double full_scale_sample = 255;  // of 8 bits
constexpr double transients_of_unit_scale = 10000;
constexpr std::int32_t shortest_spectrum_us = 10;

double gain_parameter(TuneGlobalsState& state, const std::string& key) {
    return state.limit("gainParams", key);
}

double preamp_ramp_end(TuneGlobalsState& state, const std::string& key, bool low_gain) {
    if (!state.has_option(contract::option.digitiser)) return gain_parameter(state, key);
    const char* const tube = state.hardware().has_160cm_flight_tube() ? "_160cm" : "_4GHz";
    return gain_parameter(state, key + tube + (low_gain ? "_LowGain" : "_HighGain"));
}

double sheath_gas(TuneGlobalsState& state, const std::string& key, std::int32_t fallback_setpoint) {
    const auto has_sheath_gas = [&] {
        const std::int32_t source = state.setpoints.code(contract::setpoint.source_type);
        return source == contract::source_type.sgf || source == contract::source_type.dual_sgf;
    };
    if (!state.has_option(contract::option.dual_source) || !has_sheath_gas())
        return state.setpoints.value(fallback_setpoint);
    return state.limit("Limits", state.is_model_4410() ? key + "_4410" : key);
}

}  // namespace

double TuneGlobals::GetPreAmpOffsetRampStart(bool bLowGainPreAmp) {
    return routine(impl_->trace, [&] { return preamp_ramp_end(*impl_, "PreAmpOffsetRampStart", bLowGainPreAmp); });
}

double TuneGlobals::GetPreAmpOffsetRampStop(bool bLowGainPreAmp) {
    return routine(impl_->trace, [&] { return preamp_ramp_end(*impl_, "PreAmpOffsetRampStop", bLowGainPreAmp); });
}

// Start and stop take the channel from the caller, the step from the setpoint.
double TuneGlobals::GetPreAmpOffsetRampStep() {
    return routine(impl_->trace, [&] {
        if (!impl_->has_option(contract::option.digitiser)) return gain_parameter(*impl_, "amp_step");
        const bool low_gain =
            impl_->setpoints.value(contract::setpoint.preamp_gain_mode) == contract::preamp_gain_mode.low;
        const bool long_tube = impl_->hardware().has_160cm_flight_tube();
        if (low_gain)
            return gain_parameter(*impl_, long_tube ? "PreAmpOffset_step_LowGain_160cm" : "PreAmpOffset_step_LowGain");
        return gain_parameter(*impl_, long_tube ? "amp_step_160cm" : "amp_step_4GHz");
    });
}

double TuneGlobals::GetPulseHeightTarget() {
    return routine(impl_->trace, [&] {
        if (impl_->hardware().has_160cm_flight_tube()) return gain_parameter(*impl_, "CntPerIon_160cm");
        if (impl_->has_option(contract::option.digitiser)) return gain_parameter(*impl_, "CntPerIon_Sigma4");
        const bool post_accelerated =
            GetPolarity3LetterAbbreviation() == "pos" && impl_->hardware().has_positive_post_acceleration();
        return gain_parameter(*impl_, post_accelerated ? "CntPerIon_Sigma1QTOFPos" : "CntPerIon_Sigma1");
    });
}

double TuneGlobals::GetBaselineCutoff() {
    return routine(impl_->trace, [&] {
        const bool sigma_4 = impl_->hardware().has_160cm_flight_tube() || impl_->has_option(contract::option.digitiser);
        return gain_parameter(*impl_, sigma_4 ? "PHDTransmission_Sigma4" : "PHDTransmission_Sigma1");
    });
}

double TuneGlobals::GetNumTransScalingFactor() {
    return routine(impl_->trace, [&] {
        return impl_->setpoints.value(GetNumTransTuneSPForCurrentSamplingRate()) / transients_of_unit_scale;
    });
}

double TuneGlobals::GetAbForFullDetectorSaturation() {
    return routine(impl_->trace, [&] {
        return impl_->setpoints.value(GetNumTransTuneSPForCurrentSamplingRate()) * full_scale_sample;
    });
}

double TuneGlobals::GetHardSaturationThreshold() {
    return routine(impl_->trace, [&] { return GetAbForFullDetectorSaturation(); });
}

double TuneGlobals::GetSaturationThreshold_Hard() {
    return routine(impl_->trace, [&] { return GetAbForFullDetectorSaturation(); });
}

double TuneGlobals::GetMaxAbBeforeSaturationOccurs() {
    return routine(impl_->trace, [&] {
        const double per_unit_scale = impl_->limit("Calibration", "MaxAbBeforeSaturationOccursOnHiGainChannel");
        return per_unit_scale * GetNumTransScalingFactor();
    });
}

double TuneGlobals::GetSaturationThreshold_Begin() {
    return routine(impl_->trace, [&] { return GetMaxAbBeforeSaturationOccurs(); });
}

std::int32_t TuneGlobals::GetMinSpectrumTime_usec() {
    return routine(impl_->trace, [&] { return shortest_spectrum_us; });
}

std::int32_t TuneGlobals::GetMaxSpectrumTime_usec() {
    return routine(impl_->trace, [&] {
        const double highest_mass = GetMaxMassForCurrentMassRange();
        return to_int32(GetCurrentCalibrationObjFromDD()->time_from_mass(highest_mass) / ns_per_us);
    });
}

bool TuneGlobals::EnableAbundanceReductionTechnology() {
    return routine(impl_->trace, [&] { return impl_->hardware().abundance_reduction_setting() != 0; });
}

bool TuneGlobals::ThisIsAnAbundanceAdjustableRamp(std::int32_t, const VariantArray<double>& vCalibrantMasses) {
    return routine(impl_->trace, [&] { return vCalibrantMasses.upper_bound() == 0; });
}

double TuneGlobals::GetInitSP(const std::string&, const std::string&,
                              const std::string& InternalNameOfParameterToRetrieve) {
    return routine(impl_->trace, [&] { return GetAutotuneSetpointInitValue(InternalNameOfParameterToRetrieve); });
}

double TuneGlobals::GetAutotuneSetpointInitValue(const std::string& strParamInternalName) {
    return routine(impl_->trace, [&](TraceObj& record) {
        const char* const polarity = impl_->setpoints.is_positive() ? "pos" : "neg";
        const std::string path = text_of("/QTOFTuneParams/Mode/Tune[@polarity=\"", polarity, "\" and @source=\"",
                                         impl_->instrument->source_word(), "\"]/InitialAutotuneStartingSetpointValues");
        record.TR_PRINT("Querying XML for \"", path);
        return impl_->parameters.GetTuneParamByXMLPath(path,
                                                       text_of("Param[@internalName=\"", strParamInternalName, "\"]"));
    });
}

double TuneGlobals::GetDefaultFragmentorValue() {
    return routine(impl_->trace, [&] { return GetAutotuneSetpointInitValue("FragmentTune"); });
}

double TuneGlobals::GetDefaultGasTempValue() {
    return routine(impl_->trace, [&] {
        if (!impl_->has_option(contract::option.dual_source)) return GetAutotuneSetpointInitValue("GasTemp");
        const bool sgf = impl_->setpoints.code(contract::setpoint.source_type) == contract::source_type.dual_sgf;
        return impl_->limit(
            "Limits", sgf ? "DualSGF_DefaultDryingGasTemp_4410_DualSGF" : "DualSGF_DefaultDryingGasTemp_4410_DualESI");
    });
}

double TuneGlobals::GetDefaultDryingGasValue() {
    return routine(impl_->trace, [&] {
        return impl_->has_option(contract::option.dual_source)
                   ? impl_->limit("Limits", "DualSGF_DefaultDryingGasPressure")
                   : GetAutotuneSetpointInitValue("DryingGas");
    });
}

double TuneGlobals::GetDefaultSheathGasTempValue() {
    return routine(impl_->trace, [&] {
        return sheath_gas(*impl_, "DualSGF_DefaultSheathGasTemp", contract::setpoint.sheath_gas_temperature);
    });
}

double TuneGlobals::GetDefaultSheathGasPressureValue() {
    return routine(impl_->trace, [&] {
        return sheath_gas(*impl_, "DualSGF_DefaultSheathGasPressure", contract::setpoint.sheath_gas_pressure);
    });
}

}  // namespace korvane
