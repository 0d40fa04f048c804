// What was moved comes back, whatever happens on the way; what others moved stays.
#include "korvane/restoring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "korvane/instrument_contract.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

using ::testing::ElementsAre;

std::map<std::int32_t, double> values_of(const ScriptedState& state) {
    std::map<std::int32_t, double> values;
    for (const auto& [index, setpoint] : state.setpoints) values[index] = setpoint.value;
    for (const auto& [channel, value] : state.firmware) values[-1 - channel] = value;
    return values;
}

std::vector<std::string> told(const std::vector<PutBack>& moves) {
    std::vector<std::string> lines;
    for (const PutBack& move : moves)
        lines.push_back(text_of(move.name, " ", move.before, " ", move.now, " ", move.failure));
    return lines;
}

// A call of both searches and a calibrant measurement fails, every seventh in turn: afterwards all values are those
// before.
TEST(Restoring, GivesBackAfterAFaultAtAnyCall) {
    for (const bool fast : {false, true}) {
        int failed = 0;
        for (int call = 1;; call += 7) {
            SpectrumWorld world;
            world.instrument().firmware[contract::firmware_channel.quad_amu] = 55;
            const auto before = values_of(world.instrument());
            bool raised = false, reached = false;
            {
                Restoring guard(world.platform());
                SpectrumParser parser(guard.platform());
                parser.set_fast_search(fast);
                world.instrument().fault_at = world.instrument().calls + call;
                try {
                    parser.GetPeakInfoForCalibrantMasses();
                    parser.BinaryAdjustAbundanceDownUsingThisSetpoint(SpectrumWorld::adjustable_setpoint, 400, 50);
                } catch (const Error&) {
                    raised = true;
                }
                reached = world.instrument().calls >= *world.instrument().fault_at;
                world.instrument().fault_at.reset();
            }
            EXPECT_EQ(values_of(world.instrument()), before) << "fault at call " << call;
            failed += raised;
            if (!reached) break;
        }
        EXPECT_GT(failed, 20);
    }
}

TEST(Restoring, KeepsWhatItIsToldToAndWhatOthersMoved) {
    SpectrumWorld world;
    ScriptedState& instrument = world.instrument();
    Restoring guard(world.platform());
    TuneGlobals globals(guard.platform());
    constexpr std::int32_t lens = SpectrumWorld::adjustable_setpoint;
    globals.SetMSSetpointValueByIdx(lens, 30);
    globals.SetMSSetpointValueByIdx(SpectrumWorld::transients_setpoint, 1000);
    globals.SetMSSetpointValueByIdx(SpectrumWorld::transients_setpoint, 500);
    globals.SetMSSetpointValueByIdx(SpectrumWorld::capillary_voltage_setpoint, 3000);
    instrument.setpoint(SpectrumWorld::capillary_voltage_setpoint).value = 2500;  // another program
    EXPECT_THAT(told(guard.restore()),
                ElementsAre("VCap 4000 2500 somebody else has moved it since", "NumTrans 10000 10000 ", "Lens 70 70 "));

    globals.SetMSSetpointValueByIdx(lens, 40);
    guard.keep(lens);
    globals.SetMSSetpointValueByIdx(lens, 45);
    EXPECT_THAT(told(guard.restore()), ElementsAre("Lens 40 40 "));

    globals.SetMSSetpointValueByIdx(lens, 60);
    instrument.fault_at = instrument.calls + 1;
    instrument.fault_stays = true;
    EXPECT_THAT(told(guard.restore()), ElementsAre("Lens 40 0 scripted fault"));
    instrument.fault_at.reset();
    EXPECT_EQ(instrument.setpoint(lens).value, 60);
}

}  // namespace
}  // namespace korvane
