// Scene and state files: the ready scenes, the documentation, what is read back and what is refused.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <filesystem>
#include <random>
#include <sstream>

#include "instrument/simulator/scene.h"
#include "instrument/simulator/simulator_bench.h"
#include "support/test_platform.h"

namespace korvane::simulation {
namespace {

const std::filesystem::path root = KORVANE_SOURCE_DIR;

TEST(Scenes, EveryReadySceneLoadsAndGivesASpectrum) {
    int scenes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(root / "data/scenes")) {
        SimulatorBench bench(read_text(entry.path()));
        bench.acquire();
        EXPECT_GT(bench.acquire().y_data.size(), 100000u) << entry.path();
        ++scenes;
    }
    EXPECT_GE(scenes, 5);
    EXPECT_EQ(parse_scene(read_text(root / "data/scenes/default.json"), "default.json"), default_scene());
    EXPECT_EQ(parse_scene("{}", "empty"), default_scene());
}

TEST(Scenes, EveryItemAndEverySetpointIsDocumented) {
    const std::string document = read_text(root / "docs/simulator.md");
    std::istringstream rows(scene_reference());
    for (std::string row; std::getline(rows, row);)
        EXPECT_NE(document.find(row + "\n"), std::string::npos) << "not in docs/simulator.md:\n" << row;
    for (const auto& d : embedded::setpoint_definitions()) {
        const auto type = static_cast<std::int32_t>(d.type);
        const std::string row = fmt::format(
            "| {} | `{}` | {} | {} ({}) | {} to {} | {} | {} | {} |", d.index, d.internal_name, d.external_name,
            type == 4   ? "double"
            : type == 3 ? "int32"
                        : "int16",
            type, d.lower_limit, d.upper_limit, d.resolution, d.tolerance, d.default_value);
        EXPECT_NE(document.find(row), std::string::npos) << "not in docs/simulator.md:\n" << row;
    }
}

/// A refused text and what the error names.
struct Refused {
    std::string text, item;
};

template <class Parse>
void expect_refusals(const std::vector<Refused>& cases, const std::string& before, const Parse& parse) {
    for (const auto& [text, item] : cases) {
        const std::string error = raised([&] { parse(before + text, "C:/a.json"); });
        EXPECT_TRUE(error.starts_with("-904|Simulator|item[" + item + "] of file[C:/a.json]: "))
            << text.substr(0, 200) << "\n"
            << error;
    }
}

TEST(Scenes, FaultyScenesAreRefusedNamingItemAndFile) {
    expect_refusals(
        {
            {"{", "document"},
            {R"({"sceen": {}})", "sceen"},
            {R"({"detector": {"noise": 1}})", "detector.noise"},
            {R"({"detector": {"noise_counts": -1}})", "detector.noise_counts"},
            {R"({"detector": {"statistics": "Counting"}})", "detector.statistics"},
            {R"({"detector": {"counts_per_ion": [1, 2]}})", "detector.counts_per_ion"},
            {R"({"detector": {"dead_masses": [1, 0]}})", "detector.dead_masses[1]"},
            {R"({"instrument": {"spectrum_duration_ns": 1e18}})", "instrument.spectrum_duration_ns"},
            {R"({"instrument": {"model": 4410}})", "instrument.model"},
            {R"({"instrument": {"spectrum_period_ms": 1.5}})", "instrument.spectrum_period_ms"},
            {R"({"instrument": {"random_phase": 1}})", "instrument.random_phase"},
            {R"({"instrument": []})", "instrument"},
            {R"({"flight": {"law": {"coefficients": [0, 20]}}})", "flight.law.coefficients[0]"},
            {R"({"flight": {"law": {"coefficients": [1]}}})", "flight.law.coefficients"},
            {R"({"flight": {"use_flags": [2]}})", "flight.use_flags[0]"},
            {R"({"flight": {"lent_negative": {"settings": {"Cal": 1}}}})", "flight.lent_negative.settings.Cal"},
            {R"({"sample": {"ions": [{"ions": 5}]}})", "sample.ions[0]"},
            {R"({"sample": {"ions": [{"mz": 5, "formula": "H", "ions": 5}]}})", "sample.ions[0]"},
            {R"({"sample": {"ions": [{"formula": "H"}]}})", "sample.ions[0]"},
            {R"({"sample": {"ions": [{"formula": "Zz", "ions": 5}]}})", "sample.ions[0]"},
            {R"({"sample": {"ions": [{"formula": "H", "charge": 0, "ions": 5}]}})", "sample.ions[0]"},
            {R"({"background": {"least_ions": 10, "most_ions": 5}})", "background.most_ions"},
            {R"({"background": {"least_mz": 10, "most_mz": 5}})", "background.most_mz"},
            {R"({"slicer": [{"hours": 1}]})", "slicer"},
            {R"({"setpoints": {"Unknown": 1}})", "setpoints.Unknown"},
            {R"({"setpoints": {"Polarity": 2}})", "setpoints.Polarity"},
            {R"({"setpoints": {"Polarity": 0.5}})", "setpoints.Polarity"},
            {R"({"responses": [{"setpoint": "Lens1", "acts_on": "ions", "shape": "round", "midpoint": 1}]})",
             "responses[0].shape"},
            {R"({"responses": [{"setpoint": "MCP", "acts_on": "gain", "shape": "power", "midpoint": 0}]})",
             "responses[0]"},
            {R"({"responses": [{"setpoint": "Lens9", "acts_on": "ions", "shape": "rising", "midpoint": 1}]})",
             "responses[0].setpoint"},
            {R"({"responses": [{"setpoint": "Lens1", "acts_on": "ions", "shape": "falling", "midpoint": -1e6}]})",
             "responses[0]"},
            {R"({"responses": [{"setpoint": "Lens1", "acts_on": "ions", "midpoint": 1}]})", "responses[0]"},
            {R"({"faults": {"setpoints": [{"setpoint": "Lens1"}]}})", "faults.setpoints[0]"},
            {R"({"faults": {"empty_spectra": {"first": -1}}})", "faults.empty_spectra.first"},
            {R"({"faults": {"empty_spectra": {"last": 1}}})", "faults.empty_spectra.last"},
        },
        "", parse_scene);
    for (const char* text : {R"({"background": {"count": 50000}})",
                             R"({"flight": {"use_flags": [0, 1], "law": {"coefficients": [4.5e-4, 20, -1e6]}}})"}) {
        const std::string error = raised([&] { SimulatorBench(text).acquire(); });
        EXPECT_TRUE(error.starts_with("-904|Simulator|scene file[/base/scene.json]: ")) << error;
    }
}

TEST(State, MalformedContentIsRefusedNamingItemAndFile) {
    const std::string head = R"({"format": "korvane simulator state", "version": 1)";
    expect_refusals({{"", "document"},
                     {"[]", "document"},
                     {"nonsense", "document"},
                     {"{}", "document"},
                     {R"({"format": "other", "version": 1})", "format"},
                     {R"({"format": "korvane simulator state", "version": 2})", "version"},
                     {R"({"format": "korvane simulator state"})", "document"},
                     {std::string("\xff\xfe") + head + "}", "document"},
                     {head + "}" + std::string(most_state_bytes, ' '), "document"}},
                    "", parse_state);
    expect_refusals(
        {{R"(, "extra": 1})", "extra"},
         {R"(, "setpoints": {"Lens1": 3, "Lens1": 3}})", "Lens1"},
         {R"(, "setpoints": {"Lens9": 3}})", "setpoints.Lens9"},
         {R"(, "setpoints": {"Lens1": "3"}})", "setpoints.Lens1"},
         {R"(, "setpoints": {"Lens1": 1e9}})", "setpoints.Lens1"},
         {R"(, "setpoints": {"Lens1": 1e999}})", "document"},
         {R"(, "setpoints": []})", "setpoints"},
         {R"(, "calibrations": {"neutral": {}}})", "calibrations.neutral"},
         {R"(, "calibrations": {"positive": {}}})", "calibrations.positive"},
         {R"(, "calibrations": {"positive": {"coefficients": [1, null]}}})", "calibrations.positive.coefficients[1]"},
         {R"(, "calibrations": {"positive": {"coefficients": [1, 2], "settings": {"CalReserved1": 1.5}}}})",
          "calibrations.positive.settings.CalReserved1"},
         {R"(, "slicer_hours": [1, 2]})", "slicer_hours"},
         {R"(, "slicer_hours": [1,2,3,4,5,6,7,8,9,-1]})", "slicer_hours[9]"},
         {R"(, "slicer_hours": )" + std::string(17, '[') + std::string(17, ']') + "}", "document"},
         {"} trailing", "document"}},
        head, parse_state);
}

TEST(State, TextReadsBackExactlyAndNoPartOfItIsAState) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> share(0, 1);
    for (int run = 0; run < 100; ++run) {
        InstrumentState state;
        state.setpoints = {{"Lens1", 100 * share(random)}, {"QuadAMU", 10 + share(random) * 3990}, {"Polarity", 1}};
        for (const std::size_t polarity : {0, 1})
            if (share(random) < 0.7)
                state.calibrations[polarity] = {
                    {share(random), -share(random), 1e-300 * share(random), 0, -1e18 * share(random)},
                    {-3, 2147483647, 0}};
        if (share(random) < 0.5) state.slicer_hours.emplace().fill(1e4 * share(random));
        const std::string text = state_text(state);
        EXPECT_EQ(parse_state(text, "s"), state);
        const std::string part = text.substr(0, static_cast<std::size_t>(share(random) * (text.size() - 2)));
        EXPECT_TRUE(raised([&] { parse_state(part, "s"); }).starts_with("-904|")) << part;
    }
}

}  // namespace
}  // namespace korvane::simulation
