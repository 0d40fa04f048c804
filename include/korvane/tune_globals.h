// Shared tune state and helpers: setpoints, mass calibration, logs, source and polarity, detector and default values.
#pragma once

#include <cstdint>
#include <string>

#include "korvane/enumerations.h"
#include "korvane/mass_time.h"
#include "korvane/platform.h"
#include "korvane/records.h"

namespace korvane {

/// Every member that fails raises `Error`. Members that ask the instrument pass its errors on, and error 91 where there
/// is none or it lends nothing; members that read configuration raise the stores' errors; values out of an integer's
/// range are error 6. Setpoints are those of the current segments.
class KORVANE_API TuneGlobals {
public:
    /// Needs no instrument. Reads the preference "LogSetpointTraffic" where the base folder is known: errors -901,
    /// -904.
    explicit TuneGlobals(Platform platform = Platform::process_default());

    // Properties.

    /// Time segment of every setpoint access; 0 at first.
    std::int32_t CurrentTimeSegment() const;
    void set_CurrentTimeSegment(std::int32_t value);
    /// Scan segment of every setpoint access; 0 at first.
    std::int32_t CurrentScanSegment() const;
    void set_CurrentScanSegment(std::int32_t value);
    /// Text of the last error that a routine of this object caught, also of those it raised again.
    std::string ErrorMsgString() const;
    void set_ErrorMsgString(const std::string& value);
    /// Capillary voltage in V that the caller keeps here for abundance reduction; 0 at first.
    double m_AbundanceReductionTechnology_VCap() const;
    void set_m_AbundanceReductionTechnology_VCap(double value);
    /// Fragmentor voltage in V that the caller keeps here for abundance reduction; 0 at first.
    double m_AbundanceReductionTechnology_Fragmentor() const;
    void set_m_AbundanceReductionTechnology_Fragmentor(double value);

    // Setpoints, in their own units. Waits raise error 1 "User aborted" within 0.5 s of the user's request.

    /// Sets `new_value`, or the present value plus `Delta` where that is not 0; waits `wait_time` seconds and, if asked
    /// to, up to 15 s for a spectrum that reports the value. A target out of the limits is skipped in silence. Gives
    /// the value read back. Errors: -1 unknown variable type, -807 value not reported in time, 5 a target that is no
    /// number.
    double SetMSSetpointValueByIdx(std::int32_t SetpointIdx, double new_value = setpoint_value_not_given,
                                   double Delta = 0.0, float wait_time = 0,
                                   bool bDoNotReturnUntilSetpointValueHasBeenSet = false);
    /// The same by internal name.
    double SetMSSetpointValueByInternalName(const std::string& strParameterName,
                                            double new_value = setpoint_value_not_given, double Delta = 0.0,
                                            float wait_time = 0, bool bDoNotReturnUntilSetpointValueHasBeenSet = false);
    /// Name of the metadata item that the last wait for a setpoint sought, where no spectrum had it; else empty.
    std::string unreported_item() const;
    /// Error 1 when the user has asked to abort.
    double GetMSSetpointValueByIdx(std::int32_t lSetpointIdx);
    double GetMSSetpointValueByInternalName(const std::string& strParameterName);
    /// Value of the first item of the next spectrum's metadata whose name begins so, to 2 decimals;
    /// `setpoint_value_not_given` where there is none; every name begins with the empty one. Waits for the pre-run
    /// state. Error 13: the item is no number.
    double GetMetaValue(const std::string& SetpointExternalName);
    /// Error 5 for a time that is not finite.
    void WaitThisManySeconds(double wait_time_in_seconds);
    /// Reads the abort flag from the preference file.
    bool UserHasClickedAbort();

    // Mass calibration. Coefficients are in ns unless a name ends in _usec; error 6 where one exceeds a double.

    CalibrationCoefficients convert_coefficients_usec_to_nsec(const CalibrationCoefficients& calcoef);
    /// The other way with `b_usec_to_nsec`. Terms are those in use by the calibration of the current polarity.
    CalibrationCoefficients convert_coefficients_nsec_to_usec(const CalibrationCoefficients& calcoef,
                                                              bool b_usec_to_nsec = false);
    /// What the instrument lends for the current polarity; error 91 when that is nothing.
    CalibrationObject GetCurrentCalibrationObjFromDD();
    /// In sqrt(amu)/ns: override value, model's value or dictionary item "CoefA".
    double getDefaultCalibCoefA_nsec();
    /// A and B; the others are 0.
    CalibrationCoefficients getDefaultCalibrationCoeffs_nsec();
    /// The lent object itself, with default coefficients and settings put into it.
    CalibrationObject getDefaultMTObj_nsec();
    /// Stores it for the current polarity. Error 91 for no object.
    void WriteThisCalibrationObjToDD(const CalibrationObject& pMTCalcObj);
    /// Puts A (sqrt(amu)/us) and t0 (us) into the current calibration, converts all its coefficients and stores it.
    void SetNewCalibrationWithTheseAAndt0Values_usec(double LikelyA, double t0);
    /// Errors in ppm of masses (columns: repeats) from flight times in ns; rows are calibrants. Mean and sample
    /// standard deviation of every row. Errors: 9 unless there is one expected mass a row, 11 with one repeat or a mass
    /// of 0.
    void CalculateStdevOfMassAssignmentErrorForTheseMasses(const VariantArray<double>& varExpectedMasses,
                                                           const VariantMatrix<double>& varMeasuredTimes,
                                                           const CalibrationObject& pLocalCopyOfCurrentMTCalcObjFromDD,
                                                           VariantMatrix<double>& calibErrorRawData,
                                                           VariantArray<double>& calibErrorMean,
                                                           VariantArray<double>& calibStdDevs);
    /// Mean and sample standard deviation of every column. Error 11 with one row, when the means stand.
    void CalculateMeanAndStdevForThisData(const VariantMatrix<double>& varMeasuredValues, VariantArray<double>& Means,
                                          VariantArray<double>& StdDevs);

    // Logs in "Logfiles" of the base folder. The three writers never raise: their failure is left in ErrorMsgString.

    /// Opens "TuneLog_YYYYMMDD_HHmmss.txt" at the first line.
    void WriteLineToTuneLogFile(const std::string& strMessage);
    /// A file of its own for every second: "TuneErrorLog_YYYYMMDD_HHmmss.txt".
    void WriteLineToTuneErrorLogFile(const std::string& strMessage);
    /// To "SetpointLog.txt", only where the preference "LogSetpointTraffic" was "Yes" at creation.
    void WriteLineToSetpointLogFile(const std::string& strMessage);
    /// Closes the tune log; the next line opens another.
    void ReleaseTuneLogFile();
    /// Writes to the instrument's logbook and, as asked for, to the trace and into a message box.
    void ReportStatusToLogbook(const std::string& sMessage, bool bDoMessageBox = false, bool bDoTraceOutput = true);
    /// Path of the open tune log, else of the last one; empty before the first line.
    std::string tune_log_path() const;

    // Source, polarity, instrument state.

    /// "Positive" or "Negative".
    std::string GetPolarityStr();
    /// "pos" or "neg".
    std::string GetPolarity3LetterAbbreviation();
    PolaritySetpoint GetPolarityTuneSetpointValue();
    /// Index of the corona current.
    std::int32_t GetPolaritySpecificCoronaSetpointIndex();
    /// Name of the source, as "ESI" or "GC-APCI"; empty for an unknown code.
    std::string GetSourceTypeStr();
    /// Source under which the mass-list file has the masses of `sourceType`.
    std::string GetMassListTypeFromSourceTypeString(const std::string& sourceType);
    /// Index of the vaporizer temperature; that of Multimode for sources without vaporizer.
    std::int32_t GetSourceSpecificVaporizerSetpointIndex();
    /// Index of the capillary voltage; that of ESI for unknown sources.
    std::int32_t GetSourceSpecificVCapSetpointIndex();
    /// Index of the number of transients; that of 1 GHz for an unknown rate.
    std::int32_t GetNumTransTuneSPForCurrentSamplingRate();
    /// By the tune parameter "QuadMaxMass"; 0 for another mass than 4000 and 8000 amu.
    enumQuadType QuadType();
    /// Sampling rate, gain mode and mass range in words.
    std::string GetCurrentInstrumentStateAsString();
    /// The default list in amu, cut to as many masses as lie below the highest mass. Errors: the file's, 9 no mass.
    VariantArray<double> GetDefaultMassList(const std::string& sourceType, const std::string& polarity);
    /// In amu, at least 0. Errors: 13 no array, 9 a lower bound above 0.
    double LargestMassInMassList(const VariantArray<double>& massList);
    /// In amu: 1700, 3200, 10000 or 20000.
    double GetMaxMassForCurrentMassRange();
    /// `mz` in amu; the ends belong to the range.
    bool IsThisMassInCurrentMassRange(double mz);
    bool IsSlicerPosHighResolution();
    /// Moves the slicer to the next position of its resolution whose running hours are below the limit and gives it; -1
    /// and a line in the tune log where there is none. Error -1: the position is impossible or was not taken.
    double SeekNextAvailableCleanSlicerPosForTune();

    // Detector, from the tune parameters and setpoints. Abundances are in counts.

    /// Where a ramp of the pre-amplifier's offset starts, in the unit of the tune parameter file.
    double GetPreAmpOffsetRampStart(bool bLowGainPreAmp = false);
    /// Where it stops, in the same unit.
    double GetPreAmpOffsetRampStop(bool bLowGainPreAmp = false);
    /// Its step, in the same unit, for the gain channel set now.
    double GetPreAmpOffsetRampStep();
    /// Counts an ion.
    double GetPulseHeightTarget();
    /// Transmission of the pulse-height distribution, as the parameter file has it.
    double GetBaselineCutoff();
    /// Number of transients over 10000.
    double GetNumTransScalingFactor();
    /// 255 counts a transient.
    double GetAbForFullDetectorSaturation();
    /// The same.
    double GetHardSaturationThreshold();
    /// The same.
    double GetSaturationThreshold_Hard();
    /// Where saturation begins, scaled to the number of transients.
    double GetMaxAbBeforeSaturationOccurs();
    /// The same.
    double GetSaturationThreshold_Begin();
    /// 10 us.
    std::int32_t GetMinSpectrumTime_usec();
    /// Flight time in us of the highest mass, halves to even.
    std::int32_t GetMaxSpectrumTime_usec();
    bool EnableAbundanceReductionTechnology();
    /// True for a single calibrant at index 0. Error 13 for no array.
    bool ThisIsAnAbundanceAdjustableRamp(std::int32_t PeakFeatureToOptimize,
                                         const VariantArray<double>& vCalibrantMasses);

    // Values a tune starts from, in the units of their setpoints. Errors -904, -905: not in the parameter file.

    /// GetAutotuneSetpointInitValue of the name; polarity and source are those of now.
    double GetInitSP(const std::string& polarity, const std::string& Source,
                     const std::string& InternalNameOfParameterToRetrieve);
    /// For the current polarity and source.
    double GetAutotuneSetpointInitValue(const std::string& strParamInternalName);
    /// In V.
    double GetDefaultFragmentorValue();
    /// Drying gas, in degree C.
    double GetDefaultGasTempValue();
    /// In degree C; the setpoint's value without a dual source.
    double GetDefaultSheathGasTempValue();
    /// In the unit of the tune parameter file; the setpoint's value without a dual source.
    double GetDefaultSheathGasPressureValue();
    /// Drying gas, in the unit of the tune parameter file.
    double GetDefaultDryingGasValue();

private:
    struct Impl;
    PrivateState<Impl> impl_;
};

}  // namespace korvane
