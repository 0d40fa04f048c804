// The façade: every member hands its work to the helper that does it.
#include "globals/series_statistics.h"
#include "globals/tune_globals_state.h"

namespace korvane {

TuneGlobals::TuneGlobals(Platform platform) : impl_(std::make_unique<Impl>(platform)) {}
TuneGlobals::~TuneGlobals() = default;
TuneGlobals::TuneGlobals(TuneGlobals&&) noexcept = default;
TuneGlobals& TuneGlobals::operator=(TuneGlobals&&) noexcept = default;

std::int32_t TuneGlobals::CurrentTimeSegment() const {
    return impl_->segments.time;
}

void TuneGlobals::set_CurrentTimeSegment(std::int32_t value) {
    impl_->segments.time = value;
}

std::int32_t TuneGlobals::CurrentScanSegment() const {
    return impl_->segments.scan;
}

void TuneGlobals::set_CurrentScanSegment(std::int32_t value) {
    impl_->segments.scan = value;
}

std::string TuneGlobals::ErrorMsgString() const {
    return impl_->error_message;
}

void TuneGlobals::set_ErrorMsgString(const std::string& value) {
    impl_->error_message = value;
}

double TuneGlobals::m_AbundanceReductionTechnology_VCap() const {
    return impl_->abundance_reduction_vcap;
}

void TuneGlobals::set_m_AbundanceReductionTechnology_VCap(double value) {
    impl_->abundance_reduction_vcap = value;
}

double TuneGlobals::m_AbundanceReductionTechnology_Fragmentor() const {
    return impl_->abundance_reduction_fragmentor;
}

void TuneGlobals::set_m_AbundanceReductionTechnology_Fragmentor(double value) {
    impl_->abundance_reduction_fragmentor = value;
}

double TuneGlobals::SetMSSetpointValueByIdx(std::int32_t SetpointIdx, double new_value, double Delta, float wait_time,
                                            bool bDoNotReturnUntilSetpointValueHasBeenSet) {
    return impl_->setpoints.set(SetpointIdx, {new_value, Delta, wait_time, bDoNotReturnUntilSetpointValueHasBeenSet});
}

double TuneGlobals::SetMSSetpointValueByInternalName(const std::string& strParameterName, double new_value,
                                                     double Delta, float wait_time,
                                                     bool bDoNotReturnUntilSetpointValueHasBeenSet) {
    return impl_->setpoints.set(strParameterName,
                                {new_value, Delta, wait_time, bDoNotReturnUntilSetpointValueHasBeenSet});
}

double TuneGlobals::GetMSSetpointValueByIdx(std::int32_t lSetpointIdx) {
    return impl_->setpoints.get(lSetpointIdx);
}

double TuneGlobals::GetMSSetpointValueByInternalName(const std::string& strParameterName) {
    return impl_->setpoints.get(strParameterName);
}

double TuneGlobals::GetMetaValue(const std::string& SetpointExternalName) {
    return impl_->setpoints.next_metadata_value(SetpointExternalName);
}

void TuneGlobals::WaitThisManySeconds(double wait_time_in_seconds) {
    impl_->setpoints.wait(wait_time_in_seconds);
}

bool TuneGlobals::UserHasClickedAbort() {
    return impl_->abort.UserHasClickedAbort();
}

CalibrationCoefficients TuneGlobals::convert_coefficients_usec_to_nsec(const CalibrationCoefficients& calcoef) {
    return impl_->calibration.to_ns(calcoef);
}

CalibrationCoefficients TuneGlobals::convert_coefficients_nsec_to_usec(const CalibrationCoefficients& calcoef,
                                                                       bool b_usec_to_nsec) {
    return impl_->calibration.convert(calcoef, b_usec_to_nsec);
}

CalibrationObject TuneGlobals::GetCurrentCalibrationObjFromDD() {
    return impl_->calibration.current();
}

double TuneGlobals::getDefaultCalibCoefA_nsec() {
    return impl_->calibration.default_a_ns();
}

CalibrationCoefficients TuneGlobals::getDefaultCalibrationCoeffs_nsec() {
    return impl_->calibration.default_coefficients_ns();
}

CalibrationObject TuneGlobals::getDefaultMTObj_nsec() {
    return impl_->calibration.default_object_ns();
}

void TuneGlobals::WriteThisCalibrationObjToDD(const CalibrationObject& pMTCalcObj) {
    impl_->calibration.store(pMTCalcObj);
}

void TuneGlobals::SetNewCalibrationWithTheseAAndt0Values_usec(double LikelyA, double t0) {
    impl_->calibration.set_a_and_t0_us(LikelyA, t0);
}

void TuneGlobals::CalculateStdevOfMassAssignmentErrorForTheseMasses(
    const VariantArray<double>& varExpectedMasses, const VariantMatrix<double>& varMeasuredTimes,
    const CalibrationObject& pLocalCopyOfCurrentMTCalcObjFromDD, VariantMatrix<double>& calibErrorRawData,
    VariantArray<double>& calibErrorMean, VariantArray<double>& calibStdDevs) {
    routine(impl_->trace, {"CalculateStdevOfMassAssignmentErrorForTheseMasses"}, [&] {
        if (!pLocalCopyOfCurrentMTCalcObjFromDD)
            raise_runtime_fault(error_number::object_not_set, "calibration object");
        auto errors = mass_errors_ppm(varExpectedMasses, varMeasuredTimes, *pLocalCopyOfCurrentMTCalcObjFromDD);
        auto statistics = column_statistics(transposed(errors));
        calibErrorRawData = std::move(errors);
        calibErrorMean = std::move(statistics.means);
        calibStdDevs = std::move(statistics.standard_deviations);
    });
}

void TuneGlobals::CalculateMeanAndStdevForThisData(const VariantMatrix<double>& varMeasuredValues,
                                                   VariantArray<double>& Means, VariantArray<double>& StdDevs) {
    routine(impl_->trace, {"CalculateMeanAndStdevForThisData"}, [&] {
        auto statistics = column_statistics(varMeasuredValues);
        Means = std::move(statistics.means);
        StdDevs = std::move(statistics.standard_deviations);
    });
}

void TuneGlobals::WriteLineToTuneLogFile(const std::string& strMessage) {
    impl_->logs.write_tune_line(strMessage);
}

void TuneGlobals::WriteLineToTuneErrorLogFile(const std::string& strMessage) {
    impl_->logs.write_error_line(strMessage);
}

void TuneGlobals::WriteLineToSetpointLogFile(const std::string& strMessage) {
    impl_->logs.write_setpoint_line(strMessage);
}

void TuneGlobals::ReleaseTuneLogFile() {
    impl_->logs.release_tune_log();
}

void TuneGlobals::ReportStatusToLogbook(const std::string& sMessage, bool bDoMessageBox, bool bDoTraceOutput) {
    impl_->logs.report_to_logbook(sMessage, bDoMessageBox, bDoTraceOutput);
}

std::string TuneGlobals::tune_log_path() const {
    return impl_->logs.tune_log_path();
}

}  // namespace korvane
