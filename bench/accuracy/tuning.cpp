// Prints the tables of docs/adjust.md: both searches, and the fit of a calibration that was put off, on the simulated
// instrument, whose truth is known. Takes the number of seeds, and the setpoint or "fit" where only a part is wanted.
#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "instrument/simulator/scene.h"
#include "korvane/calibration_fit.h"
#include "korvane/embedded.h"
#include "korvane/secant_search.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

constexpr double mz = 566.8885;
constexpr std::int32_t transients_2ghz = 160;
/// Counts at the peak a transient: around 0.41 of what the default scene shows, spread over a fifth of itself, so that
/// no search meets it by the luck of its steps.
double target_per_transient(int seed) {
    return 9 + 2 * std::fmod(0.618 * seed, 1.0);
}
/// Part of the abundance by which the truth may be off.
constexpr double miss = 0.04;

/// A simulated instrument on a base folder of its own.
struct Simulated {
    explicit Simulated(std::uint64_t seed) {
        create_base_folder(folder.path() / "base");
        platform = make_embedded_platform({.base_folder = folder.path() / "base", .seed = seed});
    }
    void set(std::int32_t setpoint, double value) { TuneGlobals(platform).SetMSSetpointValueByIdx(setpoint, value); }
    double value(std::int32_t setpoint) { return TuneGlobals(platform).GetMSSetpointValueByIdx(setpoint); }

    TemporaryFolder folder;
    Platform platform;
};

struct Lens {
    const char* name;
    std::int32_t setpoint;
    bool lower_reduces;
};
constexpr Lens lenses[] = {
    {"FragmentTune", 30, true}, {"Skimmer1", 31, false}, {"Oct1RF", 33, true}, {"MCP", 60, true}};

simulation::ResponseCurve curve_of(std::int32_t setpoint) {
    for (const auto& curve : simulation::default_scene().responses)
        if (curve.setpoint == setpoint) return curve;
    std::abort();
}

/// Counts a transient by the value of a setpoint.
struct Truth {
    explicit Truth(const Lens& lens) : curve(curve_of(lens.setpoint)) {
        Simulated instrument(1000000);
        instrument.set(transients_2ghz, 20000);
        at = instrument.value(lens.setpoint);
        SpectrumParser parser(instrument.platform);
        TuneGlobals globals(instrument.platform);
        constexpr int spectra = 200;
        for (int i = 0; i < spectra; ++i)
            height += measure_calibrants(parser, globals, VariantArray<double>({mz})).front().ns.pkHeight;
        height /= spectra * 20000.0;
    }
    double operator()(double value) const { return height * curve.raw(value, mz) / curve.raw(at, mz); }

    simulation::ResponseCurve curve;
    double at = 0, height = 0;
};

struct Figures {
    double transients = 0;  // over those on entry
    int probes = 0, misses = 0;
    void add(double used, std::size_t count, double truth_over_target) {
        transients += used;
        probes += static_cast<int>(count);
        misses += std::abs(truth_over_target - 1) > miss;
    }
};

Figures bisected(const Lens& lens, const Truth& truth, double transients, int seeds) {
    Figures figures;
    for (int seed = 1; seed <= seeds; ++seed) {
        Simulated instrument(static_cast<std::uint64_t>(seed));
        instrument.set(transients_2ghz, transients);
        SpectrumParser parser(instrument.platform);
        const double value = parser.BinaryAdjustAbundanceDownUsingThisSetpoint(
            lens.setpoint, mz, target_per_transient(seed) * transients, 30, lens.lower_reduces);
        const AdjustOutcome& outcome = parser.last_adjustment();
        const auto probes = outcome.probes.size();
        figures.add(static_cast<double>(probes) / outcome.speed_up_factor, probes,
                    truth(value) / target_per_transient(seed));
    }
    return figures;
}

Figures followed(const Lens& lens, const Truth& truth, double transients, int seeds) {
    Figures figures;
    for (int seed = 1; seed <= seeds; ++seed) {
        Simulated instrument(static_cast<std::uint64_t>(seed));
        instrument.set(transients_2ghz, transients);
        const SecantOutcome outcome =
            adjust_by_secant(instrument.platform, {.setpoint = lens.setpoint,
                                                   .mz = mz,
                                                   .target = target_per_transient(seed) * transients,
                                                   .lower_value_reduces_abundance = lens.lower_reduces});
        double used = 0;
        for (const SecantProbe& probe : outcome.probes) used += probe.transients / transients;
        figures.add(used, outcome.probes.size(), truth(outcome.value) / target_per_transient(seed));
    }
    return figures;
}

void print_searches(int seeds, const std::string& part) {
    fmt::print(
        "| setpoint | transients | bisection: transients, probes, misses | secant: transients, probes, misses |\n"
        "|---|---|---|---|\n");
    Figures all[2];
    for (const Lens& lens : lenses) {
        if (!part.empty() && part != lens.name) continue;
        const Truth truth(lens);
        for (const double transients : {20000.0, 5000.0, 2000.0}) {
            fmt::print("| {} | {:.0f} |", lens.name, transients);
            const Figures both[] = {bisected(lens, truth, transients, seeds), followed(lens, truth, transients, seeds)};
            for (std::size_t i = 0; i < 2; ++i) {
                fmt::print(" {:.2f}, {:.1f}, {:.1f} % |", both[i].transients / seeds,
                           static_cast<double>(both[i].probes) / seeds, 100.0 * both[i].misses / seeds);
                all[i].transients += both[i].transients;
                all[i].misses += both[i].misses;
            }
            fmt::print("\n");
            std::fflush(stdout);
        }
    }
    fmt::print("\nSecant over bisection: {:.2f} of the transients, {:.2f} of the misses ({} of {}).\n",
               all[1].transients / all[0].transients, static_cast<double>(all[1].misses) / all[0].misses, all[1].misses,
               all[0].misses);
}

/// A calibration put off by 50 ppm, fitted to some spectra.
void print_fits(int seeds) {
    constexpr double put_off = 25e-6;  // of A, which counts twice in the mass
    fmt::print(
        "\n| spectra | error / stated error, root mean square | beyond 1.96 | worst calibrant, ppm | better |\n"
        "|---|---|---|---|---|\n");
    for (const std::size_t spectra : {1, 3, 10}) {
        double squares = 0, worst_ppm = 0;
        int beyond = 0, better = 0, calibrants = 0;
        for (int seed = 1; seed <= seeds; ++seed) {
            Simulated instrument(static_cast<std::uint64_t>(seed));
            TuneGlobals globals(instrument.platform);
            SpectrumParser parser(instrument.platform);
            const CalibrationObject truth = globals.GetCurrentCalibrationObjFromDD()->clone(), before = truth->clone();
            CalibrationCoefficients off = truth->coefficients();
            off.A *= 1 + put_off;
            before->set_coefficients(off);
            globals.WriteThisCalibrationObjToDD(before);
            const auto masses = globals.GetDefaultMassList("ESI", "Positive");
            const CalibrationFit fit =
                fit_calibration(measure_calibrant_times(parser, globals, masses, spectra), *before);
            better += fit.is_better();
            for (const CalibrantResidual& calibrant : fit.calibrants) {
                const double mass = calibrant.measured.mass;
                const double error_ppm =
                    (fit.calibration->mass_from_time(truth->time_from_mass(mass)) / mass - 1) * 1e6;
                worst_ppm = std::max(worst_ppm, std::abs(error_ppm));
                // The law has two errors of its own; one calibrant tells them as well as ten.
                if (++calibrants % 10 != 5) continue;
                squares += std::pow(error_ppm / calibrant.law_error_ppm, 2);
                beyond += std::abs(error_ppm) > 1.96 * calibrant.law_error_ppm;
            }
        }
        fmt::print("| {} | {:.2f} | {} of {} | {:.2f} | {} |\n", spectra, std::sqrt(squares / seeds), beyond, seeds,
                   worst_ppm, better);
        std::fflush(stdout);
    }
}

}  // namespace
}  // namespace korvane

int main(int argc, char** argv) {
    const int seeds = argc > 1 ? std::atoi(argv[1]) : 200;
    if (seeds < 1) {
        fmt::print(stderr, "usage: {} [seeds [setpoint|fit]]\n", argv[0]);
        return 2;
    }
    const std::string part = argc > 2 ? argv[2] : "";
    if (part != "fit") korvane::print_searches(seeds, part);
    if (part.empty() || part == "fit") korvane::print_fits(seeds);
    return 0;
}
