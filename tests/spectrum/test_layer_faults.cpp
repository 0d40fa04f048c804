// An instrument layer that misbehaves: every way of it is an error that names the call, never a crash.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "korvane/forwarding.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using testing::HasSubstr;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// The conversion of masses, or else that of times, forgets an element.
struct ShortArrays final : ForwardingMassTimeCalibration {
    ShortArrays(CalibrationObject target, bool masses) : ForwardingMassTimeCalibration(target), of_masses(masses) {}
    std::vector<double> times_from_masses(const std::vector<double>& masses) const override {
        return target().times_from_masses({masses.begin() + of_masses, masses.end()});
    }
    std::vector<double> masses_from_times(const std::vector<double>& times) const override {
        return target().masses_from_times({times.begin() + !of_masses, times.end()});
    }
    bool of_masses;
};

/// Every spectrum is changed so.
void bend(SpectrumWorld& world, const std::function<void(AcquiredSpectrum&, std::vector<double>& axis)>& change) {
    world.instrument().acquire = [&world, change](AcquiredSpectrum& spectrum, int) {
        world.fill(spectrum);
        const auto masses = spectrum.mass_data.elements();
        std::vector<double> axis(masses.begin(), masses.end());
        change(spectrum, axis);
        spectrum.mass_data = axis;
    };
}

TEST(LayerFaults, WhatALayerHandsOutIsChecked) {
    const auto shortened = [](bool masses) {
        return [=](SpectrumWorld& world) {
            auto& lent = world.instrument().calibrations[0];
            lent = std::make_shared<ShortArrays>(lent, masses);
        };
    };
    const std::pair<std::function<void(SpectrumWorld&)>, const char*> rows[] = {
        {[](auto& world) { world.instrument().make_finder = [] { return nullptr; }; }, "91|create_peak_finder()"},
        {[](auto& world) { world.instrument().calibrations[0] = nullptr; }, "91|calibration"},
        {[](auto& world) { bend(world, [](auto& spectrum, auto&) { spectrum.y_data = std::vector<double>(7); }); },
         "-1|GetNextSpectrum(): [7] elements where [5500] belong"},
        {[](auto& world) { bend(world, [](auto&, auto& axis) { axis[3] = nan; }); },
         "-1|GetNextSpectrum(): the mass axis does not ascend at sample [2]"},
        {[](auto& world) { bend(world, [](auto&, auto& axis) { std::swap(axis[3], axis[4]); }); },
         "-1|GetNextSpectrum(): the mass axis does not ascend at sample [3]"},
        {[](auto& world) { bend(world, [](auto& spectrum, auto&) { spectrum.start_time_ns = nan; }); },
         "-1|GetNextSpectrum(): start time"},
        {[](auto& world) { world.instrument().sampling_interval_seconds = 0; }, "-1|sampling_interval_seconds(): [0]"},
        {shortened(true), "-1|times_from_masses(): [0] elements where [1] belong"},
        {shortened(false), "-1|masses_from_times(): [1] elements where [2] belong"},
    };
    for (const auto& [change, expected] : rows) {
        ParserWorld world;
        change(world);
        const std::string text = expected, number = text.substr(0, text.find('|') + 1);
        const std::string error = raised([&] { world.parser.GetPeakInfoForCalibrantMasses(std::vector<double>{900}); });
        EXPECT_TRUE(error.starts_with(number)) << error;
        EXPECT_THAT(error, HasSubstr(text.substr(number.size())));
    }
}

TEST(LayerFaults, ExceptionOfAnyTypeFromAnyCallNamesTheCall) {
    for (const bool standard : {false, true})
        for (int at = 1;; ++at) {
            ParserWorld world;
            world.instrument().setpoint(69).value = 5;
            world.instrument().on_call = [&, first = world.instrument().calls](int call) {
                if (call != first + at) return;
                if (standard) throw std::out_of_range("bad index");
                throw 5;
            };
            const std::string error = raised(
                [&] { world.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(50, 900, 10, 30, true, 0, 100, 40); });
            // A wait for a value tells every failure inside it as a value that was not reached.
            if (error == "no error" && at > 40) break;
            if (error == "no error" || error.starts_with("-807|")) continue;
            ASSERT_THAT(error, testing::StartsWith(standard ? "51|Korvane|bad index (last instrument call: "
                                                            : "51|Korvane|Internal error (last instrument call: "));
        }
}

TEST(LayerFaults, TextOfALayerForgesNoLineOfALog) {
    ParserWorld world;
    world.test.preference("BinarySearchLoggingEnabled", "3000");
    world.instrument().acquire = [](auto&, int) { throw Error(-5, "ADC", "gone\r\nAUTOTUNE LOG: STATUS: fine"); };
    EXPECT_THAT(raised([&] { world.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(50, 900, 1e6); }),
                HasSubstr("gone\r\n"));
    EXPECT_THAT(world.test.log_lines("BinarySearch_").back(), HasSubstr("gone\\x0D\\x0AAUTOTUNE LOG"));
}

}  // namespace
}  // namespace korvane
