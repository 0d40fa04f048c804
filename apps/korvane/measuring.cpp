// Measurements of the next spectrum: the calibrants, one peak, and whether there are enough calibrants to tune on.
#include <algorithm>
#include <array>

#include "calibrants.h"
#include "commands.h"
#include "korvane/tune_params_xml.h"
#include "peak_output.h"
#include "text_table.h"

namespace korvane::program {

namespace {

struct MeasureOptions {
    std::vector<double> masses;
    std::optional<double> window_percent;
};

struct CalibrantRow {
    double mass = 0;
    PeakInfo ns, amu;
    std::optional<PeakUncertainty> standard_errors;
    double ppm_per_ns = 0;  // at the peak
    std::optional<PeakQuality> quality = {};

    // A record that the search left alone is all zeros.
    bool found() const { return ns != PeakInfo{}; }
    bool reaches(double minimum_height) const { return found() && ns.pkHeight >= minimum_height; }
    double ppm() const { return (amu.pkCentroid - mass) / mass * 1e6; }
};

double ppm_per_ns_at(const MassTimeCalibration& calibration, double time_ns) {
    const double step_ns = 0.5;
    const double mass = calibration.mass_from_time(time_ns);
    const double difference =
        calibration.mass_from_time(time_ns + step_ns) - calibration.mass_from_time(time_ns - step_ns);
    return difference / (2 * step_ns) / mass * 1e6;
}

std::vector<CalibrantRow> measured_rows(SpectrumParser& parser, TuneGlobals& globals, const std::vector<double>& masses,
                                        double window_percent) {
    const VariantMatrix<PeakInfo> records =
        parser.GetPeakInfoForCalibrantMasses(VariantArray<double>(masses), window_percent);
    const auto& uncertainties = parser.last_uncertainties();
    const auto& qualities = parser.last_qualities();
    const CalibrationObject calibration = globals.GetCurrentCalibrationObjFromDD();

    std::vector<CalibrantRow> rows(masses.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i] = {masses[i], records.at(i, 0), records.at(i, 1), {}, 0};
        if (!rows[i].found()) continue;
        if (i < uncertainties.size()) rows[i].standard_errors = uncertainties[i];
        if (i < qualities.size()) rows[i].quality = qualities[i];
        rows[i].ppm_per_ns = ppm_per_ns_at(*calibration, rows[i].ns.pkCentroid);
    }
    return rows;
}

// A mass asked for by name must lie on the mass axis; that the axis is too short is otherwise not told from no peak.
void require_masses_on_axis(SpectrumParser& parser, const std::vector<CalibrantRow>& rows) {
    if (std::all_of(rows.begin(), rows.end(), [](const CalibrantRow& row) { return row.found(); })) return;
    VariantArray<double> axis, counts;
    VariantArray<InstrumentValue> metadata;
    double start_time_ns = 0;
    bool cancelled = false;
    parser.GetNewSpectrumAndVerifyDataIsPopulated(axis, counts, metadata, start_time_ns, cancelled);
    if (axis.size() == 0) return;
    const double first = axis.elements().front(), last = axis.elements().back();
    for (const CalibrantRow& row : rows)
        if (!row.found() && (row.mass < first || row.mass > last))
            throw UsageError(fmt::format("--mass: {} lies outside the mass axis of the spectrum, {:.4f} to {:.4f}",
                                         row.mass, first, last));
}

Json row_json(const CalibrantRow& row, double minimum_height) {
    Json object{{"mass", row.mass},
                {"found", row.found()},
                {"ppm", row.found() ? Json(row.ppm()) : Json()},
                {"ns", peak_json(row.ns)},
                {"amu", peak_json(row.amu)}};
    const auto& errors = row.standard_errors;
    object["ppm_error"] = errors ? Json(errors->centroid * row.ppm_per_ns) : Json();
    object["height_error"] = errors ? Json(errors->height) : Json();
    object["width_error"] = errors ? Json(errors->width) : Json();
    object["ions"] = errors ? Json(errors->ions) : Json();
    object["reaches_minimum"] = row.reaches(minimum_height);
    object["quality"] = quality_json(row.quality);
    return object;
}

TextTable::Cells row_cells(const CalibrantRow& row, double minimum_height) {
    const std::string mass = fmt::format("{:.4f}", row.mass);
    if (!row.found()) return {mass, "no peak", "-", "-", "-", "-", "-", "no", "-"};
    return {mass,
            fmt::format("{:.4f}", row.amu.pkCentroid),
            fmt::format("{:.2f}", row.ppm()),
            fmt::format("{:.3f}", row.ns.pkCentroid),
            fmt::format("{:.0f}", row.ns.pkHeight),
            fmt::format("{:.3f}", row.ns.pkWidth),
            fmt::format("{:.0f}", row.amu.pkResolution),
            row.reaches(minimum_height) ? "yes" : "no",
            quality_text(row.quality)};
}

ExitCode measure(Session& session, const MeasureOptions& options) {
    session.begin_run();
    TuneGlobals globals(session.platform());
    SpectrumParser parser(session.platform());
    clsTuneParamsXML params(session.platform());
    const double minimum_height = params.GetAutotuneLimitValue("RampParams", "MinimumAcceptableAbundance");
    const std::string source = globals.GetSourceTypeStr(), polarity = globals.GetPolarityStr();
    const std::string state = globals.GetCurrentInstrumentStateAsString();
    const double interval_seconds = session.instrument().sampling_interval_seconds();

    const std::vector<double> masses = chosen_masses(session, globals, options.masses);
    const auto rows = measured_rows(parser, globals, masses, options.window_percent.value_or(-1.0));
    if (!options.masses.empty()) require_masses_on_axis(parser, rows);

    session.talk(fmt::format("{}, {}, {}; {:.6g} GHz sampling; tune log {}", source, polarity, state,
                             1e-9 / interval_seconds, written_log(parser)));
    Json peaks = Json::array();
    TextTable table({"expected m/z", "measured m/z", "error ppm", "time ns", "height", "width ns", "resolution",
                     "reaches minimum", "<quality"});
    for (const CalibrantRow& row : rows) {
        peaks.push_back(row_json(row, minimum_height));
        table.add(row_cells(row, minimum_height));
    }
    session.show(Json{{"source", source},
                      {"polarity", polarity},
                      {"state", state},
                      {"peaks", std::move(peaks)},
                      {"minimum_abundance_counts", minimum_height}},
                 table);
    return log_and_end(session, parser);
}

struct PeakOptions {
    std::optional<double> mass;
    std::optional<double> window_amu;
    std::string attribute;
};

struct Attribute {
    const char* name;
    PeakCalcType type;
    const char* unit;
};
constexpr std::array attributes{
    Attribute{"time", PeakCalcType::TimeCentroid, "ns"},   Attribute{"mass", PeakCalcType::MassCentroid, "amu"},
    Attribute{"resolution", PeakCalcType::Resolution, ""}, Attribute{"width", PeakCalcType::Width, "amu"},
    Attribute{"height", PeakCalcType::Height, "counts"},   Attribute{"area", PeakCalcType::Area, "counts x samples"},
};

std::vector<std::string> attribute_names() {
    std::vector<std::string> names;
    for (const Attribute& attribute : attributes) names.emplace_back(attribute.name);
    return names;
}

const Attribute& attribute_named(const std::string& name) {
    for (const Attribute& attribute : attributes)
        if (attribute.name == name) return attribute;
    throw UsageError("no attribute " + name);
}

ExitCode show_attribute(Session& session, SpectrumParser& parser, const PeakOptions& options, double window_amu) {
    const Attribute& attribute = attribute_named(options.attribute);
    const double value = parser.GetPeakAttribute(attribute.type, *options.mass, window_amu);
    return session.show(
        Json{{"mass", *options.mass}, {"attribute", attribute.name}, {"value", value}, {"unit", attribute.unit}},
        fmt::format("{:.6f}\n", value));
}

ExitCode show_record(Session& session, SpectrumParser& parser, double mass, double window_amu) {
    const PeakListObject peaks = parser.GetPeakListOfOnlyThisOneMass(mass, window_amu);
    peaks->order(height_position, 0);
    const PeakInfo ns = peaks->GetPeakAttributeInfo(0, false), amu = peaks->GetPeakAttributeInfo(0, true);
    TextTable table({"<value", "ns", "amu"});
    for (std::size_t i = 0; i < peak_info_names.size(); ++i) {
        const auto position = static_cast<std::int32_t>(i);
        table.add({peak_info_names[i], fmt::format("{:.4f}", ns.value(position)),
                   fmt::format("{:.5f}", amu.value(position))});
    }
    return session.show(Json{{"mass", mass}, {"peaks", peaks->count()}, {"ns", peak_json(ns)}, {"amu", peak_json(amu)}},
                        table);
}

ExitCode measure_peak(Session& session, const PeakOptions& options) {
    session.begin_run();
    TuneGlobals globals(session.platform());
    require_mass_in_range(globals, *options.mass);
    SpectrumParser parser(session.platform());
    const double window_amu = options.window_amu.value_or(0.2);
    if (window_amu >= *options.mass) throw UsageError("--window: the window reaches below mass 0");
    return options.attribute.empty() ? show_record(session, parser, *options.mass, window_amu)
                                     : show_attribute(session, parser, options, window_amu);
}

ExitCode verify(Session& session, const NoOptions&) {
    session.begin_run();
    SpectrumParser parser(session.platform());
    try {
        parser.VerifyInstrumentIsShowingValidCalibrantSpectrum();
    } catch (const Error& error) {
        if (exit_code_of(error) == ExitCode::check_failed)
            session.show(Json{{"valid", false}, {"message", error.description()}}, {});
        throw;
    }
    session.talk("tune log " + written_log(parser));
    session.show(Json{{"valid", true}, {"message", nullptr}}, "The instrument shows a valid calibrant spectrum.\n");
    return log_and_end(session, parser);
}

}  // namespace

void declare_measure(CLI::App& command, Session& session) {
    MeasureOptions& options =
        runs(command, session, "korvane measure --mass 158.9640 --mass 566.8885 --window 0.2", measure);
    add_csv(command, session);
    add_numbers(command, "--mass", options.masses,
                "m/z to look for; repeat for more (the mass list of the base folder)", positive);
    add_number(command, "--window", options.window_percent,
               "half width of the search window, percent of the flight time (PeakHandling/PeakFindWindowInPercentT)",
               {.above = 0, .below = 100});
}

void declare_peak(CLI::App& command, Session& session) {
    PeakOptions& options = runs(command, session, "korvane peak 1382.7373 --attribute resolution", measure_peak);
    add_csv(command, session);
    add_number(command, "MASS", options.mass, "m/z of the peak", positive)->required();
    add_number(command, "--window", options.window_amu, "half width of the search window, amu (0.2)", positive);
    command
        .add_option("--attribute", options.attribute,
                    "print this one value: time (ns), mass (amu), resolution, width (amu), height (counts), area")
        ->type_name("NAME")
        ->check(CLI::IsMember(attribute_names()));
}

void declare_verify(CLI::App& command, Session& session) {
    runs(command, session, "korvane verify && echo ready", verify);
}

}  // namespace korvane::program
