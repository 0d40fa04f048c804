// The façade's questions about source, instrument state and detector.
#include "globals/tune_globals_state.h"

namespace korvane {

std::string TuneGlobals::GetPolarityStr() {
    return impl_->source.polarity();
}

std::string TuneGlobals::GetPolarity3LetterAbbreviation() {
    return impl_->source.polarity_abbreviation();
}

PolaritySetpoint TuneGlobals::GetPolarityTuneSetpointValue() {
    return impl_->source.polarity_setpoint();
}

std::int32_t TuneGlobals::GetPolaritySpecificCoronaSetpointIndex() {
    return impl_->source.corona_setpoint();
}

std::string TuneGlobals::GetSourceTypeStr() {
    return impl_->source.source();
}

std::string TuneGlobals::GetMassListTypeFromSourceTypeString(const std::string& sourceType) {
    return impl_->source.mass_list_type(sourceType);
}

std::int32_t TuneGlobals::GetSourceSpecificVaporizerSetpointIndex() {
    return impl_->source.vaporizer_setpoint();
}

std::int32_t TuneGlobals::GetSourceSpecificVCapSetpointIndex() {
    return impl_->source.capillary_voltage_setpoint();
}

std::int32_t TuneGlobals::GetNumTransTuneSPForCurrentSamplingRate() {
    return impl_->source.transients_setpoint();
}

enumQuadType TuneGlobals::QuadType() {
    return impl_->source.quadrupole_type();
}

std::string TuneGlobals::GetCurrentInstrumentStateAsString() {
    return impl_->source.instrument_state();
}

VariantArray<double> TuneGlobals::GetDefaultMassList(const std::string& sourceType, const std::string& polarity) {
    return impl_->mass_range.default_mass_list(sourceType, polarity);
}

double TuneGlobals::LargestMassInMassList(const VariantArray<double>& massList) {
    return impl_->mass_range.largest_of(massList);
}

double TuneGlobals::GetMaxMassForCurrentMassRange() {
    return impl_->mass_range.highest_mass();
}

bool TuneGlobals::IsThisMassInCurrentMassRange(double mz) {
    return impl_->mass_range.contains(mz);
}

bool TuneGlobals::IsSlicerPosHighResolution() {
    return impl_->slicer.is_high_resolution();
}

double TuneGlobals::SeekNextAvailableCleanSlicerPosForTune() {
    return impl_->slicer.seek_clean_position();
}

double TuneGlobals::GetPreAmpOffsetRampStart(bool bLowGainPreAmp) {
    return impl_->detector.preamp_ramp_start(bLowGainPreAmp);
}

double TuneGlobals::GetPreAmpOffsetRampStop(bool bLowGainPreAmp) {
    return impl_->detector.preamp_ramp_stop(bLowGainPreAmp);
}

double TuneGlobals::GetPreAmpOffsetRampStep() {
    return impl_->detector.preamp_ramp_step();
}

double TuneGlobals::GetPulseHeightTarget() {
    return impl_->detector.pulse_height_target();
}

double TuneGlobals::GetBaselineCutoff() {
    return impl_->detector.baseline_cutoff();
}

double TuneGlobals::GetNumTransScalingFactor() {
    return impl_->detector.transients_scaling_factor();
}

double TuneGlobals::GetAbForFullDetectorSaturation() {
    return impl_->detector.full_saturation_abundance();
}

double TuneGlobals::GetHardSaturationThreshold() {
    return impl_->detector.hard_saturation_threshold("GetHardSaturationThreshold");
}

double TuneGlobals::GetSaturationThreshold_Hard() {
    return impl_->detector.hard_saturation_threshold("GetSaturationThreshold_Hard");
}

double TuneGlobals::GetMaxAbBeforeSaturationOccurs() {
    return impl_->detector.max_abundance_before_saturation();
}

double TuneGlobals::GetSaturationThreshold_Begin() {
    return impl_->detector.saturation_begin();
}

std::int32_t TuneGlobals::GetMinSpectrumTime_usec() {
    return impl_->detector.min_spectrum_time_us();
}

std::int32_t TuneGlobals::GetMaxSpectrumTime_usec() {
    return impl_->detector.max_spectrum_time_us();
}

bool TuneGlobals::EnableAbundanceReductionTechnology() {
    return impl_->detector.abundance_reduction_enabled();
}

bool TuneGlobals::ThisIsAnAbundanceAdjustableRamp(std::int32_t, const VariantArray<double>& vCalibrantMasses) {
    return impl_->detector.is_abundance_adjustable(vCalibrantMasses);
}

double TuneGlobals::GetInitSP(const std::string&, const std::string&,
                              const std::string& InternalNameOfParameterToRetrieve) {
    return impl_->detector.initial_value_of_state(InternalNameOfParameterToRetrieve);
}

double TuneGlobals::GetAutotuneSetpointInitValue(const std::string& strParamInternalName) {
    return impl_->detector.initial_value(strParamInternalName);
}

double TuneGlobals::GetDefaultFragmentorValue() {
    return impl_->detector.fragmentor();
}

double TuneGlobals::GetDefaultGasTempValue() {
    return impl_->detector.drying_gas_temperature();
}

double TuneGlobals::GetDefaultSheathGasTempValue() {
    return impl_->detector.sheath_gas_temperature();
}

double TuneGlobals::GetDefaultSheathGasPressureValue() {
    return impl_->detector.sheath_gas_pressure();
}

double TuneGlobals::GetDefaultDryingGasValue() {
    return impl_->detector.drying_gas_pressure();
}

}  // namespace korvane
