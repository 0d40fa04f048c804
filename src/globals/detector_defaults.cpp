#include "globals/detector_defaults.h"

#include "globals/instrument_model.h"

namespace korvane {

namespace {

constexpr double full_scale_sample = 255;  // of 8 bits
constexpr double transients_of_unit_scale = 10000;
constexpr std::int32_t shortest_spectrum_us = 10;
constexpr double ns_per_us = 1000;

}  // namespace

bool DetectorDefaults::has_option(std::int32_t code) {
    HardwareQueries& hardware = instrument_->hardware();
    return hardware.option_present(hardware.option_name(code));
}

bool DetectorDefaults::has_digitiser() {
    return has_option(contract::option.digitiser);
}

bool DetectorDefaults::is_dual_source() {
    return has_option(contract::option.dual_source);
}

double DetectorDefaults::preamp_ramp_start(bool low_gain) {
    return routine(trace_, {"GetPreAmpOffsetRampStart"},
                   [&] { return preamp_ramp_end("PreAmpOffsetRampStart", low_gain); });
}

double DetectorDefaults::preamp_ramp_stop(bool low_gain) {
    return routine(trace_, {"GetPreAmpOffsetRampStop"},
                   [&] { return preamp_ramp_end("PreAmpOffsetRampStop", low_gain); });
}

double DetectorDefaults::preamp_ramp_end(const std::string& key, bool low_gain) {
    if (!has_digitiser()) return gain_parameter(key);
    return gain_parameter(key + (has_long_tube() ? "_160cm" : "_4GHz") + (low_gain ? "_LowGain" : "_HighGain"));
}

// Start and stop take the channel from the caller, the step from the setpoint.
double DetectorDefaults::preamp_ramp_step() {
    return routine(trace_, {"GetPreAmpOffsetRampStep"}, [&] {
        if (!has_digitiser()) return gain_parameter("amp_step");
        const bool low_gain = setpoints_.value(contract::setpoint.preamp_gain_mode) == contract::preamp_gain_mode.low;
        if (low_gain)
            return gain_parameter(has_long_tube() ? "PreAmpOffset_step_LowGain_160cm" : "PreAmpOffset_step_LowGain");
        return gain_parameter(has_long_tube() ? "amp_step_160cm" : "amp_step_4GHz");
    });
}

double DetectorDefaults::pulse_height_target() {
    return routine(trace_, {"GetPulseHeightTarget"}, [&] {
        if (has_long_tube()) return gain_parameter("CntPerIon_160cm");
        if (has_digitiser()) return gain_parameter("CntPerIon_Sigma4");
        const bool post_accelerated =
            source_.polarity_abbreviation() == "pos" && instrument_->hardware().has_positive_post_acceleration();
        return gain_parameter(post_accelerated ? "CntPerIon_Sigma1QTOFPos" : "CntPerIon_Sigma1");
    });
}

double DetectorDefaults::baseline_cutoff() {
    return routine(trace_, {"GetBaselineCutoff"}, [&] {
        return gain_parameter(has_long_tube() || has_digitiser() ? "PHDTransmission_Sigma4" : "PHDTransmission_Sigma1");
    });
}

double DetectorDefaults::transients() {
    return setpoints_.value(source_.transients_setpoint());
}

double DetectorDefaults::transients_scaling_factor() {
    return routine(trace_, {"GetNumTransScalingFactor"}, [&] { return transients() / transients_of_unit_scale; });
}

double DetectorDefaults::full_saturation_abundance() {
    return routine(trace_, {"GetAbForFullDetectorSaturation"}, [&] { return transients() * full_scale_sample; });
}

double DetectorDefaults::hard_saturation_threshold(std::string_view routine_name) {
    return routine(trace_, {routine_name}, [&] { return full_saturation_abundance(); });
}

double DetectorDefaults::max_abundance_before_saturation() {
    return routine(trace_, {"GetMaxAbBeforeSaturationOccurs"}, [&] {
        const double per_unit_scale =
            parameters_.GetAutotuneLimitValue("Calibration", "MaxAbBeforeSaturationOccursOnHiGainChannel");
        return per_unit_scale * transients_scaling_factor();
    });
}

double DetectorDefaults::saturation_begin() {
    return routine(trace_, {"GetSaturationThreshold_Begin"}, [&] { return max_abundance_before_saturation(); });
}

std::int32_t DetectorDefaults::min_spectrum_time_us() {
    return routine(trace_, {"GetMinSpectrumTime_usec"}, [&] { return shortest_spectrum_us; });
}

std::int32_t DetectorDefaults::max_spectrum_time_us() {
    return routine(trace_, {"GetMaxSpectrumTime_usec"}, [&] {
        const double highest_mass = mass_range_.highest_mass();
        return to_int32(calibration_.current()->time_from_mass(highest_mass) / ns_per_us);
    });
}

bool DetectorDefaults::abundance_reduction_enabled() {
    return routine(trace_, {"EnableAbundanceReductionTechnology"},
                   [&] { return instrument_->hardware().abundance_reduction_setting() != 0; });
}

bool DetectorDefaults::is_abundance_adjustable(const VariantArray<double>& masses) {
    return routine(trace_, {"ThisIsAnAbundanceAdjustableRamp"}, [&] { return masses.upper_bound() == 0; });
}

double DetectorDefaults::initial_value(const std::string& internal_name) {
    return routine(trace_, {"GetAutotuneSetpointInitValue"}, [&](TraceObj& record) {
        const char* const polarity = setpoints_.is_positive() ? "pos" : "neg";
        const std::string path = text_of("/QTOFTuneParams/Mode/Tune[@polarity=\"", polarity, "\" and @source=\"",
                                         instrument_->source_word(), "\"]/InitialAutotuneStartingSetpointValues");
        record.TR_PRINT("Querying XML for \"", path);
        return parameters_.GetTuneParamByXMLPath(path, text_of("Param[@internalName=\"", internal_name, "\"]"));
    });
}

double DetectorDefaults::initial_value_of_state(const std::string& internal_name) {
    return routine(trace_, {"GetInitSP"}, [&] { return initial_value(internal_name); });
}

double DetectorDefaults::fragmentor() {
    return routine(trace_, {"GetDefaultFragmentorValue"}, [&] { return initial_value("FragmentTune"); });
}

double DetectorDefaults::drying_gas_temperature() {
    return routine(trace_, {"GetDefaultGasTempValue"}, [&] {
        if (!is_dual_source()) return initial_value("GasTemp");
        const bool sgf = setpoints_.code(contract::setpoint.source_type) == contract::source_type.dual_sgf;
        return limit(sgf ? "DualSGF_DefaultDryingGasTemp_4410_DualSGF" : "DualSGF_DefaultDryingGasTemp_4410_DualESI");
    });
}

double DetectorDefaults::drying_gas_pressure() {
    return routine(trace_, {"GetDefaultDryingGasValue"}, [&] {
        return is_dual_source() ? limit("DualSGF_DefaultDryingGasPressure") : initial_value("DryingGas");
    });
}

double DetectorDefaults::sheath_gas_temperature() {
    return routine(trace_, {"GetDefaultSheathGasTempValue"}, [&] {
        return sheath_gas("DualSGF_DefaultSheathGasTemp", contract::setpoint.sheath_gas_temperature);
    });
}

double DetectorDefaults::sheath_gas_pressure() {
    return routine(trace_, {"GetDefaultSheathGasPressureValue"}, [&] {
        return sheath_gas("DualSGF_DefaultSheathGasPressure", contract::setpoint.sheath_gas_pressure);
    });
}

double DetectorDefaults::sheath_gas(const std::string& key, std::int32_t fallback_setpoint) {
    if (!is_dual_source()) return setpoints_.value(fallback_setpoint);
    return limit(is_model_4410(instrument_->hardware()) ? key + "_4410" : key);
}

}  // namespace korvane
