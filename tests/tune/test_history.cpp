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
        EXPECT_TRUE(error.starts_with("-904|tune_record_from_json|record.")) << before << ": " << error;
        leaf = before;
    });
    tree["schema"] = 2;
    EXPECT_NE(raised([&] { tune_record_from_json(tree.dump()); }).find("schema 2"), std::string::npos);
}

TEST(TuneHistory, KeepsWhatItIsGivenByInstrumentAndAnewAfterMaintenance) {
    const TemporaryFolder folder;
    TuneHistory history(folder.file("history"));
    TuneRecord record = full_record();
    record.calibrants[0].measured.mass = 100;
    record.calibrants[0].measured.ns.pkHeight = 5;
    for (const char* const serial : {"a", "b"})
        for (int day = 10; day < 20; ++day) {
            record.serial = serial;
            record.time = "2026-11-" + std::to_string(day) + "T08:00:00Z";
            record.id = history.add(record);
            if (day == 13 && record.serial == "b") {
                TuneRecord mark = record;
                mark.kind = "mark";
                mark.note = "maintenance: source cleaned";
                history.add(mark);
            }
        }
    EXPECT_EQ(tune_record_json(history.load(record.id)), tune_record_json(record));
    EXPECT_EQ(history.list(3).front().time, "2026-11-17T08:00:00Z");
    EXPECT_EQ(history.last()->id, record.id);
    EXPECT_EQ(history.last_until("2026-11-12", record), history.last_until("2026-11-12T09", record));
    EXPECT_EQ(history.last_until("2026-11-09", record), std::nullopt);
    EXPECT_EQ(history.readings("height", record).size(), 6U);
    record.serial = "a";
    EXPECT_EQ(history.readings("height", record).size(), 10U);
    EXPECT_EQ(history.readings("misfit", record).front().value, 1);
    EXPECT_TRUE(raised([&] { history.load(99); }).ends_with(folder.file("history") + ": there is no record 99"));
    EXPECT_TRUE(raised([&] { TuneHistory(folder.file("none"), false); }).ends_with("unable to open database file"));
}

}  // namespace
}  // namespace korvane
