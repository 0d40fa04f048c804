// Creation and properties.
#include "globals/tune_globals_state.h"

namespace korvane {

namespace {

bool is_base_folder_known(InstrumentLayer& layer) {
    try {
        return !base_folder(layer).empty();
    } catch (...) {
        return false;  // A missing instrument is no reason to fail here.
    }
}

}  // namespace

TuneGlobalsState::TuneGlobalsState(const Platform& given) : platform(checked(given)) {
    if (is_base_folder_known(*platform.instrument)) logs_setpoint_traffic();
}

TuneGlobals::TuneGlobals(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

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

}  // namespace korvane
