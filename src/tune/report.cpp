#include "korvane/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "korvane/tune_history.h"
#include "tune/report_data.h"
#include "tune/svg.h"

namespace korvane {

using svg::escaped;

namespace {

using Row = std::vector<std::string>;

std::string_view report_file(std::string_view name) {
    const static std::vector<ReportFile> files = report_files();
    return std::ranges::find(files, name, &ReportFile::name)->bytes;
}

/// A file of data/report with its names in braces filled in.
template <class... Named>
std::string filled(std::string_view name, const Named&... named) {
    return fmt::format(fmt::runtime(report_file(name)), named...);
}

/// A number and its standard error, in the cell's unit.
std::string with_error(double value, int decimals, std::optional<double> error) {
    return error ? fmt::format("{:.{}f} ± {:.{}f}", value, decimals, *error, decimals)
                 : fmt::format("{:.{}f}", value, decimals);
}

/// The first row are titles. Columns hold numbers, but for those whose title begins with '<', as do the cells of one
/// that is to stand out begin with '!'; neither sign is shown.
std::string html_table(const std::vector<Row>& rows) {
    if (rows.size() < 2) return "";
    std::string table = "<table>";
    for (const Row& row : rows) {
        table += &row == &rows.front() ? "<thead><tr>" : "<tr>";
        for (std::size_t i = 0; i < row.size(); ++i) {
            const bool is_title = &row == &rows.front();
            std::string_view text = row[i];
            const bool is_off = !is_title && text.starts_with('!');
            const bool is_words = rows.front()[i].starts_with('<');
            if (is_off || (is_title && is_words)) text.remove_prefix(1);
            const char* style = is_off ? " class=\"words off\"" : is_words ? " class=words" : "";
            table +=
                fmt::format("<{}{}{}>{}", is_title ? "th" : "td", is_title ? " scope=col" : "", style, escaped(text));
        }
        table += &row == &rows.front() ? "</thead><tbody>\n" : "\n";
    }
    return table + "</table>";
}

std::string section(const char* title, const std::string& content) {
    if (content.empty()) return "";
    return filled("section.html", fmt::arg("title", title), fmt::arg("content", content));
}

std::string figure_html(const Figure& figure) {
    return filled("figure.html", fmt::arg("title", escaped(figure.title)), fmt::arg("svg", figure.svg),
                  fmt::arg("summary", "Data: " + figure.summary), fmt::arg("table", html_table(figure.table)));
}

std::string grid(const std::string& figures) {
    return figures.empty() ? "" : "<div class=\"figures\">\n" + figures + "</div>\n";
}

std::string facts(const TuneRecord& record) {
    std::string list;
    const auto add = [&](const char* name, const std::string& text) {
        if (!text.empty()) list += fmt::format("<dt>{}<dd>{}\n", name, escaped(text));
    };
    add("Time", record.time);
    add("Instrument", record.instrument);
    add("Serial number", record.serial);
    add("Seed", record.seed ? fmt::format("{}", *record.seed) : "");
    add("Source", record.source);
    add("Polarity", record.polarity);
    add("Note", record.note);
    add("Tune log", record.log);
    add("Recording", record.recording);
    add("Version", record.version);
    add("Record", record.id ? fmt::format("{}", record.id) : "");
    return list;
}

std::string calibrants_html(const TuneRecord& record) {
    std::vector<Row> rows{
        {"expected m/z", "measured m/z", "error ppm", "height", "width ns", "resolution", "<verdict"}};
    for (const RecordedCalibrant& calibrant : record.calibrants) {
        const MeasuredCalibrant& measured = calibrant.measured;
        const auto& errors = measured.standard_errors;
        const auto error_of = [&](double PeakUncertainty::*part) {
            return errors ? std::optional((*errors).*part) : std::nullopt;
        };
        const std::string verdict =
            (calibrant.verdict.state == CalibrantState::ok ? "" : "!✗ ") + calibrant.verdict.text;
        const std::string mass = fmt::format("{:.4f}", measured.mass);
        if (!measured.found())
            rows.push_back({mass, "", "", "", "", "", verdict});
        else
            rows.push_back({mass, fmt::format("{:.4f}", measured.amu.pkCentroid),
                            with_error(measured.error_ppm(), 2, measured.standard_error_ppm()),
                            with_error(measured.ns.pkHeight, 0, error_of(&PeakUncertainty::height)),
                            with_error(measured.ns.pkWidth, 3, error_of(&PeakUncertainty::width)),
                            fmt::format("{:.0f}", measured.amu.pkResolution), verdict});
    }
    const std::string table = html_table(rows);
    if (table.empty()) return "";
    return "<div class=\"wide\" tabindex=\"0\" role=\"region\" aria-label=\"Calibrants\">" + table + "</div>\n";
}

std::string setpoints_html(const TuneRecord& record) {
    if (record.setpoints.empty()) return "";
    std::vector<Row> all{{"<setpoint", "before", "after"}}, moved = all;
    const auto add = [&](const std::string& name, double before, double after) {
        const Row row{name, fmt::format("{:.10g}", before), fmt::format("{:.10g}", after)};
        all.push_back(row);
        if (before != after) moved.push_back(row);
    };
    for (const RecordedSetpoint& setpoint : record.setpoints) add(setpoint.name, setpoint.before, setpoint.after);
    if (const auto& before = record.calibration_before, &after = record.calibration_after; before && after) {
        for (const auto& [name, term] : calibration_coefficients)
            add(fmt::format("calibration {}, by ns", term == &CalibrationCoefficients::B ? "B (t0)" : name),
                (*before).*term, (*after).*term);
    }
    return (moved.size() > 1 ? html_table(moved) : "<p>Nothing was moved.</p>") + "\n<details><summary>Data: all " +
           "setpoints</summary>" + html_table(all) + "</details>\n";
}

}  // namespace

std::string svg_file(std::span<const Figure> figures) {
    double width = 0, height = 0;
    std::string content;
    for (const Figure& figure : figures) {
        // A picture inside another one has its own place and size.
        const std::string place =
            fmt::format("<svg y=\"{}\" width=\"{}\" height=\"{}\" ", height, figure.width, figure.height);
        content += place + figure.svg.substr(sizeof "<svg") + '\n';
        width = std::max(width, figure.width);
        height += figure.height;
    }
    return filled("pictures.svg", fmt::arg("width", width), fmt::arg("height", height),
                  fmt::arg("style", report_file("style.css")), fmt::arg("content", content));
}

std::string report_html(const TuneRecord& record, std::span<const TrendChart> trends) {
    std::string peaks, searches, charts;
    for (std::size_t i = 0; i < record.calibrants.size(); ++i)
        if (record.calibrants[i].trace) peaks += figure_html(peak_figure(record.calibrants[i]));
    for (std::size_t i = 0; i < record.searches.size(); ++i) searches += figure_html(search_figure(record.searches[i]));
    for (std::size_t i = 0; i < trends.size(); ++i) charts += figure_html(trend_figure(trends[i]));
    const bool has_errors = !record.residuals.empty() || !record.calibrants.empty();
    const std::string sections = section("Calibrants", calibrants_html(record)) +
                                 section("Mass errors", has_errors ? figure_html(mass_error_figure(record)) : "") +
                                 section("Setpoints and calibration, before and after", setpoints_html(record)) +
                                 section("Peaks", grid(peaks)) + section("Searches", grid(searches)) +
                                 section("Trends", grid(charts));

    const std::string json = nlohmann::ordered_json::parse(tune_record_json(record)).dump(-1, ' ', true);
    std::string data;  // an element of the page may not hold the beginning of another
    for (const char character : json) character == '<' ? data += "\\u003c" : data += character;
    const std::string verdict = record.verdict.empty() ? "not judged" : record.verdict;
    const auto [style, sign] = record.verdict.empty()   ? std::pair{"", ""}
                               : record.verdict == "ok" ? std::pair{"good", "✓ "}
                                                        : std::pair{"bad", "✗ "};
    return filled("report.html", fmt::arg("title", escaped(record.kind + " " + record.time)),
                  fmt::arg("style", report_file("style.css")), fmt::arg("style_hash", report_file("style.css.sha256")),
                  fmt::arg("verdict_style", style), fmt::arg("verdict", sign + escaped(verdict)),
                  fmt::arg("facts", facts(record)), fmt::arg("sections", sections), fmt::arg("json", data));
}

}  // namespace korvane
