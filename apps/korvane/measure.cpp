#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "calibrants.h"
#include "commands.h"
#include "korvane/tune_params_xml.h"
#include "number_options.h"
#include "peak_json.h"
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

    // A record that the search left alone is all zeros.
    bool found() const { return ns != PeakInfo{}; }
    double ppm() const { return (amu.pkCentroid - mass) / mass * 1e6; }
};

double ppm_per_ns_at(const MassTimeCalibration& calibration, double time_ns) {
    const double step_ns = 0.5;
    const double mass = calibration.mass_from_time(time_ns);
    const double difference =
        calibration.mass_from_time(time_ns + step_ns) - calibration.mass_from_time(time_ns - step_ns);
    return difference / (2 * step_ns) / mass * 1e6;
}

std::vector<CalibrantRow> measure(SpectrumParser& parser, TuneGlobals& globals, const std::vector<double>& masses,
                                  double window_percent) {
    const VariantMatrix<PeakInfo> records =
        parser.GetPeakInfoForCalibrantMasses(VariantArray<double>(masses), window_percent);
    const auto& uncertainties = parser.last_uncertainties();
    const CalibrationObject calibration = globals.GetCurrentCalibrationObjFromDD();

    std::vector<CalibrantRow> rows(masses.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i] = {masses[i], records.at(i, 0), records.at(i, 1), {}, 0};
        if (!rows[i].found()) continue;
        if (i < uncertainties.size()) rows[i].standard_errors = uncertainties[i];
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

Json row_json(const CalibrantRow& row) {
    Json object{{"mass", row.mass}, {"found", row.found()}, {"ppm", nullptr}};
    if (row.found()) object["ppm"] = row.ppm();
    object["ns"] = peak_json(row.ns);
    object["amu"] = peak_json(row.amu);
    if (const auto& errors = row.standard_errors) {
        object["ppm_error"] = errors->centroid * row.ppm_per_ns;
        object["height_error"] = errors->height;
        object["width_error"] = errors->width;
        object["ions"] = errors->ions;
    }
    return object;
}

std::string table_text(const std::vector<CalibrantRow>& rows, double minimum_height) {
    TextTable table({{"expected m/z"},
                     {"measured m/z"},
                     {"error ppm"},
                     {"time ns"},
                     {"height"},
                     {"width ns"},
                     {"resolution"},
                     {"reaches minimum"}});
    for (const CalibrantRow& row : rows) {
        std::vector<std::string> cells{fmt::format("{:.4f}", row.mass)};
        if (row.found())
            cells.insert(cells.end(),
                         {fmt::format("{:.4f}", row.amu.pkCentroid), fmt::format("{:.2f}", row.ppm()),
                          fmt::format("{:.3f}", row.ns.pkCentroid), fmt::format("{:.0f}", row.ns.pkHeight),
                          fmt::format("{:.3f}", row.ns.pkWidth), fmt::format("{:.0f}", row.amu.pkResolution),
                          row.ns.pkHeight < minimum_height ? "no" : "yes"});
        else
            cells.insert(cells.end(), {"no peak", "-", "-", "-", "-", "-", "no"});
        table.add(std::move(cells));
    }
    return table.text();
}

ExitCode run_measure(Session& session, const MeasureOptions& options) {
    TuneGlobals globals(session.platform());
    SpectrumParser parser(session.platform());
    clsTuneParamsXML params(session.platform());
    const double minimum_height = params.GetAutotuneLimitValue("RampParams", "MinimumAcceptableAbundance");
    const std::string source = globals.GetSourceTypeStr(), polarity = globals.GetPolarityStr();
    const std::string state = globals.GetCurrentInstrumentStateAsString();
    const double interval_seconds = session.instrument().sampling_interval_seconds();

    const std::vector<double> masses = chosen_masses(session, globals, options.masses);
    const auto rows = measure(parser, globals, masses, options.window_percent.value_or(-1.0));
    if (!options.masses.empty()) require_masses_on_axis(parser, rows);

    session.talk(fmt::format("{}, {}, {}; {:.6g} GHz sampling; tune log {}", source, polarity, state,
                             1e-9 / interval_seconds, written_log(parser)));
    if (!session.json) {
        session.print(table_text(rows, minimum_height));
        return ExitCode::done;
    }
    Json peaks = Json::array();
    for (const CalibrantRow& row : rows) peaks.push_back(row_json(row));
    session.print_json(Json{{"source", source}, {"polarity", polarity}, {"state", state}, {"peaks", std::move(peaks)}});
    return ExitCode::done;
}

}  // namespace

void add_measure(CLI::App& program, Session& session) {
    auto options = std::make_shared<MeasureOptions>();
    CLI::App* command =
        add_command(program, session, "measure", "find the calibrant peaks: position, height, width, mass error",
                    "korvane measure --mass 158.9640 --mass 566.8885 --window 0.2");
    add_numbers(*command, "--mass", options->masses,
                "m/z to look for; repeat for more (the mass list of the base folder)", positive);
    add_number(*command, "--window", options->window_percent,
               "half width of the search window, percent of the flight time (PeakHandling/PeakFindWindowInPercentT)",
               {.above = 0, .below = 100});
    on_run(command, session, options, run_measure);
}

}  // namespace korvane::program
