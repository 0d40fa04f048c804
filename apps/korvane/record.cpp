#include "korvane/recording.h"

#include <fmt/format.h>

#include "commands.h"
#include "number_options.h"

namespace korvane::program {

namespace {

struct RecordOptions {
    std::string file;
    std::int64_t spectra = 1;
};

ExitCode run_record(Session& session, const RecordOptions& options) {
    const auto file = path_from_utf8(options.file);
    record_spectra(session.platform(), file, static_cast<std::int32_t>(options.spectra));
    if (session.json)
        session.print_json(Json{{"file", utf8_from_path(file)}, {"spectra", options.spectra}});
    else
        session.print(fmt::format("{}\n", utf8_from_path(file)));
    return ExitCode::done;
}

}  // namespace

void add_record(CLI::App& program, Session& session) {
    auto options = std::make_shared<RecordOptions>();
    CLI::App* command = add_command(program, session, "record", "write the next spectra of the instrument as mzML",
                                    "korvane record today.mzML -n 5");
    command->add_option("FILE", options->file, "file to write")->required()->check(not_empty);
    add_count(*command, "-n", options->spectra, "number of spectra (1)", 1, 100000);
    on_run(command, session, options, run_record);
}

}  // namespace korvane::program
