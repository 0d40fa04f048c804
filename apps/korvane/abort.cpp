#include "commands.h"
#include "korvane/abort_helper.h"

namespace korvane::program {

namespace {

ExitCode report(Session& session, bool requested) {
    if (session.json)
        session.print_json(Json{{"requested", requested}});
    else
        session.print(requested ? "abort requested\n" : "no abort requested\n");
    return ExitCode::done;
}

void add_abort_command(CLI::App& group, Session& session, const std::string& name, const std::string& help,
                       void (*act)(AbortHelper&)) {
    CLI::App* command = add_command(group, session, name, help, "korvane abort " + name);
    on_run(command, session, [act](Session& running) {
        AbortHelper flag(running.platform());
        act(flag);
        return report(running, flag.UserHasClickedAbort());
    });
}

}  // namespace

void add_abort(CLI::App& program, Session& session) {
    CLI::App* group = add_group(program, "abort", "ask a running tune to stop, from anywhere");
    group->footer("A request stands until it is reset, and ends whatever runs on the base folder with exit code 6.\n");
    add_abort_command(*group, session, "request", "make the request", [](AbortHelper& flag) { flag.TriggerAbort(); });
    add_abort_command(*group, session, "reset", "take the request back", [](AbortHelper& flag) { flag.Reset(); });
    add_abort_command(*group, session, "status", "tell whether there is a request", [](AbortHelper&) {});
}

}  // namespace korvane::program
