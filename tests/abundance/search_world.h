// An instrument whose peak height follows the setpoint that a search adjusts.
#pragma once

#include <functional>

#include "support/spectrum_world.h"

namespace korvane {

/// The peak of 900 is `curve(setpoint or firmware value)` high at 10000 transients and in proportion at fewer; the
/// speed-up factor is 10. No peak where the curve is 0.
struct SearchWorld : ParserWorld {
    explicit SearchWorld(bool fast_search = false) : fast(fast_search) {
        test.preference("AIC_RunFastVersion", fast ? "Yes" : "yes");
        instrument().firmware[22] = 0;
        instrument().acquire = [this](AcquiredSpectrum& spectrum, int) {
            fill(spectrum);
            set_peak(900, curve(applied_value()) * transients() / 10000);
        };
    }

    double applied_value() {
        return fast ? instrument().firmware[22] : instrument().setpoint(adjustable_setpoint).value;
    }
    double transients() { return instrument().setpoint(transients_setpoint).value; }
    double adjust(double target, double low = search_value_not_given, double high = search_value_not_given,
                  double resolution = search_value_not_given, bool lower_reduces = true) {
        return parser.BinaryAdjustAbundanceDownUsingThisSetpoint(adjustable_setpoint, 900, target, 30, lower_reduces,
                                                                 low, high, resolution);
    }
    const AdjustOutcome& outcome() const { return parser.last_adjustment(); }
    std::vector<std::string> log() const { return test.log_lines("BinarySearch_"); }

    std::function<double(double)> curve = [](double value) { return 10000 * value; };
    const bool fast;
};

}  // namespace korvane
