#include "korvane/automation.h"

#include <charconv>
#include <sstream>

#include "assembly/base_data.h"
#include "fuzz/targets.h"
#include "korvane/abort_helper.h"
#include "korvane/embedded_parts.h"
#include "support/test_platform.h"

namespace korvane::fuzz {

namespace {

void connect_instrument(ScriptedState& state) {
    for (const std::int32_t index : {18, 50, 69, 104, 117, 119, 127, 128, 149, 162})
        state.setpoints[index] = {.value = 1, .name = "setpoint " + std::to_string(index)};
    state.setpoints[119].value = 0;
    state.calibrations[0] = state.calibrations[1] =
        make_square_law_calibration({.A = 1e-3}, std::vector<std::int32_t>(8, 0));
    state.acquire = [](AcquiredSpectrum& spectrum, int) {
        spectrum.mass_data = VariantArray<double>(std::vector<double>{50, 100, 400, 900, 1600});
        spectrum.y_data = VariantArray<double>(std::vector<double>{1, 5000, 1, 5000, 1});
        spectrum.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{1, 0});
        spectrum.start_time_ns = 7000;
    };
}

/// A line that is a number stands for the member with that place in the tables.
std::string member_of(const std::string& line) {
    static const std::vector<automation::MemberSummary> members = automation::member_summaries();
    std::size_t place = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), place);
    if (error != std::errc() || end != line.data() + line.size()) return line;
    const automation::MemberSummary& member = members[place % members.size()];
    return member.class_name + "." + member.name;
}

}  // namespace

void automation_call(std::string_view input) {
    std::istringstream text{std::string(input)};
    std::vector<std::string> words{""};
    std::getline(text, words.front());
    words.front() = member_of(words.front());
    for (std::string line; std::getline(text, line);) words.push_back(line);

    const MemoryPlatform world;
    for (const BaseDataFile& file : base_data_files())
        world.disk->put("/base/" + std::string(file.name), std::string(file.bytes));
    world.disk->put("/base/Logfiles/old", "");
    connect_instrument(*world.layer->state);
    // A wait of any length is granted until somebody asks for an end.
    world.clock->on_events = [&, events = 0]() mutable {
        if (++events == 100) AbortHelper(world.platform()).TriggerAbort();
    };
    try {
        automation::TextCalls(world.platform()).call(words);
    } catch (const Error& error) {
        if (error.number() == 0) std::abort();
    }
}

}  // namespace korvane::fuzz
