#include "calibrants.h"
#include "commands.h"

namespace korvane::program {

namespace {

ExitCode run_verify(Session& session) {
    SpectrumParser parser(session.platform());
    try {
        parser.VerifyInstrumentIsShowingValidCalibrantSpectrum();
    } catch (const Error& error) {
        if (session.json && exit_code_of(error) == ExitCode::check_failed)
            session.print_json(Json{{"valid", false}, {"message", error.description()}});
        throw;
    }
    session.talk("tune log " + written_log(parser));
    if (session.json)
        session.print_json(Json{{"valid", true}, {"message", nullptr}});
    else
        session.print("The instrument shows a valid calibrant spectrum.\n");
    return ExitCode::done;
}

}  // namespace

void add_verify(CLI::App& program, Session& session) {
    CLI::App* command =
        add_command(program, session, "verify",
                    "check that the spectrum shows enough calibrants to tune on; exit code 1 when it does not",
                    "korvane verify && echo ready");
    on_run(command, session, run_verify);
}

}  // namespace korvane::program
