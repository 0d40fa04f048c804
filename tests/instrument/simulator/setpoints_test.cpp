// The setpoint table, and what the instrument makes of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "instrument/simulator/acquisition_conditions.h"
#include "instrument/simulator/simulator_bench.h"

namespace korvane {
namespace {

std::string upper(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// A metadata item is found by the beginning of its name, case ignored.
TEST(Setpoints, NoExternalNameIsTheBeginningOfAnother) {
    SimulatorBench bench;
    std::vector<std::string> names{"EXPERIMENT"};
    for (const std::int32_t index : bench.globals->setpoints().indexes())
        names.push_back(upper(bench.globals->setpoints().external_name(index)));
    for (std::size_t i = 0; i < names.size(); ++i)
        for (std::size_t j = 0; j < names.size(); ++j)
            if (i != j) {
                EXPECT_FALSE(names[i].starts_with(names[j])) << names[i] << " / " << names[j];
            }
}

TEST(Setpoints, LimitsAreWritableAndWhatLiesBeyondIsRefusedNamingIt) {
    SimulatorBench bench;
    auto& table = bench.globals->setpoints();
    for (const std::int32_t index : table.indexes()) {
        const double low = table.lower_limit(index), high = table.upper_limit(index);
        for (const double value : {low, high}) {
            table.write(index, 0, 0, value);
            EXPECT_EQ(bench.get(table.internal_name(index)), value) << index;
        }
        for (const double value : {low - 1, high + 1, std::nan(""), HUGE_VAL}) {
            const Error fault = error_of([&] { table.write(index, 0, 0, value); });
            EXPECT_NE(fault.number(), 0) << index << " took " << value;
            EXPECT_EQ(bench.get(table.internal_name(index)), high) << index;
        }
        const Error fault = error_of([&] { table.write(index, 0, 0, high + 1); });
        for (const std::string& part : {std::to_string(index), std::to_string(static_cast<int>(high + 1))})
            EXPECT_NE(fault.description().find("[" + part + "]"), std::string::npos) << fault.description();
        EXPECT_EQ(table.index_of(table.internal_name(index)), index);
    }
}

TEST(Setpoints, IntegerSetpointsTakeDoublesRoundedHalvesToEven) {
    SimulatorBench bench;
    for (const auto& [given, kept] : {std::pair{2.5, 2.0}, {3.5, 4.0}, {1666.6667, 1667.0}}) {
        bench.set("NumTransients2GHz", given);
        EXPECT_EQ(bench.get("NumTransients2GHz"), kept);
    }
    bench.globals->setpoints().write(69, 0, 0, std::int16_t{1});
    EXPECT_EQ(std::get<std::int32_t>(bench.globals->setpoints().value(69, 0, 0)), 1);
}

TEST(Setpoints, UnknownIndexesSegmentsAndNamesAreErrors) {
    SimulatorBench bench;
    auto& table = bench.globals->setpoints();
    EXPECT_EQ(error_of([&] { table.value(1, 0, 0); }).number(), error_number::subscript);
    EXPECT_EQ(error_of([&] { table.write(-1, 0, 0, 1.0); }).number(), error_number::subscript);
    EXPECT_EQ(error_of([&] { table.tolerance(999); }).number(), error_number::subscript);
    EXPECT_EQ(error_of([&] { table.value(119, 1, 0); }).number(), error_number::subscript);
    EXPECT_EQ(error_of([&] { table.write(119, 0, 2, 1.0); }).number(), error_number::subscript);
    EXPECT_EQ(error_of([&] { table.index_of("polarity"); }).number(), error_number::invalid_call);
}

TEST(Setpoints, SpectraReportTheValueThatWasSet) {
    SimulatorBench bench;
    auto& table = bench.globals->setpoints();
    for (const std::int32_t index : table.indexes()) {
        const double middle = std::floor((table.lower_limit(index) + table.upper_limit(index)) / 2);
        table.write(index, 0, 0, middle);
        EXPECT_LT(std::abs(bench.metadata(table.external_name(index)) - middle), table.tolerance(index)) << index;
    }
}

TEST(Setpoints, MetadataFollowTheOrderOfTheirDescription) {
    SimulatorBench bench;
    bench.set("Polarity", 1);
    bench.set("Lens2", 12.5);
    const auto description = bench.globals->control()->GetMetaDescription();
    const auto values = bench.acquire().meta_data;
    ASSERT_EQ(description.size(), values.size());
    EXPECT_EQ(description.at(0), bench.globals->parameter_name(23));
    for (std::int32_t i = 0; i <= description.upper_bound(); ++i) {
        if (description.at(i) == "Polarity (S)") {
            EXPECT_EQ(std::get<std::int32_t>(values.at(i)), 1);
        }
        if (description.at(i) == "Lens 2 (S)") {
            EXPECT_EQ(std::get<double>(values.at(i)), 12.5);
        }
    }
}

TEST(Setpoints, FirmwareChannelAndSetpointAreTheSameQuadrupole) {
    SimulatorBench bench;
    auto& firmware = bench.globals->firmware();
    EXPECT_EQ(firmware.write(22, 1234.5f), 0);
    EXPECT_EQ(bench.get("QuadAMU"), 1234.5);
    bench.set("QuadAMU", 300);
    EXPECT_EQ(firmware.read(22), 300);
    EXPECT_EQ(error_of([&] { firmware.write(21, 1.0f); }).number(), error_number::invalid_call);
    EXPECT_EQ(error_of([&] { firmware.read(0); }).number(), error_number::invalid_call);
    EXPECT_EQ(error_of([&] { firmware.write(22, 1e9f); }).number(), error_number::invalid_call);
}

// Expected ions of a calibrant over the range of one setpoint.
std::vector<double> response_over_range(const std::string& name, double source_type, double polarity, double mz) {
    const simulation::Scene scene = simulation::default_scene();
    embedded::Setpoints setpoints("test");
    setpoints.command(117, source_type);
    setpoints.command(119, polarity);
    const auto& definition = *embedded::find_setpoint(name);
    std::vector<double> ions;
    for (int i = 0; i <= 100; ++i) {
        setpoints.command(definition.index,
                     definition.lower_limit + i * (definition.upper_limit - definition.lower_limit) / 100);
        const auto conditions = simulation::acquisition_conditions(
            scene, static_cast<std::int32_t>(polarity), setpoints);
        ions.push_back(conditions.expected_ions(1000, mz) * conditions.counts_per_ion / 40);
    }
    return ions;
}

TEST(Responses, AbundanceRisesOrFallsSteadilyOverTheWholeRange) {
    struct Case {
        const char* setpoint;
        double source_type, polarity;
        bool rises;
    };
    for (const Case& curve : {Case{"VCapESI", 0, 0, true},
                              {"VCapESI", 5, 1, true},
                              {"VCapMultimode", 4, 0, true},
                              {"VCapNanoESI", 6, 0, true},
                              {"VCapAPPI", 8, 0, true},
                              {"VCapHPLCTile", 1, 0, true},
                              {"VCapAPCI", 10, 0, true},
                              {"VCapSGF", 11, 0, true},
                              {"FragmentTune", 0, 0, true},
                              {"Oct1RF", 0, 0, true},
                              {"MCP", 0, 0, true},
                              {"Skimmer1", 0, 0, false},
                              {"QuadAMU", 0, 0, false},
                              {"CoronaPositive", 7, 0, true},
                              {"CoronaNegative", 7, 1, true},
                              {"GasTemp", 0, 0, true}})
        for (const double mz : {119.0, 922.0, 2421.0}) {
            auto ions = response_over_range(curve.setpoint, curve.source_type, curve.polarity, mz);
            if (!curve.rises) std::ranges::reverse(ions);
            EXPECT_TRUE(std::ranges::is_sorted(ions)) << curve.setpoint << " at " << mz;
            EXPECT_GT(ions.back(), 3 * ions.front()) << curve.setpoint << " at " << mz;
        }
}

TEST(Responses, OnlyTheSetpointsOfTheInstalledSourceAct) {
    for (const char* other : {"VCapMultimode", "VCapSGF", "CoronaPositive", "VaporizerAPCI", "SheathGasTemp"}) {
        const auto ions = response_over_range(other, 0, 0, 922);
        EXPECT_EQ(ions.front(), ions.back()) << other;
    }
}

TEST(Responses, DefaultSetpointsGiveTheAbundanceOfTheScene) {
    const simulation::Scene scene = simulation::default_scene();
    for (double source_type = 0; source_type <= 11; ++source_type) {
        embedded::Setpoints setpoints("test");
        setpoints.command(117, source_type);
        const auto conditions =
            simulation::acquisition_conditions(scene, 0, setpoints);
        EXPECT_EQ(conditions.expected_ions(1000, 600), 1000);
        EXPECT_EQ(conditions.resolution_limit, 40000);
    }
}

TEST(Responses, DetunedMirrorAndHighResolutionSliceChangeTheWidth) {
    const simulation::Scene scene = simulation::default_scene();
    embedded::Setpoints setpoints("test");
    const auto conditions = [&] {
        return simulation::acquisition_conditions(scene, 0, setpoints);
    };
    setpoints.command(40, -1550.0);
    EXPECT_NEAR(conditions().resolution_limit, 20000, 1e-6);
    setpoints.command(40, -1400.0);
    setpoints.command(170, 6.0);
    EXPECT_NEAR(conditions().resolution_limit, 50000, 1e-6);
    EXPECT_NEAR(conditions().expected_ions(1000, 600), 500, 1e-9);
}

}  // namespace
}  // namespace korvane
