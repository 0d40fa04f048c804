// The mass calibration: shown, with the mass errors of the calibrants over repeated spectra, set, and fitted.
#include <cmath>

#include "commands.h"
#include "korvane/calibration_fit.h"
#include "run.h"

namespace korvane::program {

namespace {

/// Mass errors in ppm, for every mass of the spectra that showed it.
std::vector<std::vector<double>> mass_errors(Session& session, const std::vector<double>& masses,
                                             std::int64_t repeats) {
    SpectrumParser parser(session.platform());
    std::vector<std::vector<double>> errors_ppm(masses.size());
    for (std::int64_t repeat = 0; repeat < repeats; ++repeat) {
        const auto calibrants = measure_calibrants(parser, session.globals(), VariantArray<double>(masses));
        for (std::size_t i = 0; i < calibrants.size(); ++i)
            if (calibrants[i].found()) errors_ppm[i].push_back(calibrants[i].error_ppm());
    }
    return errors_ppm;
}

ExitCode show_calibration(Session& session, const std::int64_t& repeats) {
    if (repeats) session.begin_run();
    TuneGlobals& globals = session.globals();
    const CalibrationCoefficients ns = globals.GetCurrentCalibrationObjFromDD()->coefficients();
    const CalibrationCoefficients usec = globals.convert_coefficients_nsec_to_usec(ns);
    const std::string polarity = globals.GetPolarityStr();

    Json object{{"polarity", polarity}, {"ns", ns}, {"usec", usec}};
    Table coefficients({"<coefficient", "by ns||.12g", "by µs||.12g"});
    for (const auto& [name, member] : calibration_coefficients) coefficients.add(name, ns.*member, usec.*member);
    std::string text = session.csv ? coefficients.csv() : coefficients.text();
    if (repeats) {
        Table errors(
            {"m/z|mass|.4f", "found", "|found", "mean error ppm|mean_ppm|.3f", "std deviation ppm|stdev_ppm|.3f"});
        const std::vector<double> masses = chosen_masses(session, {});
        const auto errors_ppm = mass_errors(session, masses, repeats);
        for (std::size_t i = 0; i < masses.size(); ++i) {
            const GuideSet statistics = guide_set(errors_ppm[i]);
            std::optional<double> mean, deviation;
            if (statistics.size > 0) mean = statistics.centre;
            if (statistics.size > 1) deviation = statistics.sigma;
            errors.add(masses[i], fmt::format("{} of {}", statistics.size, repeats), statistics.size, mean, deviation);
        }
        object["mass_errors"] = errors.json();
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
    keep_calibration(session.platform());
    TuneGlobals& globals = session.globals();
    if (options.standard)
        globals.WriteThisCalibrationObjToDD(globals.getDefaultMTObj_nsec());
    else
        globals.SetNewCalibrationWithTheseAAndt0Values_usec(*options.a, *options.t0);
    session.keep_moves();
    return show_calibration(session, {});
}

ExitCode take_back_calibration(Session& session, const NoOptions&) {
    session.begin_run();
    undo_calibration(session.platform());
    session.keep_moves();
    return show_calibration(session, {});
}

struct FitOptions {
    std::int64_t spectra = 3;
    bool apply = false, force = false;
};

/// "better", or why the fitted law is not worth writing.
std::string fit_verdict(const CalibrationFit& fit) {
    if (!fit.meets_calibrants())
        return fmt::format("not better: the calibrants scatter by {:.0f} standard errors about the fitted law",
                           std::sqrt(fit.chi_square_per_freedom));
    return fmt::format("{}: left out, the calibrants lie {:.3f} ppm off the fitted law, {:.3f} ppm off the present one",
                       fit.is_better() ? "better" : "not better", fit.left_out_ppm, fit.before_ppm);
}

Table residual_table(const CalibrationFit& fit) {
    Table table({"m/z|mass|.4f", "spectra|spectra", "|time_ns", "|time_error_ns", "before ppm|before_ppm|.3f",
                 "after ppm|after_ppm|.3f", "left out ppm|left_out_ppm|.3f", "standard error ppm|error_ppm|.3f",
                 "law error ppm|law_error_ppm|.3f", "|used", "<not used", "|not_used"});
    for (const auto& [measured, error_ppm, before_ppm, after_ppm, left_out_ppm, law_error_ppm, not_used] :
         fit.calibrants) {
        const bool is_measured = error_ppm > 0, is_used = not_used.empty();
        const auto known = [&](double value) { return is_measured ? Json(value) : Json(); };
        table.add(measured.mass, measured.spectra, measured.spectra > 0 ? Json(measured.time_ns) : Json(),
                  known(measured.error_ns), known(before_ppm), known(after_ppm), known(left_out_ppm), known(error_ppm),
                  known(law_error_ppm), is_used, not_used, is_used ? Json() : Json(not_used));
    }
    return table;
}

ExitCode fit(Session& session, const FitOptions& options) {
    session.begin_run();
    RunRecord run(session, {.keep = options.apply, .note = {}}, "calibration fit");
    TuneGlobals& globals = session.globals();
    SpectrumParser parser(session.platform());
    const VariantArray<double> masses(chosen_masses(session, {}));
    const CalibrationObject before = globals.GetCurrentCalibrationObjFromDD();
    const CalibrationCoefficients old = before->coefficients();  // a layer may lend the one that it writes
    const CalibrationFit fit = fit_calibration(
        measure_calibrant_times(parser, globals, masses, static_cast<std::size_t>(options.spectra)), *before);
    const bool applies = options.apply && (fit.is_better() || options.force);
    if (applies) {
        keep_calibration(session.platform());
        globals.WriteThisCalibrationObjToDD(fit.calibration);
        session.keep_moves();
    }

    const CalibrationCoefficients fitted = fit.calibration->coefficients();
    Table coefficients({"<coefficient", "present, by ns||.12g", "fitted, by ns||.12g"});
    for (std::size_t i = 0; i < fit.terms + 2; ++i) {
        const auto& [name, member] = calibration_coefficients[i];
        coefficients.add(name, old.*member, fitted.*member);
    }
    const Table residuals = residual_table(fit);
    const Json record = applies ? run.keep([&](TuneRecord& kept) {
        kept.log = parser.tune_log_path();
        kept.residuals = fit.calibrants;
        kept.verdict = fit.is_better() ? "better" : "not better, forced";
    })
                                : Json();
    session.show(Json{{"polarity", globals.GetPolarityStr()},
                      {"spectra", options.spectra},
                      {"used", fit.used},
                      {"terms", fit.terms},
                      {"chi_square_per_freedom", fit.chi_square_per_freedom},
                      {"before_ppm", fit.before_ppm},
                      {"left_out_ppm", fit.left_out_ppm},
                      {"better", fit.is_better()},
                      {"verdict", fit_verdict(fit)},
                      {"applied", applies},
                      {"before", old},
                      {"fitted", fitted},
                      {"calibrants", residuals.json()},
                      {"record", record}},
                 session.csv ? residuals.csv()
                             : fmt::format("{}\n{}\n{} of {} calibrants used, {} terms beyond A and B, chi-square per "
                                           "degree of freedom {:.2f}\n{}\n",
                                           residuals.text(), coefficients.text(), fit.used, fit.calibrants.size(),
                                           fit.terms, fit.chi_square_per_freedom, fit_verdict(fit)));
    session.talk(applies ? "the fitted calibration is written; korvane calibration undo puts the earlier one back"
                         : "nothing written");
    return log_and_end(session, parser.tune_log_path(),
                       applies || !options.apply ? "" : "the fitted law is not better; --force writes it");
}

}  // namespace

void declare_calibration(CLI::App& group, Session& session) {
    const auto [show, repeats] =
        add_command(group, session, "show", "print the coefficients, and the mass errors of repeated measurements",
                    "korvane calibration show --repeat 10", show_calibration, Prints::table);
    add_count(show, "--repeat", repeats, "measure the calibrants in so many spectra (2 to 10000)", 2, 10000);

    const auto [set, setting] = add_command(group, session, "set", "write a new calibration and print it",
                                            "korvane calibration set -A 0.45 --t0 0.02", set_calibration);
    add_number(set, "-A", setting.a, "coefficient A, in sqrt(amu) per µs", positive);
    add_number(set, "--t0", setting.t0, "time offset B, in µs");
    set.add_flag("--default", setting.standard, "the instrument's default calibration");

    const auto [fitted, fitting] =
        add_command(group, session, "fit", "fit the mass-time law to the measured calibrants, and judge it",
                    "korvane calibration fit --spectra 10 --apply", fit, Prints::table);
    add_count(fitted, "--spectra", fitting.spectra, "measure the calibrants in so many spectra (3)", 1, 10000);
    fitted.add_flag("--apply", fitting.apply, "write the fitted law where it is better; exit code 1 where it is not");
    fitted.add_flag("--force", fitting.force, "with --apply: write it in any case")->needs("--apply");

    add_command(group, session, "undo", "put the calibration before the last change back, and print it",
                "korvane calibration undo", take_back_calibration);
}

}  // namespace korvane::program
