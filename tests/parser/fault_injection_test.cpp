// The n-th instrument call fails, for every n of a whole operation.
#include <gtest/gtest.h>

#include "korvane/spectrum_parser.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

struct Operation {
    const char* name;
    std::function<void(SpectrumWorld&, SpectrumParser&)> run;
};

const Operation operations[] = {
    {"measure", [](SpectrumWorld&, SpectrumParser& parser) { parser.GetPeakInfoForCalibrantMasses(); }},
    {"lists", [](SpectrumWorld&, SpectrumParser& parser) { parser.GetPeakListsForCalibrantMasses(); }},
    {"verify",
     [](SpectrumWorld&, SpectrumParser& parser) { parser.VerifyInstrumentIsShowingValidCalibrantSpectrum(); }},
    {"peak", [](SpectrumWorld&, SpectrumParser& parser) { parser.GetPeakAttribute(PeakCalcType::MassCentroid, 900); }},
    {"dual gain",
     [](SpectrumWorld& world, SpectrumParser& parser) { parser.AbundancesAreBelowDualGainThreshold(world.masses); }},
    {"adjust",
     [](SpectrumWorld&, SpectrumParser& parser) {
         parser.BinaryAdjustAbundanceDownUsingThisSetpoint(50, 900, 40000, 30, true, 0, 100, 20);
     }},
    {"fast adjust",
     [](SpectrumWorld& world, SpectrumParser& parser) {
         world.instrument().firmware[22] = 0;
         parser.BinaryAdjustAbundanceDownUsingThisSetpoint(50, 900, 40000, 30, true, 0, 100, 20);
     }},
};

class EveryCall : public testing::TestWithParam<Operation> {
protected:
    EveryCall() {
        world.test.trace().on = false;
        if (std::string(GetParam().name) == "fast adjust") world.test.preference("AIC_RunFastVersion", "Yes");
    }
    void run(SpectrumParser& parser) { GetParam().run(world, parser); }

    SpectrumWorld world;
};

TEST_P(EveryCall, FaultReachesTheCallerUnchangedAndTheParserGoesOnWorking) {
    SpectrumParser parser(world.platform());
    ScriptedState& instrument = world.instrument();
    bool ran_through = false;
    int faults = 0;
    for (; !ran_through && faults < 2000; ++faults) {
        instrument.fault_at = instrument.calls + faults + 1;
        const Error error = error_of([&] { run(parser); });
        ran_through = instrument.calls < *instrument.fault_at;
        instrument.fault_at.reset();
        if (ran_through) {
            EXPECT_EQ(error.number(), 0);
        } else {
            ASSERT_EQ(error.number(), -4711) << "call " << faults + 1;
            EXPECT_EQ(error.source(), "Instrument");
            EXPECT_EQ(error.description(), "scripted fault");
        }
        instrument.setpoint(SpectrumWorld::transients_setpoint).value = 10000;
    }
    EXPECT_TRUE(ran_through);
    EXPECT_GT(faults, 5) << "the operation asks the instrument for next to nothing";
    EXPECT_NO_THROW(run(parser));
}

INSTANTIATE_TEST_SUITE_P(Parser, EveryCall, testing::ValuesIn(operations), [](const auto& chosen) {
    std::string name = chosen.param.name;
    std::erase(name, ' ');
    return name;
});

}  // namespace
}  // namespace korvane
