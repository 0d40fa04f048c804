// The contract of an instrument: every number and every name by which the library asks an instrument layer for
// something. The library uses these and no others; `check_instrument_layer` checks each, and `contract_text` makes the
// documents' tables of them. What may be null and what a call may assume stands at the members in instrument.h,
// mass_time.h and peak_finder.h.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <string>
#include <type_traits>

#include "korvane/error.h"
#include "korvane/export.h"

namespace korvane::contract {

/// One thing asked for by its key, a number or a text. Stands for the key where that is wanted.
template <class Key>
struct Entry {
    using Value = std::conditional_t<std::is_integral_v<Key>, Key, std::string>;

    Key key;
    const char* name;
    const char* unit;  ///< of the value; "code", "flag" or "text" where it has none
    const char* meaning;
    const char* routine;  ///< that needs it

    constexpr operator Value() const { return key; }
};
using Number = Entry<std::int32_t>;
using Text = Entry<const char*>;

/// What the entries of a group have in common.
struct Group {
    const char* title;
    const char* operation;          ///< by which the layer is asked for them
    std::int32_t error_number = 0;  ///< that asking for an unknown one raises, its description naming it; 0: none
};

// Routines that several entries are for.
inline constexpr const char* transients_index = "GetNumTransTuneSPForCurrentSamplingRate";
inline constexpr const char* capillary_index = "GetSourceSpecificVCapSetpointIndex";
inline constexpr const char* vaporizer_index = "GetSourceSpecificVaporizerSetpointIndex";

struct Setpoints {
    static constexpr Group group{"Indexes of the setpoint table", "SetpointTable.value", error_number::subscript};
    Number sampling_rate{18, "sampling rate", "code", "of the digitiser: `sampling_rate`", transients_index};
    Number scintillator{69, "scintillator", "flag", "0 while peaks are measured", "GetPeakInfoForCalibrantMasses"};
    Number vcap_esi{104, "capillary voltage, ESI", "V", "of sources 0, 5 and unknown ones", capillary_index};
    Number vcap_multimode{105, "capillary voltage, Multimode", "V", "of source 4", capillary_index};
    Number vcap_nano_esi{106, "capillary voltage, nanoESI", "V", "of sources 2 and 6", capillary_index};
    Number vcap_appi{107, "capillary voltage, APPI", "V", "of source 8", capillary_index};
    Number vcap_hplc_tile{116, "capillary voltage, HPLC-Tile", "V", "of source 1", capillary_index};
    Number source_type{117, "source type", "code",
                       "0, 5, 9, 11 ESI; 1 HPLC-Tile; 2, 6 nanoESI; 3 MALDI; 4 Multimode; 7 APCI; 8 APPI; 10 GC-APCI",
                       "GetSourceTypeStr"};
    Number polarity{119, "polarity", "code", "`polarity`", "GetPolarityStr"};
    Number vcap_apci{121, "capillary voltage, APCI", "V", "of sources 7 and 10", capillary_index};
    Number vaporizer_apci{123, "vaporizer, APCI and APPI", "degree C", "temperature", vaporizer_index};
    Number vaporizer_multimode{124, "vaporizer, Multimode", "degree C", "temperature; also of sources without one",
                               vaporizer_index};
    Number corona_positive{125, "corona, positive", "uA", "current", "GetPolaritySpecificCoronaSetpointIndex"};
    Number corona_negative{126, "corona, negative", "uA", "current", "GetPolaritySpecificCoronaSetpointIndex"};
    Number transients_1_ghz{127, "transients at 1 GHz", "count", "summed in a spectrum", transients_index};
    Number mass_range{128, "mass range", "code", "`MassRangeComboBoxSelection`", "GetMaxMassForCurrentMassRange"};
    Number highest_extended_mass{135, "highest mass of the high mass range", "amu", "upper limit there",
                                 "IsThisMassInCurrentMassRange"};
    Number preamp_gain_mode{149, "pre-amplifier gain mode", "code", "`preamp_gain_mode`", "GetPreAmpOffsetRampStep"};
    Number high_resolution{150, "high resolution", "flag", "not 0 is on", "GetCurrentInstrumentStateAsString"};
    Number transients_2_ghz{160, "transients at 2 GHz", "count", "summed in a spectrum", transients_index};
    Number transients_4_ghz{161, "transients at 4 GHz", "count", "summed in a spectrum", transients_index};
    Number averaging{162, "averaging of abundances", "flag", "not 0: a probe is the mean of several spectra",
                     "BinaryAdjustAbundanceDownUsingThisSetpoint"};
    Number vcap_sgf{165, "capillary voltage, sheath gas", "V", "of sources 9 and 11", capillary_index};
    Number sheath_gas_pressure{167, "sheath gas", "l/min", "flow", "GetDefaultSheathGasPressureValue"};
    Number sheath_gas_temperature{169, "sheath gas temperature", "degree C", "temperature",
                                  "GetDefaultSheathGasTempValue"};
    Number lowest_mass{300, "lowest mass", "amu", "lower limit of every mass range", "IsThisMassInCurrentMassRange"};
};
inline constexpr Setpoints setpoint{};

struct FirmwareChannelNumbers {
    static constexpr Group group{"Channels of the firmware", "FirmwareChannels.read"};
    Number quad_amu{22, "quadrupole mass", "amu", "written and read back without the setpoint table",
                    "BinaryAdjustAbundanceDownUsingThisSetpoint_Fast"};
};
inline constexpr FirmwareChannelNumbers firmware_channel{};

struct OptionCodes {
    static constexpr Group group{"Codes of hardware options; one that is not installed has a name all the same",
                                 "HardwareQueries.option_name"};
    Number digitiser{4, "digitiser", "text", "selects parameters of 4 GHz", "GetPulseHeightTarget"};
    Number dual_source{13, "dual source", "text", "selects defaults of the dual sources", "GetDefaultGasTempValue"};
};
inline constexpr OptionCodes option{};

struct ParameterNumbers {
    static constexpr Group group{"Numbers of the parameter catalogue", "InstrumentGlobals.parameter_name"};
    Number experiment{23, "experiment", "text", "its name stands in one entry of the metadata description",
                      "WaitForSpectrumWithProperPolarityAndExperimentIndex"};
};
inline constexpr ParameterNumbers parameter{};

struct DictionaryItems {
    static constexpr Group group{"Items of the data dictionary", "InstrumentGlobals.dictionary_item",
                                 error_number::invalid_call};
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
};
inline constexpr DictionaryItems dictionary_item{};

struct SlicerNames {
    static constexpr Group group{"Of an instrument with an indexed slicer; one without raises the error for both",
                                 "SetpointTable.index_of, InstrumentGlobals.dictionary_item",
                                 error_number::invalid_call};
    Text position{"SlicerPosition", "position, a setpoint by its internal name", "number", "from 1",
                  "IsSlicerPosHighResolution, SeekNextAvailableCleanSlicerPosForTune"};
    Text hours{"SlicerPos[n].Hours", "running hours of position n, a dictionary item", "h", "n from 1",
               "SeekNextAvailableCleanSlicerPosForTune"};
};
inline constexpr SlicerNames slicer{};

/// The dictionary item of one slicer position, from 1.
inline std::string slicer_hours_item(std::int32_t position) {
    std::string item = slicer.hours;
    return item.replace(item.find('n'), 1, std::to_string(position));
}

struct Registers {
    static constexpr Group group{"Paths of registers", "InstrumentGlobals.actual_value", error_number::invalid_call};
    Text not_ready_state{"ACTUAL.NDR[NRDYSTATE]", "not-ready state", "code", "negative is not ready",
                         "CheckInstrumentReadyState"};
    Text run_state{"REG[ACTUAL].OBJ[1].NDR[RUNSTATE]", "run state", "code", "`run_state`; by both objects",
                   "GetMetaValue, CheckInstrumentReadyState"};
};
inline constexpr Registers instrument_register{};

/// The type texts with which `actual_value` is asked for registers.
inline constexpr const char* not_ready_state_type = "";
inline constexpr const char* run_state_type = "VARIANT";

struct MetadataNames {
    static constexpr Group group{"Names in the metadata of spectra, whose items bear the external names of setpoints",
                                 "InstrumentControl.GetMetaDescription, next_spectrum_metadata"};
    Text setpoint_mark{"(S)", "mark of a set value", "text",
                       "one entry of the description has it and the polarity's external name; its values are 0 and 1",
                       "WaitForSpectrumWithProperPolarityAndExperimentIndex"};
    Text lens_2{"Lens 2", "second lens", "as the setpoint", "a whole name; other names are found by their beginning",
                "GetMetaValue"};
};
inline constexpr MetadataNames metadata_name{};

struct RunStates {
    static constexpr Group group{"Values of the register `run_state`", "InstrumentControl.read_register"};
    Number pre_run{1, "pre-run", "code", "a spectrum's metadata are asked for in this state only", "GetMetaValue"};
};
inline constexpr RunStates run_state{};

struct SamplingRates {
    static constexpr Group group{"Values of the setpoint `sampling_rate`", "SetpointTable.value"};
    Number at_1_ghz{1, "1 GHz", "code", "also what an unknown code counts as", transients_index};
    Number at_2_ghz{2, "2 GHz", "code", "", transients_index};
    Number at_4_ghz{3, "4 GHz", "code", "", transients_index};
};
inline constexpr SamplingRates sampling_rate{};

struct PreampGainModes {
    static constexpr Group group{"Values of the setpoint `preamp_gain_mode`", "SetpointTable.value"};
    Number standard{0, "standard", "code", "", "GetCurrentInstrumentStateAsString"};
    Number high{1, "high gain", "code", "", "GetCurrentInstrumentStateAsString"};
    Number low{2, "low gain", "code", "selects the low-gain parameters", "GetPreAmpOffsetRampStep"};
    Number extended{3, "extended dynamic range", "code", "", "GetCurrentInstrumentStateAsString"};
};
inline constexpr PreampGainModes preamp_gain_mode{};

struct Polarities {
    static constexpr Group group{"Values of the setpoint `polarity`, and the calibrations",
                                 "SetpointTable.value, CalibrationStore.calibration"};
    Number positive{0, "positive", "code", "", "GetPolarityStr"};
    Number negative{1, "negative", "code", "any other value than 0 counts as negative", "GetPolarityStr"};
};
inline constexpr Polarities polarity{};

struct SourceTypes {
    static constexpr Group group{"Values of the setpoint `source_type` that a rule asks for by itself",
                                 "SetpointTable.value"};
    Number sgf{9, "sheath-gas source", "code", "", "GetDefaultSheathGasTempValue"};
    Number dual_sgf{11, "dual sheath-gas source", "code", "", "GetDefaultGasTempValue"};
};
inline constexpr SourceTypes source_type{};

struct VariableTypes {
    static constexpr Group group{"Types in which setpoints are written", "SetpointTable.variable_type"};
    Number int32{3, "32-bit integer", "code", "", "SetMSSetpointValueByIdx"};
    Number real{4, "double", "code", "", "SetMSSetpointValueByIdx"};
    Number int16{6, "16-bit integer", "code", "", "SetMSSetpointValueByIdx"};
};
inline constexpr VariableTypes variable_type{};

struct LogbookCodes {
    static constexpr Group group{"Numbers of a logbook entry; the others are 0, its text is empty",
                                 "LogbookEntry.write"};
    Number kind{32, "kind of entry", "code", "first argument", "ReportStatusToLogbook"};
    Number code{5, "second code", "code", "third argument", "ReportStatusToLogbook"};
};
inline constexpr LogbookCodes logbook{};

struct PeakFinderSettings {
    static constexpr Group group{"Options of a peak finder", "PeakFinder.set_minimum_samples, set_baseline_removal"};
    Number minimum_samples{3, "least number of samples of a peak", "count", "", "FindPeakForMass"};
    Number baseline_removal{1, "baseline removal", "flag", "on", "FindPeakForMass"};
};
inline constexpr PeakFinderSettings peak_finder{};

/// The first characters of an instrument model that has calibration and gas defaults of its own.
inline constexpr const char* model_4410 = "K4410";

/// The entries of a group of Number or Text, in the order of its members.
template <class Each, class Entries>
std::array<Each, sizeof(Entries) / sizeof(Each)> entries(const Entries& group) {
    return std::bit_cast<std::array<Each, sizeof(Entries) / sizeof(Each)>>(group);
}

/// All groups as tables in Markdown.
KORVANE_API std::string contract_text();

}  // namespace korvane::contract
