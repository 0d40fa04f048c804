#include "korvane/spectrum_parser.h"

#include <cfloat>
#include <cmath>

#include "spectrum/parser_state.h"

namespace korvane {

SpectrumParser::SpectrumParser(Platform platform) : impl_(std::make_unique<Impl>(platform)) {}
SpectrumParser::~SpectrumParser() = default;
SpectrumParser::SpectrumParser(SpectrumParser&&) noexcept = default;
SpectrumParser& SpectrumParser::operator=(SpectrumParser&&) noexcept = default;

std::string SpectrumParser::tune_log_path() const {
    return impl_->tune.tune_log_path();
}

SpectrumParser::Impl::Impl(const Platform& world)
    : platform(checked(world)),
      trace(platform.tracers),
      instrument(platform.instrument),
      tune(platform),
      params(platform),
      prefs(platform),
      abort(platform),
      search_log(platform) {}

CurrentSetpoints SpectrumParser::Impl::current() {
    segments = {tune.CurrentTimeSegment(), tune.CurrentScanSegment()};
    return {instrument, segments};
}

InstrumentControl& SpectrumParser::Impl::control() {
    InstrumentControl* connected = instrument->control();
    if (!connected) raise_runtime_fault(error_number::object_not_set, "instrument control");
    return *connected;
}

CalibrationObject SpectrumParser::Impl::calibration_of_current_polarity() {
    const std::int32_t polarity = current().is_positive() ? contract::polarity.positive : contract::polarity.negative;
    CalibrationObject calibration = instrument->calibrations().calibration(polarity);
    if (!calibration) raise_runtime_fault(error_number::object_not_set, "mass-time calibration");
    return calibration;
}

void SpectrumParser::Impl::raise_if_aborted() {
    if (abort.UserHasClickedAbort()) throw Error(error_number::user_aborted, "", "User aborted");
}

float to_single(double value) {
    // The first double that no longer rounds to a single-precision number.
    constexpr double beyond = FLT_MAX + 0x1p103;
    if (std::abs(value) >= beyond) raise_runtime_fault(error_number::overflow, text_of("[", value, "]"));
    return static_cast<float>(value);
}

}  // namespace korvane
