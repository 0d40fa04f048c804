// Verdicts of calibrants: what every scene of data/scenes is said to be, and limits that cannot be read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "korvane/verdict.h"
#include "support/raised.h"
#include "support/test_platform.h"
#include "support/virtual_clock.h"

namespace korvane {
namespace {

using enum CalibrantState;
using States = std::vector<CalibrantState>;

struct SceneCase {
    const char* scene;
    std::vector<double> masses;  ///< empty: the default list
    States states;
    std::size_t spectra_before = 0;
};

States repeated(std::size_t count, CalibrantState state, States more = {}) {
    more.insert(more.begin(), count, state);
    return more;
}

const std::vector<double> ladder{172.88346298,  322.77770526,  472.67194754,  772.46043210,
                                 1222.14315894, 1821.72012806, 2421.29709718, 3020.87406630};
const States of_the_ladder{ok, ok, ok, ok, low, ok, ok, ok};

TEST(Verdict, EverySceneIsWhatItsDescriptionSays) {
    for (const SceneCase& one : std::vector<SceneCase>{
             {"default", {}, repeated(10, ok)},
             {"negative", {}, repeated(10, ok)},
             {"noisy", {}, repeated(10, ok)},
             {"pulse_statistics", {}, repeated(10, ok)},
             {"faults", {}, repeated(10, ok)},
             {"dead_peaks", {}, {ok, ok, off_mass, ok, ok, off_mass, ok, ok, ok, ok}},
             {"saturated", {}, repeated(5, clipped, repeated(5, ok))},
             {"spent_calibrant", {}, repeated(9, low, {missing})},
             {"drifting", {}, repeated(10, ok)},
             {"drifting", {}, repeated(10, off_mass), 25},
             {"ladder_1ghz", ladder, {broad, ok, ok, ok, low, ok, ok, ok}},
             {"ladder_2ghz", ladder, of_the_ladder},
             {"ladder_4ghz", ladder, of_the_ladder},
             {"ladder_4ghz_pulse", ladder, of_the_ladder},
         }) {
        SCOPED_TRACE(one.scene);
        const EmbeddedBase world;
        Platform system = make_platform(nullptr);
        system.clock = std::make_shared<VirtualClock>();
        const Platform platform = make_embedded_platform(
            {.base_folder = world.base,
             .scene = std::filesystem::path(KORVANE_SOURCE_DIR) / "data/scenes" / (one.scene + std::string(".json"))},
            system);
        SpectrumParser parser(platform);
        TuneGlobals globals(platform);
        const VariantArray<double> masses = one.masses.empty()
                                                ? globals.GetDefaultMassList("ESI", globals.GetPolarityStr())
                                                : VariantArray<double>(one.masses);
        if (one.spectra_before) {
            globals.SetMSSetpointValueByIdx(160, 50000);
            measure_calibrant_times(parser, globals, VariantArray<double>({566.8885}), one.spectra_before);
        }
        const TuneLimits limits = read_tune_limits(platform);
        std::vector<std::string> found, expected;
        for (const MeasuredCalibrant& calibrant : measure_calibrants(parser, globals, masses)) {
            const CalibrantVerdict verdict = verdict_of(calibrant, limits);
            found.push_back(verdict.text.substr(0, verdict.text.find(':')));
        }
        for (const CalibrantState state : one.states) expected.emplace_back(name_of(state));
        EXPECT_EQ(found, expected);
    }
}

TEST(Verdict, LimitsThatCannotBeReadAreNamedWithFileAndKey) {
    const EmbeddedBase world;
    const auto file = world.base / "TuneLimits.json";
    const Platform platform = world.platform();
    for (const auto& [text, fault] :
         {std::pair{"{\"height\": 5,}", "it is no JSON object"},
          {"{\"height\": \"5\"}", "height: must be a number"},
          {"{\"misfit\": 0}", "misfit: 0 is not above 0"},
          {"{\"reference_heights\": {\"x\": 5}}", "reference_heights.x: is no m/z"},
          {"{\"reference_heights\": {\"118\": -5}}", "reference_heights.118: -5 is not above 0"}}) {
        write_text(file, text);
        EXPECT_EQ(raised([&] { read_tune_limits(platform); }), "-904|read_tune_limits|" + file.string() + ": " + fault);
    }
    write_text(file, "{\"reference_heights\": {\"118.09\": 9000}, \"resolution\": 100} // mine");
    const TuneLimits limits = read_tune_limits(platform);
    MeasuredCalibrant calibrant;
    calibrant.mass = calibrant.amu.pkCentroid = 118.0863;
    calibrant.ns.pkHeight = 2500;
    calibrant.amu.pkResolution = 101;
    EXPECT_EQ(verdict_of(calibrant, limits).text, "low: height 2500, less than 2700");
    calibrant.ns.pkHeight = 2800;
    calibrant.quality = PeakQuality{.misfit = 4.5};
    EXPECT_EQ(verdict_of(calibrant, limits).text, "misshapen: misfit 4.5, more than 4.0");
    calibrant.amu.pkResolution = 99;
    EXPECT_EQ(verdict_of(calibrant, limits).text, "broad: resolution 99, less than 100");
}

}  // namespace
}  // namespace korvane
