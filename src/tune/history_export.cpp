// Records for other programs: mzQC and Prometheus.
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "korvane/tune_history.h"
#include "tune/metrics.h"

namespace korvane {

namespace {

using ExportJson = nlohmann::ordered_json;

ExportJson term(const char* accession, const char* name) {
    return {{"accession", accession}, {"name", name}};
}

/// The calibrants that were found, as a table by terms.
ExportJson calibrant_columns(const TuneRecord& record) {
    ExportJson columns;
    for (const RecordedCalibrant& calibrant : record.calibrants) {
        if (!calibrant.measured.found()) continue;
        columns["MS:1000040"].push_back(calibrant.measured.mass);              // m/z
        columns["MS:4000072"].push_back(calibrant.measured.error_ppm());       // observed mass accuracy
        columns["MS:1000042"].push_back(calibrant.measured.ns.pkHeight);       // peak intensity
        columns["MS:1000800"].push_back(calibrant.measured.amu.pkResolution);  // mass resolving power
        columns["MS:1000086"].push_back(calibrant.measured.amu.pkWidth);       // full width at half maximum, m/z
        columns["KORVANE:0004"].push_back(name_of(calibrant.verdict.state));
    }
    return columns;
}

ExportJson run_quality(const TuneRecord& record) {
    ExportJson software = term("MS:1000799", "custom unreleased software tool");
    software.update({{"value", "korvane"}, {"version", record.version}});
    ExportJson file{{"name", fmt::format("record {}", record.id)},
                    {"location", fmt::format("urn:korvane:record:{}", record.id)},
                    {"fileFormat", term("KORVANE:0001", "record of a tune")}};
    ExportJson verdict = term("KORVANE:0002", "verdict of a tune");
    verdict["value"] = record.verdict;
    ExportJson table = term("KORVANE:0003", "calibrants of a tune");
    table["value"] = calibrant_columns(record);
    ExportJson mean = term("MS:4000072", "observed mass accuracy");
    double sum = 0;
    const std::size_t count = table["value"].empty() ? 0 : table["value"]["MS:4000072"].size();
    for (std::size_t i = 0; i < count; ++i) sum += table["value"]["MS:4000072"][i].get<double>();
    mean["value"] = count > 0 ? ExportJson(sum / static_cast<double>(count)) : ExportJson();
    mean["unit"] = term("UO:0000169", "parts per million");
    return {{"metadata",
             {{"label", fmt::format("{}, {}", record.time, record.kind)},
              {"inputFiles", ExportJson::array({file})},
              {"analysisSoftware", ExportJson::array({software})}}},
            {"qualityMetrics", ExportJson::array({verdict, mean, table})}};
}

std::string escaped_label(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\' || c == '"') escaped += '\\';
        escaped += c == '\n' ? "\\n" : std::string(1, c);
    }
    return escaped;
}

/// Seconds since 1970 of "2026-11-22T08:51:49Z".
std::int64_t unix_seconds(const std::string& time) {
    int year = 1970, hour = 0, minute = 0, second = 0;
    unsigned month = 1, day = 1;
    std::sscanf(time.c_str(), "%d-%u-%uT%d:%d:%d", &year, &month, &day, &hour, &minute, &second);
    const std::chrono::sys_days date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    return date.time_since_epoch() / std::chrono::seconds(1) + hour * 3600 + minute * 60 + second;
}

}  // namespace

std::string mzqc_document(const std::vector<TuneRecord>& records, const std::string& creation_time) {
    ExportJson runs = ExportJson::array();
    for (const TuneRecord& record : records)
        if (!record.calibrants.empty()) runs.push_back(run_quality(record));
    const ExportJson vocabularies{
        {{"name", "Proteomics Standards Initiative Mass Spectrometry Ontology"},
         {"uri", "http://purl.obolibrary.org/obo/ms.obo"}},
        {{"name", "Units of Measurement Ontology"}, {"uri", "http://purl.obolibrary.org/obo/uo.obo"}},
        {{"name", "Korvane: 0001 record of a tune, 0002 its verdict, 0003 its calibrants, 0004 their verdicts"},
         {"uri", "urn:korvane:vocabulary:1"}}};
    const ExportJson document{{"version", "1.0.0"},
                              {"creationDate", creation_time},
                              {"description", "Tunes of a mass spectrometer: its calibrants"},
                              {"runQualities", std::move(runs)},
                              {"controlledVocabularies", vocabularies}};
    return ExportJson{{"mzQC", document}}.dump(2, ' ', false, ExportJson::error_handler_t::replace) + "\n";
}

std::string prometheus_text(const TuneRecord& record) {
    struct Gauge {
        const char *name, *help;
    };
    constexpr Gauge gauges[] = {{"korvane_mass_error_ppm", "Measured minus expected mass of a calibrant."},
                                {"korvane_peak_height_counts", "Height of the peak of a calibrant."},
                                {"korvane_mass_resolution", "m/z over the full width at half maximum."},
                                {"korvane_peak_misfit", "Root of chi-square per degree of freedom of the peak's fit."}};
    const std::string labels =
        fmt::format("instrument=\"{}\",title=\"{}\",source=\"{}\",polarity=\"{}\"", escaped_label(record.instrument),
                    escaped_label(record.serial), escaped_label(record.source), escaped_label(record.polarity));
    const auto head = [](const Gauge& gauge) {
        return fmt::format("# HELP {0} {1}\n# TYPE {0} gauge\n", gauge.name, gauge.help);
    };
    std::string text;
    for (std::size_t metric = 0; metric < std::size(gauges); ++metric) {
        text += head(gauges[metric]);
        for (const RecordedCalibrant& calibrant : record.calibrants)
            if (const double value = metrics_of(calibrant.measured)[metric].value;
                calibrant.measured.found() && std::isfinite(value))
                text +=
                    fmt::format("{}{{{},mz=\"{}\"}} {}\n", gauges[metric].name, labels, calibrant.measured.mass, value);
    }
    const Gauge verdict{"korvane_calibrant_ok", "1 where a calibrant is within its limits, else 0."};
    text += head(verdict);
    for (const RecordedCalibrant& calibrant : record.calibrants)
        text += fmt::format("{}{{{},mz=\"{}\"}} {}\n", verdict.name, labels, calibrant.measured.mass,
                            calibrant.verdict.state == CalibrantState::ok ? 1 : 0);
    const Gauge time{"korvane_record_time_seconds", "When the record was made, since 1970."};
    return text + head(time) + fmt::format("{}{{{}}} {}\n", time.name, labels, unix_seconds(record.time));
}

}  // namespace korvane
