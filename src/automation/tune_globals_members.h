// Member table of TuneGlobals. The order of the lines is the order of the vtable; numbers and order are a public
// contract.
#pragma once

#include "automation/member.h"
#include "korvane/tune_globals.h"

namespace korvane::automation {

inline constexpr auto tune_globals_members = member_table(
    property<&TuneGlobals::CurrentTimeSegment, &TuneGlobals::set_CurrentTimeSegment>(
        1, "Time segment of every setpoint read and write."),
    property<&TuneGlobals::CurrentScanSegment, &TuneGlobals::set_CurrentScanSegment>(
        2, "Scan segment of every setpoint read and write."),
    property<&TuneGlobals::ErrorMsgString, &TuneGlobals::set_ErrorMsgString>(
        3, "Text of the last error that a routine caught, also of those raised again."),
    property<&TuneGlobals::m_AbundanceReductionTechnology_VCap, &TuneGlobals::set_m_AbundanceReductionTechnology_VCap>(
        4, "Capillary voltage of abundance reduction."),
    property<&TuneGlobals::m_AbundanceReductionTechnology_Fragmentor,
             &TuneGlobals::set_m_AbundanceReductionTechnology_Fragmentor>(5,
                                                                          "Fragmentor voltage of abundance reduction."),
    method<&TuneGlobals::convert_coefficients_usec_to_nsec>(
        6, "Calibration coefficients from microseconds to nanoseconds.", reference("calcoef")),
    method<&TuneGlobals::convert_coefficients_nsec_to_usec>(
        7, "Calibration coefficients from nanoseconds to microseconds, or the other way.", reference("calcoef"),
        reference("b_usec_to_nsec", false)),
    method<&TuneGlobals::ReportStatusToLogbook>(
        8, "Writes an entry to the instrument's logbook; shows a message box on request.", reference("sMessage"),
        reference("bDoMessageBox", false), reference("bDoTraceOutput", true)),
    method<&TuneGlobals::LargestMassInMassList>(9, "Largest element from index 0 on, at least 0.",
                                                reference("massList"))
        .returning_variant(),
    method<&TuneGlobals::UserHasClickedAbort>(10, "Whether an abort was requested."),
    method<&TuneGlobals::GetDefaultMassList>(
        11, "Default calibrant masses of a source and polarity, within the current mass range.",
        reference("sourceType"), reference("polarity")),
    method<&TuneGlobals::GetPolarityStr>(12, "Positive or Negative."),
    method<&TuneGlobals::GetPolarityTuneSetpointValue>(13, "Polarity as the instrument interface names it."),
    method<&TuneGlobals::GetMassListTypeFromSourceTypeString>(14, "Source type under which the mass lists are kept.",
                                                              reference("sourceType")),
    method<&TuneGlobals::GetSourceTypeStr>(15, "Name of the ion source."),
    method<&TuneGlobals::GetSourceSpecificVaporizerSetpointIndex>(16, "Index of the source's vaporizer setpoint."),
    method<&TuneGlobals::GetSourceSpecificVCapSetpointIndex>(17, "Index of the source's capillary voltage setpoint."),
    method<&TuneGlobals::GetNumTransTuneSPForCurrentSamplingRate>(18, "Index of the number-of-transients setpoint."),
    method<&TuneGlobals::QuadType>(19, "Type of the quadrupole by its largest mass."),
    method<&TuneGlobals::EnableAbundanceReductionTechnology>(20, "Whether abundance reduction is enabled."),
    method<&TuneGlobals::GetPulseHeightTarget>(21, "Target of counts per ion."),
    method<&TuneGlobals::GetBaselineCutoff>(22, "Transmission of the pulse height discriminator."),
    method<&TuneGlobals::GetNumTransScalingFactor>(23, "Number of transients divided by 10000."),
    method<&TuneGlobals::GetCurrentCalibrationObjFromDD>(24, "Calibration of the current polarity."),
    method<&TuneGlobals::getDefaultCalibCoefA_nsec>(25, "Default coefficient A."),
    method<&TuneGlobals::getDefaultCalibrationCoeffs_nsec>(26, "Default coefficients; C to H are 0."),
    method<&TuneGlobals::getDefaultMTObj_nsec>(27,
                                               "The current calibration, set to default settings and coefficients."),
    method<&TuneGlobals::GetDefaultFragmentorValue>(28, "Default fragmentor voltage."),
    method<&TuneGlobals::GetDefaultGasTempValue>(29, "Default drying gas temperature."),
    method<&TuneGlobals::GetDefaultSheathGasTempValue>(30, "Default sheath gas temperature."),
    method<&TuneGlobals::GetDefaultSheathGasPressureValue>(31, "Default sheath gas pressure."),
    method<&TuneGlobals::GetDefaultDryingGasValue>(32, "Default drying gas flow."),
    method<&TuneGlobals::CalculateStdevOfMassAssignmentErrorForTheseMasses>(
        33,
        "Mass errors in ppm of measured flight times (rows are calibrants), with mean and standard deviation a "
        "calibrant.",
        reference("varExpectedMasses"), reference("varMeasuredTimes"), reference("pLocalCopyOfCurrentMTCalcObjFromDD"),
        result("calibErrorRawData"), result("calibErrorMean"), result("calibStdDevs")),
    method<&TuneGlobals::CalculateMeanAndStdevForThisData>(34, "Mean and sample standard deviation of every column.",
                                                           reference("varMeasuredValues"), result("Means"),
                                                           result("StdDevs")),
    method<&TuneGlobals::WriteLineToTuneErrorLogFile>(35, "Appends a line to the tune error log; never raises.",
                                                      reference("strMessage")),
    method<&TuneGlobals::ReleaseTuneLogFile>(36, "Closes the tune log."),
    method<&TuneGlobals::WriteLineToTuneLogFile>(37, "Appends a line to the tune log; never raises.",
                                                 reference("strMessage")),
    method<&TuneGlobals::WriteLineToSetpointLogFile>(38, "Appends a line to the setpoint log; never raises.",
                                                     reference("strMessage")),
    method<&TuneGlobals::WriteThisCalibrationObjToDD>(39, "Stores a calibration as that of the current polarity.",
                                                      reference("pMTCalcObj")),
    method<&TuneGlobals::SetNewCalibrationWithTheseAAndt0Values_usec>(
        40, "Stores the current calibration with new A and t0, in microseconds.", reference("LikelyA"),
        reference("t0")),
    method<&TuneGlobals::GetMetaValue>(41, "Value of an item of the next spectrum's metadata, to 2 decimals.",
                                       value("SetpointExternalName")),
    method<&TuneGlobals::GetPolaritySpecificCoronaSetpointIndex>(42, "Index of the polarity's corona setpoint."),
    method<&TuneGlobals::WaitThisManySeconds>(43, "Waits, polling for an abort.",
                                              reference("wait_time_in_seconds").declared(TypeKind::variant)),
    method<&TuneGlobals::GetPolarity3LetterAbbreviation>(44, "pos or neg."),
    method<&TuneGlobals::GetMinSpectrumTime_usec>(45, "Shortest flight time of a spectrum."),
    method<&TuneGlobals::GetMaxSpectrumTime_usec>(46, "Flight time of the largest mass of the current range."),
    method<&TuneGlobals::GetPreAmpOffsetRampStart>(47, "Start of the pre-amplifier offset ramp.",
                                                   reference("bLowGainPreAmp", false)),
    method<&TuneGlobals::GetPreAmpOffsetRampStop>(48, "End of the pre-amplifier offset ramp.",
                                                  reference("bLowGainPreAmp", false)),
    method<&TuneGlobals::GetPreAmpOffsetRampStep>(49, "Step of the pre-amplifier offset ramp."),
    method<&TuneGlobals::GetInitSP>(50, "Value at which autotune starts a parameter.", reference("polarity"),
                                    reference("Source"), reference("InternalNameOfParameterToRetrieve")),
    method<&TuneGlobals::GetAutotuneSetpointInitValue>(
        51, "Value at which autotune starts a parameter, for the current source and polarity.",
        reference("strParamInternalName")),
    method<&TuneGlobals::GetHardSaturationThreshold>(52, "Abundance of full detector saturation."),
    method<&TuneGlobals::GetSaturationThreshold_Hard>(53, "Abundance of full detector saturation."),
    method<&TuneGlobals::GetAbForFullDetectorSaturation>(54, "Abundance of full detector saturation: 255 a transient."),
    method<&TuneGlobals::GetSaturationThreshold_Begin>(55, "Abundance at which saturation begins."),
    method<&TuneGlobals::GetMaxAbBeforeSaturationOccurs>(56, "Abundance at which saturation begins."),
    method<&TuneGlobals::ThisIsAnAbundanceAdjustableRamp>(57, "Whether there is exactly one calibrant mass.",
                                                          reference("PeakFeatureToOptimize"),
                                                          reference("vCalibrantMasses")),
    method<&TuneGlobals::SetMSSetpointValueByInternalName>(
        58, "Changes a setpoint by name and returns the value read back.", reference("strParameterName"),
        value("new_value", setpoint_value_not_given), reference("Delta", 0.0), reference("wait_time", 0.0),
        reference("bDoNotReturnUntilSetpointValueHasBeenSet", false)),
    method<&TuneGlobals::SetMSSetpointValueByIdx>(
        59, "Changes a setpoint by index and returns the value read back.", reference("SetpointIdx"),
        value("new_value", setpoint_value_not_given), reference("Delta", 0.0), reference("wait_time", 0.0),
        reference("bDoNotReturnUntilSetpointValueHasBeenSet", false)),
    method<&TuneGlobals::GetMSSetpointValueByInternalName>(60, "Value of a setpoint by name.",
                                                           reference("strParameterName")),
    method<&TuneGlobals::GetMSSetpointValueByIdx>(61, "Value of a setpoint by index.", reference("lSetpointIdx")),
    method<&TuneGlobals::IsSlicerPosHighResolution>(62, "Whether the slicer stands at a high-resolution position."),
    method<&TuneGlobals::SeekNextAvailableCleanSlicerPosForTune>(
        63, "Next slicer position that is clean enough for a tune."),
    method<&TuneGlobals::GetMaxMassForCurrentMassRange>(64, "Largest mass of the current range."),
    method<&TuneGlobals::IsThisMassInCurrentMassRange>(65, "Whether a mass lies in the current range.", value("mz")),
    method<&TuneGlobals::GetCurrentInstrumentStateAsString>(66, "Sampling rate, gain mode and mass range in a line."));

}  // namespace korvane::automation
