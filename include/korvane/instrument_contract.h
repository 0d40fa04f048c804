// The contract of an instrument: every number and every name by which the library asks an instrument layer for
// something. The library uses these and no others. What may be null and what a call may assume stands at the members in
// instrument.h, mass_time.h and peak_finder.h.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

namespace korvane::contract {

/// One thing asked for by its key, a number or a text. Stands for the key where that is wanted.
template <class Key>
struct Entry {
    using Value = std::conditional_t<std::is_integral_v<Key>, Key, std::string>;

    Key key;
    const char* name;
    const char* unit;  ///< of the value; "code" or "flag" without one
    const char* meaning;
    const char* routine;  ///< that needs it

    constexpr operator Value() const { return key; }
};
using Number = Entry<std::int32_t>;
using Text = Entry<const char*>;

/// Indexes of the setpoint table.
struct Setpoints {
    Number sampling_rate{18, "sampling rate", "code", "of the digitiser: `sampling_rate`",
                         "GetNumTransTuneSPForCurrentSamplingRate"};
    Number scintillator{69, "scintillator", "flag", "0 while peaks are measured", "GetPeakInfoForCalibrantMasses"};
    Number vcap_esi{104, "capillary voltage, ESI", "V", "of sources 0, 5 and unknown ones",
                    "GetSourceSpecificVCapSetpointIndex"};
    Number vcap_multimode{105, "capillary voltage, Multimode", "V", "of source 4",
                          "GetSourceSpecificVCapSetpointIndex"};
    Number vcap_nano_esi{106, "capillary voltage, nanoESI", "V", "of sources 2 and 6",
                         "GetSourceSpecificVCapSetpointIndex"};
    Number vcap_appi{107, "capillary voltage, APPI", "V", "of source 8", "GetSourceSpecificVCapSetpointIndex"};
    Number vcap_hplc_tile{116, "capillary voltage, HPLC-Tile", "V", "of source 1",
                          "GetSourceSpecificVCapSetpointIndex"};
    Number source_type{117, "source type", "code",
                       "0, 5, 9, 11 ESI; 1 HPLC-Tile; 2, 6 nanoESI; 3 MALDI; 4 Multimode; 7 APCI; 8 APPI; 10 GC-APCI",
                       "GetSourceTypeStr"};
    Number polarity{119, "polarity", "code", "`polarity`", "GetPolarityStr"};
    Number vcap_apci{121, "capillary voltage, APCI", "V", "of sources 7 and 10", "GetSourceSpecificVCapSetpointIndex"};
    Number vaporizer_apci{123, "vaporizer, APCI and APPI", "degree C", "temperature",
                          "GetSourceSpecificVaporizerSetpointIndex"};
    Number vaporizer_multimode{124, "vaporizer, Multimode", "degree C", "temperature; also of sources without one",
                               "GetSourceSpecificVaporizerSetpointIndex"};
    Number corona_positive{125, "corona, positive", "uA", "current", "GetPolaritySpecificCoronaSetpointIndex"};
    Number corona_negative{126, "corona, negative", "uA", "current", "GetPolaritySpecificCoronaSetpointIndex"};
    Number transients_1_ghz{127, "transients at 1 GHz", "count", "summed in a spectrum",
                            "GetNumTransTuneSPForCurrentSamplingRate"};
    Number mass_range{128, "mass range", "code", "`MassRangeComboBoxSelection`", "GetMaxMassForCurrentMassRange"};
    Number highest_extended_mass{135, "highest mass of the high mass range", "amu", "upper limit there",
                                 "IsThisMassInCurrentMassRange"};
    Number preamp_gain_mode{149, "pre-amplifier gain mode", "code", "`preamp_gain_mode`", "GetPreAmpOffsetRampStep"};
    Number high_resolution{150, "high resolution", "flag", "not 0 is on", "GetCurrentInstrumentStateAsString"};
    Number transients_2_ghz{160, "transients at 2 GHz", "count", "summed in a spectrum",
                            "GetNumTransTuneSPForCurrentSamplingRate"};
    Number transients_4_ghz{161, "transients at 4 GHz", "count", "summed in a spectrum",
                            "GetNumTransTuneSPForCurrentSamplingRate"};
    Number averaging{162, "averaging of abundances", "flag", "not 0: a probe is the mean of several spectra",
                     "BinaryAdjustAbundanceDownUsingThisSetpoint"};
    Number vcap_sgf{165, "capillary voltage, sheath gas", "V", "of sources 9 and 11",
                    "GetSourceSpecificVCapSetpointIndex"};
    Number sheath_gas_pressure{167, "sheath gas", "l/min", "flow", "GetDefaultSheathGasPressureValue"};
    Number sheath_gas_temperature{169, "sheath gas temperature", "degree C", "temperature",
                                  "GetDefaultSheathGasTempValue"};
    Number lowest_mass{300, "lowest mass", "amu", "lower limit of every mass range", "IsThisMassInCurrentMassRange"};
};
inline constexpr Setpoints setpoint{};

/// Internal names of the setpoint table.
struct SetpointNames {
    Text slicer_position{"SlicerPosition", "slicer position", "number", "from 1; an instrument without slicer has none",
                         "SeekNextAvailableCleanSlicerPosForTune"};
};
inline constexpr SetpointNames setpoint_name{};

/// Channels of the firmware.
struct FirmwareChannelNumbers {
    Number quad_amu{22, "quadrupole mass", "amu", "written and read back without the setpoint table",
                    "BinaryAdjustAbundanceDownUsingThisSetpoint_Fast"};
};
inline constexpr FirmwareChannelNumbers firmware_channel{};

/// Codes of hardware options. A code whose option is not installed has a name all the same.
struct OptionCodes {
    Number digitiser{4, "digitiser", "option", "selects parameters of 4 GHz", "GetPulseHeightTarget"};
    Number dual_source{13, "dual source", "option", "selects defaults of the dual sources", "GetDefaultGasTempValue"};
};
inline constexpr OptionCodes option{};

/// Numbers of the parameter catalogue.
struct ParameterNumbers {
    Number experiment{23, "experiment", "text", "its name stands in one entry of the metadata description",
                      "WaitForSpectrumWithProperPolarityAndExperimentIndex"};
};
inline constexpr ParameterNumbers parameter{};

/// Items of the data dictionary.
struct DictionaryItems {
    Text coefficient_a{"CoefA", "default coefficient A", "sqrt(amu)/ns", "of the calibration",
                       "getDefaultCalibCoefA_nsec"};
    Text coefficient_b{"CoefB", "default coefficient B", "ns", "of the calibration",
                       "getDefaultCalibrationCoeffs_nsec"};
    Text reserved_1{"CalReserved1", "default calibration setting", "code", "of the calibration",
                    "getDefaultMTObj_nsec"};
    Text traditional_weighting{"CalTraditionalWeighting", "default calibration setting", "code", "of the calibration",
                               "getDefaultMTObj_nsec"};
    Text polynomial_weighting{"CalPolynomialWeighting", "default calibration setting", "code", "of the calibration",
                              "getDefaultMTObj_nsec"};
    Text slicer_hours{"SlicerPos[n].Hours", "running hours of slicer position n", "h",
                      "n from 1; an instrument without slicer has none", "SeekNextAvailableCleanSlicerPosForTune"};
};
inline constexpr DictionaryItems dictionary_item{};

/// The item of one slicer position, from 1.
inline std::string slicer_hours_item(std::int32_t position) {
    std::string item = dictionary_item.slicer_hours;
    return item.replace(item.find('n'), 1, std::to_string(position));
}

/// Paths of registers.
struct Registers {
    Text not_ready_state{"ACTUAL.NDR[NRDYSTATE]", "not-ready state", "code", "negative is not ready",
                         "CheckInstrumentReadyState"};
    Text run_state{"REG[ACTUAL].OBJ[1].NDR[RUNSTATE]", "run state", "code", "`run_state`; by both objects",
                   "GetMetaValue, CheckInstrumentReadyState"};
};
inline constexpr Registers instrument_register{};

/// The type texts with which `actual_value` is asked for registers.
inline constexpr const char* not_ready_state_type = "";
inline constexpr const char* run_state_type = "VARIANT";

/// Names in the metadata of spectra. The items of `next_spectrum_metadata` bear the external names of setpoints.
struct MetadataNames {
    Text setpoint_mark{"(S)", "mark of a set value", "text",
                       "one entry of the description has it and the polarity's external name; its values are 0 and 1",
                       "WaitForSpectrumWithProperPolarityAndExperimentIndex"};
    Text lens_2{"Lens 2", "second lens", "as the setpoint", "a whole name; other names are found by their beginning",
                "GetMetaValue"};
};
inline constexpr MetadataNames metadata_name{};

/// Values of the register `run_state`.
struct RunStates {
    Number pre_run{1, "pre-run", "code", "a spectrum's metadata are asked for in this state only", "GetMetaValue"};
};
inline constexpr RunStates run_state{};

/// Values of the setpoint `sampling_rate`.
struct SamplingRates {
    Number at_1_ghz{1, "1 GHz", "code", "also what an unknown code counts as",
                    "GetNumTransTuneSPForCurrentSamplingRate"};
    Number at_2_ghz{2, "2 GHz", "code", "", "GetNumTransTuneSPForCurrentSamplingRate"};
    Number at_4_ghz{3, "4 GHz", "code", "", "GetNumTransTuneSPForCurrentSamplingRate"};
};
inline constexpr SamplingRates sampling_rate{};

/// Values of the setpoint `preamp_gain_mode`.
struct PreampGainModes {
    Number standard{0, "standard", "code", "", "GetCurrentInstrumentStateAsString"};
    Number high{1, "high gain", "code", "", "GetCurrentInstrumentStateAsString"};
    Number low{2, "low gain", "code", "selects the low-gain parameters", "GetPreAmpOffsetRampStep"};
    Number extended{3, "extended dynamic range", "code", "", "GetCurrentInstrumentStateAsString"};
};
inline constexpr PreampGainModes preamp_gain_mode{};

/// Values of the setpoint `polarity`; of its calibrations too.
struct Polarities {
    Number positive{0, "positive", "code", "", "GetPolarityStr"};
    Number negative{1, "negative", "code", "any other value than 0 counts as negative", "GetPolarityStr"};
};
inline constexpr Polarities polarity{};

/// Values of the setpoint `source_type` that a rule asks for by itself.
struct SourceTypes {
    Number dual_sgf{11, "dual sheath-gas source", "code", "", "GetDefaultGasTempValue"};
};
inline constexpr SourceTypes source_type{};

/// Answers of `SetpointTable::variable_type`: the type in which a value is written.
struct VariableTypes {
    Number int32{3, "32-bit integer", "code", "", "SetMSSetpointValueByIdx"};
    Number real{4, "double", "code", "", "SetMSSetpointValueByIdx"};
    Number int16{6, "16-bit integer", "code", "", "SetMSSetpointValueByIdx"};
};
inline constexpr VariableTypes variable_type{};

/// What `LogbookEntry::write` gets besides the message; its other numbers are 0, its text is empty.
struct LogbookCodes {
    Number kind{32, "kind of entry", "code", "first argument", "ReportStatusToLogbook"};
    Number code{5, "second code", "code", "third argument", "ReportStatusToLogbook"};
};
inline constexpr LogbookCodes logbook{};

/// What the two options of a peak finder are set to.
struct PeakFinderSettings {
    Number minimum_samples{3, "least number of samples of a peak", "count", "", "FindPeakForMass"};
    Number baseline_removal{1, "baseline removal", "flag", "on", "FindPeakForMass"};
};
inline constexpr PeakFinderSettings peak_finder{};

/// The first characters of an instrument model that has calibration and gas defaults of its own.
inline constexpr const char* model_4410 = "K4410";

}  // namespace korvane::contract
