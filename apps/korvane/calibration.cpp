#include <fmt/format.h>

#include <array>

#include "calibrants.h"
#include "commands.h"
#include "mass_error_statistics.h"
#include "number_options.h"
#include "text_table.h"

namespace korvane::program {

namespace {

struct CalibrationChoice {
    std::int64_t repeats = 0;
};

struct CalibrationChange {
    std::optional<double> a, t0;
    bool standard = false;
};

constexpr std::array coefficient_names{"A", "B", "C", "D", "E", "F", "G", "H"};

std::array<double, 8> values_of(const CalibrationCoefficients& c) {
    return {c.A, c.B, c.C, c.D, c.E, c.F, c.G, c.H};
}

Json coefficients_json(const CalibrationCoefficients& coefficients) {
    Json object = Json::object();
    const auto values = values_of(coefficients);
    for (std::size_t i = 0; i < values.size(); ++i) object[coefficient_names[i]] = values[i];
    return object;
}

std::string coefficients_text(const CalibrationCoefficients& ns, const CalibrationCoefficients& usec) {
    TextTable table({{"coefficient", Align::left}, {"by ns"}, {"by usec"}});
    const auto by_ns = values_of(ns), by_usec = values_of(usec);
    for (std::size_t i = 0; i < by_ns.size(); ++i)
        table.add({coefficient_names[i], fmt::format("{:.12g}", by_ns[i]), fmt::format("{:.12g}", by_usec[i])});
    return table.text();
}

Json statistics_json(const std::vector<MassErrorStatistics>& statistics) {
    Json rows = Json::array();
    for (const MassErrorStatistics& row : statistics) {
        Json object{{"mass", row.mass}, {"found", row.found}, {"mean_ppm", nullptr}, {"stdev_ppm", nullptr}};
        if (row.mean_ppm) object["mean_ppm"] = *row.mean_ppm;
        if (row.stdev_ppm) object["stdev_ppm"] = *row.stdev_ppm;
        rows.push_back(std::move(object));
    }
    return rows;
}

std::string statistics_text(const std::vector<MassErrorStatistics>& statistics, std::int64_t repeats) {
    TextTable table({{"m/z"}, {"found"}, {"mean error ppm"}, {"std deviation ppm"}});
    const auto ppm_text = [](std::optional<double> ppm) { return ppm ? fmt::format("{:.3f}", *ppm) : "-"; };
    for (const MassErrorStatistics& row : statistics)
        table.add({fmt::format("{:.4f}", row.mass), fmt::format("{} of {}", row.found, repeats), ppm_text(row.mean_ppm),
                   ppm_text(row.stdev_ppm)});
    return table.text();
}

ExitCode show(Session& session, std::int64_t repeats) {
    TuneGlobals globals(session.platform());
    const CalibrationCoefficients ns = globals.GetCurrentCalibrationObjFromDD()->coefficients();
    const CalibrationCoefficients usec = globals.convert_coefficients_nsec_to_usec(ns);
    const std::string polarity = globals.GetPolarityStr();
    std::vector<MassErrorStatistics> statistics;
    if (repeats) statistics = mass_error_statistics(session, globals, repeats);

    if (session.json) {
        Json object{{"polarity", polarity}, {"ns", coefficients_json(ns)}, {"usec", coefficients_json(usec)}};
        if (repeats) object["mass_errors"] = statistics_json(statistics);
        session.print_json(object);
        return ExitCode::done;
    }
    session.talk(polarity + " ions: m = (A (t - B))^2 + used terms of C to H");
    session.print(coefficients_text(ns, usec));
    if (repeats) session.print("\n" + statistics_text(statistics, repeats));
    return ExitCode::done;
}

ExitCode show_calibration(Session& session, const CalibrationChoice& options) {
    return show(session, options.repeats);
}

ExitCode set_calibration(Session& session, const CalibrationChange& options) {
    if (options.standard == (options.a || options.t0) || options.a.has_value() != options.t0.has_value())
        throw UsageError("give either both -A and --t0, or --default");
    TuneGlobals globals(session.platform());
    if (options.standard)
        globals.WriteThisCalibrationObjToDD(globals.getDefaultMTObj_nsec());
    else
        globals.SetNewCalibrationWithTheseAAndt0Values_usec(*options.a, *options.t0);
    return show(session, 0);
}

}  // namespace

void add_calibration(CLI::App& program, Session& session) {
    CLI::App* group = add_group(program, "calibration", "the mass calibration of the current polarity");

    auto showing = std::make_shared<CalibrationChoice>();
    CLI::App* show_command =
        add_command(*group, session, "show", "print the coefficients, and the mass errors of repeated measurements",
                    "korvane calibration show --repeat 10");
    add_count(*show_command, "--repeat", showing->repeats, "measure the calibrants in so many spectra (2 to 10000)", 2,
              10000);
    on_run(show_command, session, showing, show_calibration);

    auto setting = std::make_shared<CalibrationChange>();
    CLI::App* set = add_command(*group, session, "set", "write a new calibration and print it",
                                "korvane calibration set -A 0.45 --t0 0.02");
    add_number(*set, "-A", setting->a, "coefficient A, in sqrt(amu) per usec", positive);
    add_number(*set, "--t0", setting->t0, "time offset B, in usec");
    set->add_flag("--default", setting->standard, "the instrument's default calibration");
    on_run(set, session, setting, set_calibration);
}

}  // namespace korvane::program
