#include "korvane/spectrum_parser.h"

#include <cfloat>
#include <cmath>

#include "spectrum/parser_state.h"

namespace korvane {

SpectrumParser::SpectrumParser(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

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
