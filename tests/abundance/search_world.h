// An instrument whose peak height follows the setpoint that a search adjusts.
#pragma once

#include <functional>

#include "korvane/spectrum_parser.h"
#include "platform/automation_arithmetic.h"
#include "support/spectrum_world.h"

namespace korvane {

/// The peak of 900 is `curve(setpoint or firmware value)` high at 10000 transients and in proportion at fewer; the
/// speed-up factor is 10. No peak where the curve is 0.
struct SearchWorld {
    explicit SearchWorld(std::function<double(double)> height_of_value = [](double value) { return 10000 * value; })
        : curve(std::move(height_of_value)) {
        world.instrument().firmware[22] = 0;
        world.instrument().acquire = [this](AcquiredSpectrum& spectrum, int) {
            world.fill(spectrum);
            const double transients = world.instrument().setpoint(SpectrumWorld::transients_setpoint).value;
            world.set_peak(900, curve(applied_value()) * transients / 10000);
        };
    }

    double applied_value() {
        return fast ? world.instrument().firmware[22]
                    : world.instrument().setpoint(SpectrumWorld::adjustable_setpoint).value;
    }
    void run_fast() {
        fast = true;
        world.test.preference("AIC_RunFastVersion", "Yes");
    }
    double adjust(double target, bool lower_reduces = true) {
        return parser.BinaryAdjustAbundanceDownUsingThisSetpoint(SpectrumWorld::adjustable_setpoint, 900, target, 30,
                                                                 lower_reduces);
    }
    double transients() { return world.instrument().setpoint(SpectrumWorld::transients_setpoint).value; }
    std::vector<std::string> journal_of(const std::string& start) {
        std::vector<std::string> found;
        for (const std::string& line : world.instrument().journal)
            if (line.starts_with(start)) found.push_back(line);
        return found;
    }

    SpectrumWorld world;
    std::function<double(double)> curve;
    bool fast = false;
    SpectrumParser parser{world.platform()};
};

}  // namespace korvane
