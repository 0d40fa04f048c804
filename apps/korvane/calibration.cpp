// The mass calibration, and the mass errors of the calibrants over repeated spectra.
#include <array>

#include "calibrants.h"
#include "commands.h"
#include "text_table.h"

namespace korvane::program {

namespace {

struct MassErrorStatistics {
    double mass = 0;
    std::int64_t found = 0;           // in so many spectra
    std::optional<double> mean_ppm;   // over these; nothing when never found
    std::optional<double> stdev_ppm;  // sample standard deviation; nothing when found less than twice
};

// Flight times of one calibrant, in the spectra that showed it.
using Times = std::vector<double>;

std::vector<Times> measure_times(SpectrumParser& parser, const std::vector<double>& masses, std::int64_t repeats) {
    std::vector<Times> times(masses.size());
    for (std::int64_t repeat = 0; repeat < repeats; ++repeat) {
        const auto records = parser.GetPeakInfoForCalibrantMasses(VariantArray<double>(masses));
        for (std::size_t i = 0; i < masses.size(); ++i)
            if (records.at(i, 0) != PeakInfo{}) times[i].push_back(records.at(i, 0).pkCentroid);
    }
    return times;
}

MassErrorStatistics statistics_of(TuneGlobals& globals, const CalibrationObject& calibration, double mass,
                                  const Times& times) {
    MassErrorStatistics result{mass, static_cast<std::int64_t>(times.size()), {}, {}};
    if (times.empty()) return result;
    // A single time has no deviation; written twice it still has its mean.
    const std::size_t columns = std::max<std::size_t>(times.size(), 2);
    VariantMatrix<double> measured(1, columns), raw;
    for (std::size_t i = 0; i < columns; ++i) measured.at(0, i) = times[std::min(i, times.size() - 1)];
    VariantArray<double> means, deviations;
    globals.CalculateStdevOfMassAssignmentErrorForTheseMasses(VariantArray<double>({mass}), measured, calibration, raw,
                                                              means, deviations);
    result.mean_ppm = means.at(0);
    if (times.size() > 1) result.stdev_ppm = deviations.at(0);
    return result;
}

// One row a calibrant of the default list.
std::vector<MassErrorStatistics> mass_error_statistics(Session& session, TuneGlobals& globals, std::int64_t repeats) {
    SpectrumParser parser(session.platform());
    const std::vector<double> masses = chosen_masses(session, globals, {});
    const std::vector<Times> times = measure_times(parser, masses, repeats);
    const CalibrationObject calibration = globals.GetCurrentCalibrationObjFromDD();
    std::vector<MassErrorStatistics> rows;
    for (std::size_t i = 0; i < masses.size(); ++i)
        rows.push_back(statistics_of(globals, calibration, masses[i], times[i]));
    return rows;
}

struct CalibrationChoice {
    std::int64_t repeats = 0;
};

ExitCode show_calibration(Session& session, const CalibrationChoice& options) {
    if (options.repeats) session.begin_run();
    TuneGlobals globals(session.platform());
    const CalibrationCoefficients ns = globals.GetCurrentCalibrationObjFromDD()->coefficients();
    const CalibrationCoefficients usec = globals.convert_coefficients_nsec_to_usec(ns);
    const std::string polarity = globals.GetPolarityStr();

    Json object{{"polarity", polarity}};
    TextTable coefficients({"<coefficient", "by ns", "by usec"});
    using Coefficient = std::pair<const char*, double CalibrationCoefficients::*>;
    for (const auto& [name, member] : {Coefficient{"A", &CalibrationCoefficients::A},
                                       {"B", &CalibrationCoefficients::B},
                                       {"C", &CalibrationCoefficients::C},
                                       {"D", &CalibrationCoefficients::D},
                                       {"E", &CalibrationCoefficients::E},
                                       {"F", &CalibrationCoefficients::F},
                                       {"G", &CalibrationCoefficients::G},
                                       {"H", &CalibrationCoefficients::H}}) {
        object["ns"][name] = ns.*member;
        object["usec"][name] = usec.*member;
        coefficients.add({name, fmt::format("{:.12g}", ns.*member), fmt::format("{:.12g}", usec.*member)});
    }
    std::string text = session.csv ? coefficients.csv() : coefficients.text();
    if (options.repeats) {
        const auto ppm_text = [](std::optional<double> ppm) { return ppm ? fmt::format("{:.3f}", *ppm) : "-"; };
        const auto ppm_json = [](std::optional<double> ppm) { return ppm ? Json(*ppm) : Json(); };
        object["mass_errors"] = Json::array();
        TextTable errors({"m/z", "found", "mean error ppm", "std deviation ppm"});
        for (const MassErrorStatistics& row : mass_error_statistics(session, globals, options.repeats)) {
            object["mass_errors"].push_back(Json{{"mass", row.mass},
                                                 {"found", row.found},
                                                 {"mean_ppm", ppm_json(row.mean_ppm)},
                                                 {"stdev_ppm", ppm_json(row.stdev_ppm)}});
            errors.add({fmt::format("{:.4f}", row.mass), fmt::format("{} of {}", row.found, options.repeats),
                        ppm_text(row.mean_ppm), ppm_text(row.stdev_ppm)});
        }
        text = session.csv ? errors.csv() : text + "\n" + errors.text();
    }
    if (!session.json) session.talk(polarity + " ions: m = (A (t - B))^2 + used terms of C to H");
    return session.show(object, text);
}

struct CalibrationChange {
    std::optional<double> a, t0;
    bool standard = false;
};

ExitCode set_calibration(Session& session, const CalibrationChange& options) {
    if (options.standard == (options.a || options.t0) || options.a.has_value() != options.t0.has_value())
        throw UsageError("give either both -A and --t0, or --default");
    session.begin_run();
    TuneGlobals globals(session.platform());
    if (options.standard)
        globals.WriteThisCalibrationObjToDD(globals.getDefaultMTObj_nsec());
    else
        globals.SetNewCalibrationWithTheseAAndt0Values_usec(*options.a, *options.t0);
    return show_calibration(session, {});
}

}  // namespace

void declare_calibration(CLI::App& group, Session& session) {
    const auto [show, showing] =
        add_command(group, session, "show", "print the coefficients, and the mass errors of repeated measurements",
                    "korvane calibration show --repeat 10", show_calibration);
    add_csv(show, session);
    add_count(show, "--repeat", showing.repeats, "measure the calibrants in so many spectra (2 to 10000)", 2, 10000);

    const auto [set, setting] = add_command(group, session, "set", "write a new calibration and print it",
                                            "korvane calibration set -A 0.45 --t0 0.02", set_calibration);
    add_number(set, "-A", setting.a, "coefficient A, in sqrt(amu) per usec", positive);
    add_number(set, "--t0", setting.t0, "time offset B, in usec");
    set.add_flag("--default", setting.standard, "the instrument's default calibration");
}

}  // namespace korvane::program
