// The check of an instrument layer, in a process that a layer may take down.
#include <algorithm>

#include "commands.h"
#include "korvane/conformance.h"
#include "korvane/instrument_contract.h"
#include "text_table.h"

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#endif

namespace korvane::program {

namespace {

struct ConformOptions {
    std::string layer;
    bool contract = false;
};

ExitCode show_results(Session& session, const std::vector<ConformanceResult>& results) {
    std::int64_t passed = 0, failed = 0;
    Json rows = Json::array();
    std::string text;
    for (const auto& [operation, check, is_passed, detail] : results) {
        (is_passed ? passed : failed) += 1;
        rows.push_back({{"operation", operation}, {"check", check}, {"passed", is_passed}, {"detail", detail}});
        text += fmt::format("{}  {}: {}{}{}\n", is_passed ? "pass" : "FAIL", operation, check, is_passed ? "" : ": ",
                            detail);
    }
    text += fmt::format("{} passed, {} failed\n", passed, failed);
    session.show(Json{{"checks_passed", passed}, {"checks_failed", failed}, {"checks", std::move(rows)}}, text);
    return failed ? ExitCode::check_failed : ExitCode::done;
}

ExitCode check_layer(Session& session, const ConformanceObserver& observer) {
    const Platform& platform = session.platform();
    session.begin_run();
    const auto results = check_instrument_layer(*platform.instrument, observer);
    if (std::ranges::none_of(results, &ConformanceResult::passed))
        platform.instrument->create_globals();  // a layer that cannot be had says why
    return show_results(session, results);
}

#ifndef _WIN32

/// The checks in a child, which does all that the command has to do. What it tells of the checks is read here, for the
/// case that the layer ends it.
ExitCode check_apart(Session& session) {
    int ends[2];
    if (pipe(ends) != 0) return check_layer(session, {});
    const pid_t child = fork();
    if (child <= 0) {
        close(ends[0]);
        return check_layer(session, [line = ends[1], child](const ConformanceResult& result, bool is_over) {
            if (child < 0) return;  // no process could be made
            const Json row{result.operation, result.check, result.passed, result.detail, is_over};
            const std::string text = row.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
            if (write(line, text.data(), text.size()) < 0) std::_Exit(EXIT_FAILURE);
        });
    }
    close(ends[1]);
    std::string told;
    char part[4096];
    for (ssize_t size = 0; (size = read(ends[0], part, sizeof part)) > 0 || (size < 0 && errno == EINTR);)
        told.append(part, size > 0 ? static_cast<std::size_t>(size) : 0);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) std::_Exit(WEXITSTATUS(status));
    std::vector<ConformanceResult> results;
    for (std::size_t begin = 0, end = 0; (end = told.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const Json row = Json::parse(told.substr(begin, end - begin));
        if (row[4]) results.pop_back();  // its beginning
        results.push_back({row[0], row[1], row[2], row[3]});
    }
    if (results.empty()) results.push_back({"InstrumentLayer", "can be loaded", false, {}});
    results.back().passed = false;
    results.back().detail = fmt::format("the layer ends the process, signal {}", WTERMSIG(status));
    return show_results(session, results);
}

#endif

ExitCode conform(Session& session, const ConformOptions& options) {
    if (options.contract) return session.show(Json{{"text", contract::contract_text()}}, contract::contract_text());
    if (!options.layer.empty()) session.options.instrument = options.layer;
#ifndef _WIN32
    if (session.owns_process()) return check_apart(session);
#endif
    return check_layer(session, {});
}

}  // namespace

void declare_conform(CLI::App& command, Session& session) {
    ConformOptions& options = runs(command, session, "korvane conform ./libmylayer.so", conform);
    command.add_option("LAYER", options.layer,
                       "shared library, or on Windows a ProgID; without it the instrument that the program works on");
    command.add_flag("--contract", options.contract, "print what the library asks of an instrument, and check nothing");
}

}  // namespace korvane::program
