// Pictures of the calibrants, as files.
#include "pictures.h"

#include "calibrants.h"
#include "commands.h"
#include "korvane/peak_traces.h"
#include "korvane/report.h"
#include "korvane/system.h"

namespace korvane::program {

namespace {

struct PlotOptions {
    std::vector<double> masses;
    std::optional<std::string> file;
    bool mass_errors = false;
};

ExitCode plot(Session& session, const PlotOptions& options) {
    session.begin_run();
    PeakTraces traces(session.platform());
    TuneGlobals globals(traces.platform());
    SpectrumParser parser(traces.platform());
    TuneRecord record;
    record.limits = read_tune_limits(session.platform());
    const VariantArray<double> masses(chosen_masses(session, globals, options.masses));
    for (const MeasuredCalibrant& measured : measure_calibrants(parser, globals, masses))
        record.calibrants.push_back({measured, verdict_of(measured, *record.limits), {}});
    traces.give_to(record.calibrants);

    std::vector<Figure> figures;
    if (options.mass_errors)
        figures.push_back(mass_error_figure(record));
    else
        for (const RecordedCalibrant& calibrant : record.calibrants) figures.push_back(peak_figure(calibrant));
    save_file(session, *options.file, svg_file(figures));
    session.show(Json{{"file", *options.file}, {"pictures", figures.size()}}, *options.file + "\n");
    return log_and_end(session, parser);
}

}  // namespace

void save_file(Session& session, const std::string& path, std::string_view bytes) {
    try {
        safe_save(*session.platform().files, path, bytes);
    } catch (const FileError& fault) {
        throw Error(error_number::file_or_element, "", fault.what());
    }
}

void declare_plot(CLI::App& command, Session& session) {
    PlotOptions& options = runs(command, session, "korvane plot 566.8885 1926.6365 -o peaks.svg", plot);
    add_numbers(command, "MASS", options.masses, "m/z to show (the mass list of the base folder)", positive);
    add_name(command, "-o,--output", options.file, "the file to write, scalable vector graphics", "FILE")->required();
    command.add_flag("--mass-errors", options.mass_errors, "one picture of the mass errors, not one a peak");
}

}  // namespace korvane::program
