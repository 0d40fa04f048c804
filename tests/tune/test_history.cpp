// Records through JSON and the store and back: what is kept comes back, and what is no history is refused by name.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "korvane/tune_history.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

using Json = nlohmann::ordered_json;

/// Of every part one, of every value another.
TuneRecord full_record() {
    TuneRecord record;
    record.calibration_before.emplace();
    record.calibration_after.emplace();
    record.limits.emplace().reference_heights = {{158.964, 80000}, {2470.5358, 9000}};
    record.seed = 0xFFFFFFFFFFFFFFFFU;
    RecordedCalibrant calibrant;
    calibrant.measured.standard_errors.emplace();
    calibrant.measured.quality.emplace();
    calibrant.trace.emplace().counts = {1, -2, 3};
    record.calibrants = {calibrant, {}};
    record.setpoints.resize(1);
    record.residuals.resize(1);
    record.searches.resize(1);
    record.searches[0].probes.resize(2);
    return record;
}

/// Calls `work` with every place of a tree that holds one value.
template <class Work>
void each_leaf(Json& tree, const Work& work) {
    if (!tree.is_structured()) return work(tree);
    for (Json& part : tree) each_leaf(part, work);
}

TEST(TuneRecordJson, EveryValueComesBackAndOneOfAnotherTypeIsNamed) {
    Json tree = Json::parse(tune_record_json(full_record()));
    int count = 0;
    each_leaf(tree, [&](Json& leaf) {
        ++count;
        if (leaf.is_boolean()) leaf = true;
        if (leaf.is_number()) leaf = leaf.is_number_float() ? Json(count + 0.1) : Json(count);
        if (leaf.is_string()) leaf = leaf == "missing" || leaf == "ok" ? Json("broad") : Json(std::to_string(count));
    });
    tree["schema"] = 1;
    tree["seed"] = 0xFFFFFFFFFFFFFFFFU;
    EXPECT_GT(count, 80);
    EXPECT_EQ(Json::parse(tune_record_json(tune_record_from_json(tree.dump()))), tree);
    each_leaf(tree, [&](Json& leaf) {
        const Json before = std::exchange(leaf, Json::array({Json::array()}));
        const std::string error = raised([&] { tune_record_from_json(tree.dump()); });
        EXPECT_TRUE(error.starts_with("-904|tune_record_from_json|record/")) << before << ": " << error;
        leaf = before;
    });
    tree["schema"] = 2;
    EXPECT_NE(raised([&] { tune_record_from_json(tree.dump()); }).find("schema 2"), std::string::npos);
}

}  // namespace
}  // namespace korvane
