#include "korvane/conformance.h"

#include <fmt/format.h>

#include <algorithm>

#include "commands.h"
#include "korvane/automation.h"

namespace korvane::program {

namespace {

ExitCode report(Session& session, const std::vector<ConformanceResult>& results) {
    const auto passed = std::count_if(results.begin(), results.end(), [](const auto& result) { return result.passed; });
    if (session.json) {
        Json rows = Json::array();
        for (const auto& result : results)
            rows.push_back({{"operation", result.operation},
                            {"check", result.check},
                            {"passed", result.passed},
                            {"detail", result.detail}});
        session.print_json(Json{{"passed", passed}, {"failed", results.size() - passed}, {"checks", std::move(rows)}});
    } else {
        for (const auto& result : results)
            session.print(fmt::format("{}  {}: {}{}{}\n", result.passed ? "pass" : "FAIL", result.operation,
                                      result.check, result.passed ? "" : ": ", result.detail));
        session.print(fmt::format("{} passed, {} failed\n", passed, results.size() - passed));
    }
    return passed == static_cast<std::ptrdiff_t>(results.size()) ? ExitCode::done : ExitCode::check_failed;
}

}  // namespace

void add_conform(CLI::App& program, Session& session) {
    CLI::App* command = add_command(program, session, "conform", "check an instrument layer, operation by operation",
                                    "korvane conform ./libmylayer.so");
    auto layer = std::make_shared<std::string>();
    command->add_option("LAYER", *layer,
                        "shared library, or on Windows a ProgID; without it the instrument that the program works on");
    on_run(command, session, layer, [](Session& running, const std::string& name) {
        const Platform platform = name.empty() ? running.platform() : automation::make_outside_platform(name);
        return report(running, check_instrument_layer(*platform.instrument));
    });
}

}  // namespace korvane::program
