// Scene files: the ready ones, the documentation, and what is refused.
#include "instrument/simulator/scene.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "instrument/simulator/simulator_bench.h"

namespace korvane::simulation {
namespace {

const std::filesystem::path root = KORVANE_SOURCE_DIR;

std::string text_of(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(Scenes, EveryReadySceneLoadsAndGivesASpectrum) {
    int scenes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(root / "data/scenes")) {
        SimulatorBench bench(text_of(entry.path()));
        bench.acquire();
        EXPECT_GT(bench.acquire().y_data.size(), 100000u) << entry.path();
        ++scenes;
    }
    EXPECT_GE(scenes, 5);
}

TEST(Scenes, TheDefaultSceneFileIsTheDefaultScene) {
    EXPECT_EQ(parse_scene(text_of(root / "data/scenes/default.json"), "default.json"), default_scene());
    EXPECT_EQ(parse_scene("{}", "empty"), default_scene());
}

void collect_keys(const nlohmann::json& value, std::set<std::string>& keys) {
    if (value.is_object())
        for (const auto& [key, member] : value.items()) {
            keys.insert(key);
            collect_keys(member, keys);
        }
    else if (value.is_array())
        for (const auto& element : value) collect_keys(element, keys);
}

TEST(Scenes, EveryKeyAndEverySetpointIsDocumented) {
    const std::string document = text_of(root / "docs/simulator.md");
    std::set<std::string> names{"lent_positive", "lent_negative", "after_spectra", "never", "mz", "calibrant"};
    collect_keys(nlohmann::json::parse(text_of(root / "data/scenes/default.json")), names);
    for (const auto& definition : embedded::setpoint_definitions()) names.emplace(definition.internal_name);
    for (const std::string& name : names) EXPECT_NE(document.find("`" + name + "`"), std::string::npos) << name;
}

TEST(Scenes, FaultyScenesAreRefusedNamingItemAndFile) {
    struct Case {
        std::string text, item;
    };
    const std::vector<Case> cases{
        {"{", "document"},
        {R"({"sceen": {}})", "sceen"},
        {R"({"detector": {"noise": 1}})", "detector.noise"},
        {R"({"detector": {"noise_counts": -1}})", "detector.noise_counts"},
        {R"({"detector": {"statistics": "Counting"}})", "detector.statistics"},
        {R"({"detector": {"counts_per_ion": [1, 2]}})", "detector.counts_per_ion"},
        {R"({"instrument": {"spectrum_duration_ns": 1e18}})", "instrument.spectrum_duration_ns"},
        {R"({"instrument": {"model": 4410}})", "instrument.model"},
        {R"({"instrument": {"spectrum_period_ms": 1.5}})", "instrument.spectrum_period_ms"},
        {R"({"flight": {"use_flags": [2]}})", "flight.use_flags[0]"},
        {R"({"flight": {"law": {"coefficients": [-1, 2]}}})", "flight.law.coefficients[0]"},
        {R"({"sample": {"ions": [{"ions": 5}]}})", "sample.ions[0]"},
        {R"({"sample": {"ions": [{"mz": 5, "formula": "H", "ions": 5}]}})", "sample.ions[0]"},
        {R"({"sample": {"ions": [{"formula": "H"}]}})", "ions"},
        {R"({"sample": {"ions": [{"formula": "Zz", "ions": 5}]}})", "Zz"},
        {R"({"sample": {"ions": [{"formula": "H", "charge": 0, "ions": 5}]}})", "charge"},
        {R"({"background": {"least_ions": 10, "most_ions": 5}})", "background.most_ions"},
        {R"({"slicer": [{"hours": 1}]})", "slicer"},
        {R"({"setpoints": {"Unknown": 1}})", "setpoints.Unknown"},
        {R"({"setpoints": {"Polarity": 2}})", "setpoints.Polarity"},
        {R"({"responses": [{"setpoint": "Lens1", "acts_on": "ions", "shape": "round", "midpoint": 1}]})", "shape"},
        {R"({"responses": [{"setpoint": "MCP", "acts_on": "gain", "shape": "power", "midpoint": 0}]})", "midpoint"},
        {R"({"responses": [{"setpoint": "Lens9", "acts_on": "ions", "shape": "rising", "midpoint": 1}]})", "Lens9"},
        {R"({"responses": [{"setpoint": "Lens1", "acts_on": "ions", "shape": "falling", "midpoint": -1e6, "width": 0.01}]})",
         "responses[0]"},
        {R"({"faults": {"setpoints": [{"setpoint": "Lens1"}]}})", "faults.setpoints[0]"},
        {R"({"faults": {"empty_spectra": {"first": -1}}})", "faults.empty_spectra.first"},
        {R"({"faults": {"empty_spectra": {"last": 1}}})", "faults.empty_spectra.last"},
    };
    for (const Case& bad : cases) {
        const Error fault = error_of([&] { parse_scene(bad.text, "scene.json"); });
        EXPECT_EQ(fault.number(), error_number::file_or_element) << bad.text;
        EXPECT_NE(fault.description().find("file[scene.json]"), std::string::npos) << fault.description();
        EXPECT_NE(fault.description().find(bad.item), std::string::npos) << fault.description();
    }
}

TEST(Scenes, WhatOnlyTheInstrumentCanSeeIsRefusedNamingTheFile) {
    for (const char* text : {R"({"background": {"count": 50000}})",
                             R"({"flight": {"use_flags": [0, 1], "law": {"coefficients": [4.5e-4, 20, -1e6]}}})"}) {
        const Error fault = error_of([&] { SimulatorBench(text).acquire(); });
        EXPECT_EQ(fault.number(), error_number::file_or_element) << text;
        EXPECT_NE(fault.description().find("/base/scene.json"), std::string::npos) << fault.description();
    }
    SimulatorBench bench;
    bench.options.scene_path = "/base/missing.json";
    const Error fault = error_of([&] { make_simulator(bench.options, bench.disk, bench.clock)->create_globals(); });
    EXPECT_EQ(fault.number(), error_number::file_or_element);
    EXPECT_NE(fault.description().find("/base/missing.json"), std::string::npos);
}

}  // namespace
}  // namespace korvane::simulation
