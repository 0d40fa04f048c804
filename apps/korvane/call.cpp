#include <algorithm>
#include <array>

#include "commands.h"
#include "korvane/automation.h"

namespace korvane::program {

namespace {

constexpr const char* call_help =
    "An argument is JSON (numbers, texts in quotes, true, false, null, arrays, records as objects of their fields) or\n"
    "plain text; NAME=ARG passes it by the parameter's name, and parameters may be left out from the end. An object "
    "is\n"
    "asked of another member: '{\"call\": \"TuneGlobals.GetCurrentCalibrationObjFromDD\"}'. Prints one JSON object: "
    "the\n"
    "result, and the new values of the arguments that the member changed. A property is set with CLASS.PROPERTY= "
    "VALUE.\n"
    "Options of the program come before \"call\"; all that follows belongs to the call. Members: korvane automation "
    "list.\n\n"
    "Examples:\n"
    "  korvane call TuneGlobals.GetCurrentInstrumentStateAsString\n"
    "  korvane call SpectrumParser.GetPeakAttribute 5 566.89 dMassWindow=0.5\n"
    "  korvane call clsTuneParamsXML.GetAutotuneLimitValue RampParams MinimumAcceptableAbundance\n";

// What is wrong with the words themselves: no such class, member, parameter; too few or too many arguments.
constexpr std::array<std::int32_t, 5> usage_faults{429, 438, 448, 449, 450};

std::string call_text(Session& session, const std::string& member, const std::vector<std::string>& arguments) {
    try {
        return automation::call_from_texts(session.platform(), member, arguments);
    } catch (const Error& error) {
        if (std::find(usage_faults.begin(), usage_faults.end(), error.number()) == usage_faults.end()) throw;
        throw UsageError(error.description());
    }
}

}  // namespace

void add_call(CLI::App& program, Session& session) {
    CLI::App* command = program.add_subcommand("call", "call a member of an automation class");
    command->footer(call_help);
    // What follows the member may begin with a dash, a negative number above all.
    command->fallthrough(false)->prefix_command();
    on_run(command, session, [command](Session& running) {
        std::vector<std::string> words = command->remaining();
        if (words.empty()) throw UsageError("CLASS.MEMBER is missing");
        const std::string member = std::move(words.front());
        words.erase(words.begin());
        running.print(call_text(running, member, words) + "\n");
        return ExitCode::done;
    });
}

}  // namespace korvane::program
