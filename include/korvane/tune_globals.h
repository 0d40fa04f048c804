// Shared tune state and helpers: setpoints, mass calibration, logs, source and polarity, detector and default values.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "korvane/enumerations.h"
#include "korvane/mass_time.h"
#include "korvane/platform.h"
#include "korvane/records.h"

namespace korvane {

/// Setpoint members raise 1 when the user asked to abort. Members that read configuration raise the stores' errors.
class KORVANE_API TuneGlobals {
public:
    explicit TuneGlobals(Platform platform = Platform::process_default());
    ~TuneGlobals();
    TuneGlobals(TuneGlobals&&) noexcept;
    TuneGlobals& operator=(TuneGlobals&&) noexcept;

    // Properties.
    std::int32_t CurrentTimeSegment() const;
    void set_CurrentTimeSegment(std::int32_t value);
    std::int32_t CurrentScanSegment() const;
    void set_CurrentScanSegment(std::int32_t value);
    /// Text of the last error that a routine caught without raising it.
    std::string ErrorMsgString() const;
    void set_ErrorMsgString(const std::string& value);
    double m_AbundanceReductionTechnology_VCap() const;
    void set_m_AbundanceReductionTechnology_VCap(double value);
    double m_AbundanceReductionTechnology_Fragmentor() const;
    void set_m_AbundanceReductionTechnology_Fragmentor(double value);

    // Setpoints. A target out of the setpoint's limits is skipped in silence; the value read back is returned.
    // Errors: -1 unknown variable type, -807 value not reached within 15 s, 6 integer overflow.
    double SetMSSetpointValueByIdx(std::int32_t SetpointIdx, double new_value = setpoint_value_not_given,
                                   double Delta = 0.0, float wait_time = 0,
                                   bool bDoNotReturnUntilSetpointValueHasBeenSet = false);
    double SetMSSetpointValueByInternalName(const std::string& strParameterName,
                                            double new_value = setpoint_value_not_given, double Delta = 0.0,
                                            float wait_time = 0, bool bDoNotReturnUntilSetpointValueHasBeenSet = false);
    double GetMSSetpointValueByIdx(std::int32_t lSetpointIdx);
    double GetMSSetpointValueByInternalName(const std::string& strParameterName);
    /// Value of the named item in the next spectrum's metadata, to 2 decimals; `setpoint_value_not_given` if absent.
    double GetMetaValue(const std::string& SetpointExternalName);
    void WaitThisManySeconds(double wait_time_in_seconds);
    bool UserHasClickedAbort();

    // Mass calibration. Coefficients are in ns unless a name ends in _usec.
    CalibrationCoefficients convert_coefficients_usec_to_nsec(const CalibrationCoefficients& calcoef);
    CalibrationCoefficients convert_coefficients_nsec_to_usec(const CalibrationCoefficients& calcoef,
                                                              bool b_usec_to_nsec = false);
    CalibrationObject GetCurrentCalibrationObjFromDD();
    double getDefaultCalibCoefA_nsec();
    CalibrationCoefficients getDefaultCalibrationCoeffs_nsec();
    CalibrationObject getDefaultMTObj_nsec();
    void WriteThisCalibrationObjToDD(const CalibrationObject& pMTCalcObj);
    void SetNewCalibrationWithTheseAAndt0Values_usec(double LikelyA, double t0);
    /// Errors in ppm of masses (columns: repeats) from flight times in ns; rows are calibrants. Error 11 with one
    /// repeat.
    void CalculateStdevOfMassAssignmentErrorForTheseMasses(const VariantArray<double>& varExpectedMasses,
                                                           const VariantMatrix<double>& varMeasuredTimes,
                                                           const CalibrationObject& pLocalCopyOfCurrentMTCalcObjFromDD,
                                                           VariantMatrix<double>& calibErrorRawData,
                                                           VariantArray<double>& calibErrorMean,
                                                           VariantArray<double>& calibStdDevs);
    /// Mean and sample standard deviation of every column. Error 11 with one row.
    void CalculateMeanAndStdevForThisData(const VariantMatrix<double>& varMeasuredValues, VariantArray<double>& Means,
                                          VariantArray<double>& StdDevs);

    // Logs. The three writers never raise: their failure is left in ErrorMsgString.
    void WriteLineToTuneLogFile(const std::string& strMessage);
    void WriteLineToTuneErrorLogFile(const std::string& strMessage);
    void WriteLineToSetpointLogFile(const std::string& strMessage);
    void ReleaseTuneLogFile();
    void ReportStatusToLogbook(const std::string& sMessage, bool bDoMessageBox = false, bool bDoTraceOutput = true);
    /// Path of the open tune log, else of the last one; empty before the first line.
    std::string tune_log_path() const;

    // Source, polarity, instrument state.
    std::string GetPolarityStr();
    std::string GetPolarity3LetterAbbreviation();
    PolaritySetpoint GetPolarityTuneSetpointValue();
    std::int32_t GetPolaritySpecificCoronaSetpointIndex();
    std::string GetSourceTypeStr();
    std::string GetMassListTypeFromSourceTypeString(const std::string& sourceType);
    std::int32_t GetSourceSpecificVaporizerSetpointIndex();
    std::int32_t GetSourceSpecificVCapSetpointIndex();
    std::int32_t GetNumTransTuneSPForCurrentSamplingRate();
    enumQuadType QuadType();
    std::string GetCurrentInstrumentStateAsString();
    VariantArray<double> GetDefaultMassList(const std::string& sourceType, const std::string& polarity);
    double LargestMassInMassList(const VariantArray<double>& massList);
    double GetMaxMassForCurrentMassRange();
    bool IsThisMassInCurrentMassRange(double mz);
    bool IsSlicerPosHighResolution();
    double SeekNextAvailableCleanSlicerPosForTune();

    // Detector and default tune values.
    double GetPreAmpOffsetRampStart(bool bLowGainPreAmp = false);
    double GetPreAmpOffsetRampStop(bool bLowGainPreAmp = false);
    double GetPreAmpOffsetRampStep();
    double GetPulseHeightTarget();
    double GetBaselineCutoff();
    double GetNumTransScalingFactor();
    double GetAbForFullDetectorSaturation();
    double GetHardSaturationThreshold();
    double GetSaturationThreshold_Hard();
    double GetMaxAbBeforeSaturationOccurs();
    double GetSaturationThreshold_Begin();
    std::int32_t GetMinSpectrumTime_usec();
    std::int32_t GetMaxSpectrumTime_usec();
    bool EnableAbundanceReductionTechnology();
    bool ThisIsAnAbundanceAdjustableRamp(std::int32_t PeakFeatureToOptimize,
                                         const VariantArray<double>& vCalibrantMasses);
    double GetInitSP(const std::string& polarity, const std::string& Source,
                     const std::string& InternalNameOfParameterToRetrieve);
    double GetAutotuneSetpointInitValue(const std::string& strParamInternalName);
    double GetDefaultFragmentorValue();
    double GetDefaultGasTempValue();
    double GetDefaultSheathGasTempValue();
    double GetDefaultSheathGasPressureValue();
    double GetDefaultDryingGasValue();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace korvane
