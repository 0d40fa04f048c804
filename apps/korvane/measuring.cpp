// Measurements of the next spectrum: the calibrants, one peak, and whether there are enough calibrants to tune on.
#include <algorithm>
#include <array>
#include <ranges>

#include "commands.h"
#include "korvane/recording.h"
#include "korvane/tune_params_xml.h"
#include "korvane/watching.h"
#include "run.h"

namespace korvane::program {

namespace {

struct MeasureOptions {
    std::vector<double> masses;
    double window_percent = -1;  // the configured one
    KeepOptions keeping;
    std::optional<std::string> recording;
    bool check = false;
};

/// A mass asked for by name; that the axis is too short is otherwise not told from no peak.
void require_masses_on_axis(const VariantArray<double>& axis, const std::vector<RecordedCalibrant>& calibrants) {
    const double first = axis.elements().front(), last = axis.elements().back();
    for (const auto& [row, verdict, trace] : calibrants)
        if (!row.found() && (row.mass < first || row.mass > last))
            throw UsageError(fmt::format("--mass: {} lies outside the mass axis of the spectrum, {:.4f} to {:.4f}",
                                         row.mass, first, last));
}

Table measured_table(const std::vector<RecordedCalibrant>& calibrants, double minimum_height) {
    Table table({"expected m/z|mass|.4f", "|found", "measured m/z||.4f", "error ppm|ppm|.2f", "time ns||.3f",
                 "height||.0f", "width ns||.3f", "resolution||.0f", "|ns", "|amu", "|ppm_error", "|height_error",
                 "|width_error", "|ions", "reaches minimum|reaches_minimum", "<quality", "|quality", "<verdict",
                 "|verdict"});
    for (const auto& [row, verdict, trace] : calibrants) {
        const auto known = [&](double value) { return row.found() ? Json(value) : Json(); };
        const auto error = [&](auto part) { return part_of(row.standard_errors, part); };
        table.add(row.mass, row.found(), row.found() ? Json(row.amu.pkCentroid) : Json("no peak"),
                  known(row.error_ppm()), known(row.ns.pkCentroid), known(row.ns.pkHeight), known(row.ns.pkWidth),
                  known(row.amu.pkResolution), row.ns, row.amu, row.standard_error_ppm(),
                  error(&PeakUncertainty::height), error(&PeakUncertainty::width), error(&PeakUncertainty::ions),
                  row.found() && row.ns.pkHeight >= minimum_height, quality_text(row.quality), row.quality,
                  verdict.text, verdict);
    }
    return table;
}

/// The calibrants that are not ok, with what is wrong; empty where all are.
std::string faults_of(const std::vector<RecordedCalibrant>& calibrants) {
    std::string faults;
    for (const auto& [measured, verdict, trace] : calibrants)
        if (verdict.state != CalibrantState::ok)
            faults += fmt::format("{}{:.4f} is {}", faults.empty() ? "" : "; ", measured.mass, verdict.text);
    return faults;
}

ExitCode measure(Session& session, const MeasureOptions& options) {
    session.begin_run();
    RunRecord run(session, options.keeping, "measure");
    TuneGlobals& globals = session.globals();
    const auto recording =
        options.recording ? std::filesystem::absolute(path_of(*options.recording)) : std::filesystem::path();
    AcquiredSpectrum last;
    const Platform watching = watched(
        session.platform(), [](bool) {}, [&](const AcquiredSpectrum& spectrum) { last = spectrum; });
    clsTuneParamsXML params(session.platform());
    const double minimum_height = params.GetAutotuneLimitValue("RampParams", "MinimumAcceptableAbundance");
    const std::string source = globals.GetSourceTypeStr(), polarity = globals.GetPolarityStr();
    const std::string state = globals.GetCurrentInstrumentStateAsString();
    const double interval_seconds = session.instrument().sampling_interval_seconds();

    const std::vector<double> masses = chosen_masses(session, options.masses);
    TuneRecord found;
    const std::string log =
        measure_record(found, watching, globals, VariantArray<double>(masses), options.window_percent);
    const AcquiredSpectrum measured = std::exchange(last, {});
    if (!options.masses.empty()) require_masses_on_axis(measured.mass_data, found.calibrants);
    const std::string faults = faults_of(found.calibrants);

    session.talk(fmt::format("{}, {}, {}; {:.6g} GHz sampling; tune log {}", source, polarity, state,
                             1e-9 / interval_seconds, written_log(log)));
    const Table table = measured_table(found.calibrants, minimum_height);
    const Json record = run.keep([&](TuneRecord& kept) {
        kept.log = log;
        kept.limits = found.limits;
        kept.calibrants = found.calibrants;
        kept.verdict = found.verdict;
        if (!options.recording) return;
        record_spectrum(session.platform(), recording, measured);
        kept.recording = utf8_of(recording);
    });
    session.show(Json{{"source", source},
                      {"polarity", polarity},
                      {"state", state},
                      {"peaks", table.json()},
                      {"minimum_abundance_counts", minimum_height},
                      {"record", record},
                      {"healthy", faults.empty()}},
                 table);
    return log_and_end(session, log, options.check ? faults : std::string());
}

struct PeakOptions {
    double mass = 0, window_amu = 0.2;
    std::string attribute;
};

struct Attribute {
    std::string_view name;
    PeakCalcType type;
    const char* unit;
};
constexpr std::array attributes{
    Attribute{"time", PeakCalcType::TimeCentroid, "ns"},   Attribute{"mass", PeakCalcType::MassCentroid, "amu"},
    Attribute{"resolution", PeakCalcType::Resolution, ""}, Attribute{"width", PeakCalcType::Width, "amu"},
    Attribute{"height", PeakCalcType::Height, "counts"},   Attribute{"area", PeakCalcType::Area, "counts x samples"}};

ExitCode show_attribute(Session& session, SpectrumParser& parser, const PeakOptions& options) {
    const Attribute& attribute = *std::ranges::find(attributes, options.attribute, &Attribute::name);
    const double value = parser.GetPeakAttribute(attribute.type, options.mass, options.window_amu);
    return session.show(
        Json{{"mass", options.mass}, {"attribute", attribute.name}, {"value", value}, {"unit", attribute.unit}},
        fmt::format("{:.6f}\n", value));
}

ExitCode show_record(Session& session, SpectrumParser& parser, const PeakOptions& options) {
    const PeakListObject peaks = parser.GetPeakListOfOnlyThisOneMass(options.mass, options.window_amu);
    peaks->order(height_position, 0);
    const PeakInfo ns = peaks->GetPeakAttributeInfo(0, false), amu = peaks->GetPeakAttributeInfo(0, true);
    Table table({"<value", "ns||.4f", "amu||.5f"});
    for (std::size_t i = 0; i < peak_info_names.size(); ++i) {
        const auto position = static_cast<std::int32_t>(i);
        table.add(peak_info_names[i], ns.value(position), amu.value(position));
    }
    return session.show(Json{{"mass", options.mass}, {"peaks", peaks->count()}, {"ns", ns}, {"amu", amu}}, table);
}

ExitCode measure_peak(Session& session, const PeakOptions& options) {
    session.begin_run();
    require_mass_in_range(session, options.mass);
    SpectrumParser parser(session.platform());
    if (options.window_amu >= options.mass) throw UsageError("--window: the window reaches below mass 0");
    return options.attribute.empty() ? show_record(session, parser, options) : show_attribute(session, parser, options);
}

ExitCode verify(Session& session, const NoOptions&) {
    session.begin_run();
    SpectrumParser parser(session.platform());
    const TuneLimits limits = read_tune_limits(session.platform());
    try {
        parser.VerifyInstrumentIsShowingValidCalibrantSpectrum();
    } catch (const Error& error) {
        if (exit_code_of(error) == ExitCode::check_failed)
            session.show(Json{{"valid", false}, {"message", error.description()}, {"calibrants", nullptr}},
                         std::string());
        throw;
    }
    TuneRecord found;
    judge(found, measure_calibrants(parser, session.globals(), VariantArray<double>(chosen_masses(session, {}))),
          limits);
    const std::string faults = faults_of(found.calibrants);
    Json calibrants = Json::array();
    for (const auto& [measured, verdict, trace] : found.calibrants)
        calibrants.push_back(Json{{"mass", measured.mass}, {"verdict", verdict}});
    session.talk("tune log " + written_log(parser.tune_log_path()));
    session.show(Json{{"valid", faults.empty()},
                      {"message", faults.empty() ? Json() : Json(faults)},
                      {"calibrants", std::move(calibrants)}},
                 faults.empty() ? "The instrument shows a valid calibrant spectrum.\n" : std::string());
    return log_and_end(session, parser.tune_log_path(), faults);
}

}  // namespace

void declare_measure(CLI::App& command, Session& session) {
    MeasureOptions& options =
        runs(command, session, "korvane measure --mass 158.9640 --mass 566.8885 --window 0.2", measure, Prints::table);
    command.add_flag("--check", options.check, "exit code 1, and what is wrong, where a calibrant is not ok");
    add_numbers(command, "--mass", options.masses,
                "m/z to look for; repeat for more (the mass list of the base folder)", positive);
    add_number(command, "--window", options.window_percent,
               "half width of the search window, percent of the flight time (PeakHandling/PeakFindWindowInPercentT)",
               {.above = 0, .below = 100});
    CLI::Option* keep =
        command.add_flag("--keep", options.keeping.keep, "keep a record in the history (korvane history)");
    command.add_option("--note", options.keeping.note, "what to remember beside the record")
        ->type_name("TEXT")
        ->needs(keep);
    add_name(command, "--recording", options.recording, "keep the spectrum too, as mzML, named in the record", "FILE")
        ->needs(keep);
}

void declare_peak(CLI::App& command, Session& session) {
    PeakOptions& options =
        runs(command, session, "korvane peak 1382.7373 --attribute resolution", measure_peak, Prints::table);
    add_number(command, "MASS", options.mass, "m/z of the peak", positive)->required();
    add_number(command, "--window", options.window_amu, "half width of the search window, amu (0.2)", positive);
    add_choice(command, "--attribute", options.attribute,
               "print this one value: time (ns), mass (amu), resolution, width (amu), height (counts), area", "NAME",
               attributes | std::views::transform(&Attribute::name));
}

void declare_verify(CLI::App& command, Session& session) {
    runs(command, session, "korvane verify && echo ready", verify);
}

}  // namespace korvane::program
