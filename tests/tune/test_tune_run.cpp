// A tune by a recipe: what it refuses before anything moves, and what is left of one that is not good.
#include "korvane/tune_run.h"

#include <gtest/gtest.h>

#include "korvane/restoring.h"
#include "korvane/tune_history.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

struct TuneRunTest : testing::Test, EmbeddedBase {
    TuneRecipe recipe(const std::string& json) const {
        write_text(folder.path() / "recipe.json", json);
        return read_tune_recipe(platform, folder.file("recipe.json"));
    }
    /// A record of the instrument as it is, as text.
    std::string state() const {
        TuneRecord record = begin_record(platform, "");
        record.time.clear();
        return tune_record_json(record);
    }

    const Platform platform = EmbeddedBase::platform();
};

TEST_F(TuneRunTest, RecipesThatMeanNothingHereAreRefusedByPlace) {
    const std::string search = R"("setpoint": "FragmentTune", "mz": 566.8885, "target": 1000)";
    const std::string before = state();
    for (const auto& [json, told] : std::vector<std::pair<std::string, std::string>>{
             {"[]", "it is no JSON object"},
             {R"({"schema": 2})", "schema: this program knows 1"},
             {R"({"fit_spectra": 0})", "fit_spectra: not 1"},
             {R"({"fit_spectra": 2.5})", "fit_spectra: must be a whole number"},
             {R"({"masses": [1e9]})", "masses: 1000000000 is out of range"},
             {R"({"adjust": {}})", "adjust: must be an array"},
             {R"({"adjust": [7]})", "adjust[0]: must be an object"},
             {R"({"adjust": [{"mz": 566.8885, "target": 1000}]})", "adjust[0].setpoint: there is no setpoint"},
             {R"({"adjust": [{"setpoint": "FragmentTune", "target": 1000}]})", "adjust[0].mz: 0 is not above 0"},
             {R"({"adjust": [{)" + search + R"(, "max": 401}]})", "adjust[0].max: 401 lies outside the limits"},
             {R"({"adjust": [{)" + search + R"(, "min": 300, "max": 200}]})", "adjust[0].min: not below"},
             {R"({"adjust": [{)" + search + R"(, "tolerance_percent": 0}]})", "adjust[0].tolerance_percent: 0 is not"},
             {R"({"adjust": [{)" + search + R"(, "step": 1}]})", "adjust[0].step: unknown key"}})
        EXPECT_TRUE(raised([&] {
                        recipe(json);
                    }).starts_with("-904|read_tune_recipe|" + folder.file("recipe.json") + ": " + told))
            << json << ": " << raised([&] { recipe(json); });
    EXPECT_EQ(state(), before);
    EXPECT_TRUE(read_tune_recipe(platform).searches.empty()) << "that of init";
}

// A target out of reach ends a tune, a calibrant that is too low is its verdict; a guard gives setpoints and
// calibration back.
TEST_F(TuneRunTest, WhatIsNotGoodSaysWhyAndCanGoBack) {
    TuneGlobals(platform).SetNewCalibrationWithTheseAAndt0Values_usec(0.450009, 0.02);
    const std::string before = state();
    const TuneRecipe unreachable =
        recipe(R"({"adjust": [{"setpoint": "FragmentTune", "mz": 566.8885, "target": 1e7}], "masses": [566.8885]})");
    const TuneRecipe low =
        recipe(R"({"adjust": [{"setpoint": "FragmentTune", "mz": 566.8885, "target": 40000}], "fit_spectra": 2})");
    for (const auto& [one, told] :
         {std::pair{&unreachable, "adjust FragmentTune: out of reach"}, std::pair{&low, "2470.5358 low"}}) {
        Restoring guard(platform);
        TuneRecord record = begin_record(guard.platform(), "tune");
        constexpr TuneStep steps[] = {TuneStep::adjust, TuneStep::fit, TuneStep::measure};
        const std::string fault = run_tune(guard.platform(), *one, steps, record);
        EXPECT_NE(fault.find(told), std::string::npos) << fault;
        EXPECT_EQ(record.verdict, fault);
        EXPECT_EQ(record.searches.size(), 1U);
        EXPECT_EQ(state() == before, one != &low);
        guard.restore();
        EXPECT_EQ(state(), before);
    }
}

}  // namespace
}  // namespace korvane
