// Scene and state files: the documentation, what is read back and what is refused.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "instrument/simulator/scene.h"
#include "instrument/simulator/simulator_bench.h"
#include "support/test_platform.h"

namespace korvane::simulation {
namespace {

const std::filesystem::path root = KORVANE_SOURCE_DIR;
const std::string state_head = R"({"format": "korvane simulator state", "version": 1)";

TEST(Setpoints, EveryOneIsDocumented) {
    const std::string document = read_text(root / "docs/simulator.md");
    for (const auto& d : embedded::setpoint_definitions()) {
        const std::string row =
            fmt::format("| {} | `{}` | {} | {} ({}) | {} to {} | {} | {} | {} |", d.index, d.internal_name,
                        d.external_name, std::array{"int32", "double", "", "int16"}.at(int(d.type) - 3), int(d.type),
                        d.lower_limit, d.upper_limit, d.resolution, d.tolerance, d.default_value);
        EXPECT_NE(document.find(row), std::string::npos) << row;
    }
}

/// What follows the item's name in the refusal of a scene or state; the whole error where it names another item.
std::string refusal(const std::string& text, const std::string& item) {
    const bool is_state = text.starts_with(state_head) || text.find("\"format\"") != std::string::npos;
    const std::string error = raised([&] {
        if (is_state) return void(parse_state(text, "C:/a.json"));
        parse_scene(text, "C:/a.json");
    });
    const std::string start = "-904|Simulator|item[" + item + "] of file[C:/a.json]: ";
    return error.starts_with(start) ? error.substr(start.size()) : "NOT SO: " + error;
}

// Every value of a complete scene and state: one of another type in its place, and a number beyond its limits, which
// the document of a scene tells with the default.
TEST(Files, AValueOfAnotherTypeOrBeyondTheDocumentedLimitsIsRefusedNamingItsItem) {
    const std::string document = read_text(root / "docs/simulator.md");
    const embedded::CalibrationContent law{{.A = 1, .B = 2}, {}};
    const InstrumentState state{{{"Lens1", 3}}, {law, law}, std::array<double, slicer_position_count>{}};
    int tried = 0, limited = 0;
    for (const std::string& text : {read_text(root / "data/scenes/default.json"), state_text(state)}) {
        const auto whole = nlohmann::json::parse(text);
        const auto flat = whole.flatten();
        for (const auto& [pointer, value] : flat.items()) {
            if (std::regex_search(pointer, std::regex("/[1-9]"))) continue;  // the first of a list is enough
            auto wrong = whole;
            wrong[nlohmann::json::json_pointer(pointer)] = nullptr;
            std::string item, name;
            for (std::size_t at = 1, end; at <= pointer.size(); at = end + 1) {
                end = std::min(pointer.find('/', at), pointer.size());
                const std::string part = pointer.substr(at, end - at);
                item += std::isdigit(part[0]) ? "[" + part + "]" : (item.empty() ? "" : ".") + part;
                if (!std::isdigit(part[0])) name = part;
            }
            EXPECT_EQ(refusal(wrong.dump(), item).substr(0, 8), "must be ") << item;
            ++tried;
            wrong[nlohmann::json::json_pointer(pointer)] = 1e300;
            const std::string reason = refusal(wrong.dump(), item);
            std::smatch limits, row;
            if (whole.contains("format") || !std::regex_search(reason, limits, std::regex(R"(outside \[(.*), (.*)\])")))
                continue;
            const std::string expected = limits.str(1) + " to " + limits.str(2);
            if (expected.ends_with(" to 2147483647")) continue;  // any number of its type
            ASSERT_TRUE(std::regex_search(document, row,
                                          std::regex("`" + name + R"(` \| ([^|]*) \| [^|]* \| )" + expected + " ")))
                << item << ": " << expected;
            if (std::ranges::count(pointer, '/') == 2) {
                EXPECT_EQ(nlohmann::json::parse(row.str(1)), value) << item;
            }
            ++limited;
        }
    }
    EXPECT_GT(tried, 70);
    EXPECT_GT(limited, 30);
}

// Items of a scene, then of a state, each with the item that the error names and how the reason begins.
TEST(Files, ValuesBeyondTheRulesAreRefusedNamingItemAndReason) {
    const auto deep = std::string(17, '[') + std::string(17, ']');
    for (const auto& [text, item, reason] : std::initializer_list<std::array<std::string, 3>>{
             {"{", "document", "not JSON"},
             {R"({"sceen": {}})", "sceen", "unknown key"},
             {R"({"detector": {"statistics": "Count"}})", "detector.statistics", "value[Count] is none of counting, p"},
             {R"({"detector": {"counts_per_ion": [1, 2]}})", "detector.counts_per_ion", "must have 3 elements"},
             {R"({"flight": {"law": {"coefficients": [0, 20]}}})", "flight.law.coefficients[0]", "must be above 0"},
             {R"({"flight": {"law": {"coefficients": [1]}}})", "flight.law.coefficients", "must have at least A"},
             {R"({"sample": {"ions": [{"ions": 5}]}})", "sample.ions[0]", "must have either a formula or an m/z"},
             {R"({"sample": {"ions": [{"mz": 5, "formula": "H", "ions": 5}]}})", "sample.ions[0]", "must have eit"},
             {R"({"sample": {"ions": [{"formula": "H"}]}})", "sample.ions[0]", "lacks key[ions]"},
             {R"({"sample": {"ions": [{"formula": "Zz", "ions": 5}]}})", "sample.ions[0]", "Invalid procedure call"},
             {R"({"sample": {"ions": [{"formula": "H", "charge": 0, "ions": 5}]}})", "sample.ions[0]", "charge must"},
             {R"({"background": {"least_ions": 10, "most_ions": 5}})", "background.most_ions", "value[5] is outside"},
             {R"({"background": {"least_mz": 10, "most_mz": 5}})", "background.most_mz", "value[5] is outside [10, 1"},
             {R"({"setpoints": {"Unknown": 1}})", "setpoints.Unknown", "unknown setpoint"},
             {R"({"setpoints": {"Polarity": 0.5}})", "setpoints.Polarity", "must be a whole number"},
             {R"({"responses": [{"setpoint": "MCP", "acts_on": "gain", "shape": "power", "midpoint": 0}]})",
              "responses[0]", "midpoint must be above 0 for this shape"},
             {R"({"responses": [{"setpoint": "Lens1", "acts_on": "ions", "shape": "falling", "midpoint": -1e6}]})",
              "responses[0]", "gives next to nothing at the setpoint's default value"},
             {R"({"faults": {"setpoints": [{"setpoint": "Lens1"}]}})", "faults.setpoints[0]", "must have either"},
             {R"({"format": "other", "version": 1})", "format", "must be \"korvane simulator state\""},
             {state_head + "}" + std::string(most_state_bytes, ' '), "document", "longer than 65536 bytes"},
             {state_head + R"(, "setpoints": {"Lens1": 3, "Lens1": 3}})", "Lens1", "given twice"},
             {state_head + R"(, "setpoints": {"Lens1": 1e9}})", "setpoints.Lens1", "value[1000000000] is outside"},
             {state_head + R"(, "calibrations": {"positive": {}}})", "calibrations.positive", "lacks key[coeff"},
             {state_head + R"(, "slicer_hours": )" + deep + "}", "document", "nested too deeply"}})
        EXPECT_TRUE(refusal(text, item).starts_with(reason)) << text.substr(0, 200) << ": " << refusal(text, item);
    for (const char* text :
         {R"({"background": {"count": 50000}})",
          R"({"background": {"count": 100000, "separation_sigmas": 0, "least_ions": 9, "most_ions": 9},
                                 "peak_shape": {"detector_width_ns": 900}})",
          R"({"flight": {"use_flags": [0, 1], "law": {"coefficients": [4.5e-4, 20, -1e6]}}})"})
        EXPECT_TRUE(raised([&] {
                        SimulatorBench(text).acquire();
                    }).starts_with("-904|Simulator|scene file[/base/scene.json]: "));
}

}  // namespace
}  // namespace korvane::simulation
