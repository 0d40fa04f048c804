// The history, and its records for other programs.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "korvane/error.h"
#include "korvane/tune_history.h"
#include "tune/database/database.h"
#ifndef _WIN32
#include <dlfcn.h>
#include <unistd.h>
#endif

namespace korvane {

namespace {

struct CalibrantMetric {
    double value, standard_error;  ///< NaN where it is not told
};

/// In the order of `tune_metrics`; of a calibrant that was found.
std::array<CalibrantMetric, 4> metrics_of(const MeasuredCalibrant& calibrant) {
    constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
    const PeakUncertainty errors = calibrant.standard_errors.value_or(PeakUncertainty{unknown, unknown, unknown, 0, 0});
    const double resolution = calibrant.amu.pkResolution;
    return {{{calibrant.error_ppm(), errors.centroid * calibrant.ppm_per_ns},
             {calibrant.ns.pkHeight, errors.height},
             {resolution, resolution * errors.width / calibrant.ns.pkWidth},
             {calibrant.quality ? calibrant.quality->misfit : unknown, unknown}}};
}

// A change adds a step, which brings the tables of the version before to its own.
constexpr std::array schema_steps{
    "CREATE TABLE tune_schema (version INTEGER NOT NULL);"
    "INSERT INTO tune_schema VALUES (1);"
    "CREATE TABLE tune_records (id {}, time TEXT NOT NULL, kind TEXT NOT NULL, note TEXT NOT NULL,"
    " version TEXT NOT NULL, instrument TEXT NOT NULL, serial TEXT NOT NULL, source TEXT NOT NULL,"
    " polarity TEXT NOT NULL, verdict TEXT NOT NULL, log TEXT NOT NULL, recording TEXT NOT NULL, json TEXT NOT NULL);"
    "CREATE INDEX tune_records_by_time ON tune_records (time);"
    "CREATE TABLE tune_metrics (metric TEXT NOT NULL, mz DOUBLE PRECISION NOT NULL,"
    " record BIGINT NOT NULL REFERENCES tune_records (id), value DOUBLE PRECISION NOT NULL,"
    " standard_error DOUBLE PRECISION);"
    "CREATE INDEX tune_metrics_by_name ON tune_metrics (metric, mz, record)",
    // Charts of ten years are read from these alone; the records' own pages are a hundred times as many.
    "DROP INDEX tune_metrics_by_name;"
    "CREATE INDEX tune_metrics_by_name ON tune_metrics (metric, mz, record, value, standard_error);"
    "CREATE INDEX tune_records_by_instrument ON tune_records (instrument, serial, kind, source, polarity, id)"};
constexpr std::size_t known_schema = schema_steps.size();

// The columns that a list shows, in the order of `listed`.
constexpr std::string TuneRecord::*const listed_texts[] = {
    &TuneRecord::time,       &TuneRecord::kind,   &TuneRecord::note,     &TuneRecord::version,
    &TuneRecord::instrument, &TuneRecord::serial, &TuneRecord::source,   &TuneRecord::polarity,
    &TuneRecord::verdict,    &TuneRecord::log,    &TuneRecord::recording};
constexpr const char* listed_columns =
    "time, kind, note, version, instrument, serial, source, polarity, verdict, log, recording";

bool is_server(const std::string& where) {
    return where.starts_with("postgresql://") || where.starts_with("postgres://");
}

/// Without the password that a URL may hold.
std::string shown_name(const std::string& where) {
    const std::size_t at = where.rfind('@');
    return is_server(where) && at != std::string::npos ? "postgresql://..." + where.substr(at) : where;
}

#ifndef _WIN32
/// A module in the folder "korvane" beside the library, wherever that lies, or beside those of a program that has it
/// inside; else where the system looks. It stays: its objects may outlive every call.
void* open_module(const std::string& name) {
    Dl_info here{};
    const bool is_known = dladdr(reinterpret_cast<void*>(&is_server), &here) != 0 && here.dli_fname != nullptr;
    const std::string file = is_known ? here.dli_fname : "", folder = file.substr(0, file.rfind('/') + 1);
    for (const std::string& place : {folder + "korvane/" + name, folder + "../lib/korvane/" + name})
        if (access(place.c_str(), F_OK) == 0) return dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL);
    return dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
}
#endif

std::unique_ptr<Database> open_database(const std::string& where, bool make) {
#ifdef _WIN32
    if (is_server(where)) throw std::runtime_error("histories on a server are not for Windows");
    return std::unique_ptr<Database>(korvane_open_database(where, make));
#else
    void* const library = open_module(is_server(where) ? "libkorvane_postgresql.so" : "libkorvane_sqlite.so");
    void* const entry = library ? dlsym(library, "korvane_open_database") : nullptr;
    if (!entry) throw std::runtime_error(dlerror());
    return std::unique_ptr<Database>(reinterpret_cast<decltype(&korvane_open_database)>(entry)(where, make));
#endif
}

}  // namespace

struct TuneHistory::State {
    std::string name;
    std::unique_ptr<Database> database;

    template <class Work>
    auto told(Work&& work) -> decltype(work()) {
        try {
            return work();
        } catch (const std::runtime_error& fault) {
            throw Error(error_number::file_or_element, "TuneHistory", name + ": " + fault.what());
        }
    }

    void run(const std::string& sql, const std::vector<std::string>& parameters = {},
             const Database::OnRow& on_row = {}) {
        told([&] { database->run(sql, parameters, on_row); });
    }

    void in_transaction(const std::function<void()>& work) {
        told([&] { database->begin(); });
        try {
            work();
            run("COMMIT");
        } catch (...) {
            try {
                database->run("ROLLBACK");
            } catch (const std::runtime_error&) {
                // What made the transaction fail is told; a broken connection has rolled back.
            }
            throw;
        }
    }

    /// 0 where there are no tables yet.
    std::size_t schema() {
        std::size_t version = 0;
        const auto read = [&](const Database::Row& row) { version = static_cast<std::size_t>(row.number(0)); };
        run(database->table_query(), {"tune_schema"}, read);
        if (version > 0) run("SELECT version FROM tune_schema", {}, read);
        if (version <= known_schema) return version;
        throw Error(
            error_number::file_or_element, "TuneHistory",
            fmt::format("{}: its tables have version {}, this program knows {} at most", name, version, known_schema));
    }

    void bring_up_to_date() {
        std::size_t version = schema();
        if (version == known_schema) return;
        in_transaction([&] {
            for (version = schema(); version < known_schema; ++version)
                run(fmt::format(fmt::runtime(schema_steps[version]), database->identity_type()));
            run("UPDATE tune_schema SET version = " + std::to_string(version));
        });
    }

    /// The youngest of those that `condition` selects, the oldest first.
    std::vector<TuneRecord> list(const char* condition, std::size_t most) {
        std::vector<TuneRecord> records;
        if (schema() == 0) return records;
        run(fmt::format("SELECT id, {} FROM tune_records {} ORDER BY id DESC LIMIT {}", listed_columns, condition,
                        most),
            {}, [&](const Database::Row& row) {
                TuneRecord& record = records.emplace_back();
                int column = 0;
                record.id = static_cast<std::int64_t>(row.number(column++));
                for (const auto member : listed_texts) record.*member = row.text(column++);
            });
        std::ranges::reverse(records);
        return records;
    }
};

TuneHistory::TuneHistory(std::string where, bool make) : state_(std::make_unique<State>()) {
    state_->name = shown_name(where);
    state_->told([&] { state_->database = open_database(where, make); });
    // What the second version adds only finds faster: a history can be read where nothing may be written.
    make ? state_->bring_up_to_date() : void(state_->schema());
}

TuneHistory::~TuneHistory() = default;
TuneHistory::TuneHistory(TuneHistory&&) noexcept = default;

std::int64_t TuneHistory::add(const TuneRecord& record) {
    std::vector<std::string> texts;
    std::string places;
    for (const auto member : listed_texts) {
        texts.push_back(record.*member);
        places += fmt::format("${}, ", texts.size());
    }
    texts.push_back(tune_record_json(record));
    std::string metrics;
    std::int64_t id = 0;
    state_->in_transaction([&] {
        state_->run(fmt::format("INSERT INTO tune_records ({}, json) VALUES ({}${}) RETURNING id", listed_columns,
                                places, texts.size()),
                    texts, [&](const Database::Row& row) { id = static_cast<std::int64_t>(row.number(0)); });
        for (const RecordedCalibrant& calibrant : record.calibrants) {
            if (!calibrant.measured.found()) continue;
            const auto values = metrics_of(calibrant.measured);
            for (std::size_t i = 0; i < values.size(); ++i) {
                const auto [value, error] = values[i];
                if (std::isfinite(value))
                    metrics += fmt::format("{}('{}', {}, {}, {}, {})", metrics.empty() ? "" : ", ", tune_metrics[i],
                                           calibrant.measured.mass, id, value,
                                           std::isfinite(error) ? fmt::format("{}", error) : "NULL");
            }
        }
        if (!metrics.empty())
            state_->run("INSERT INTO tune_metrics (metric, mz, record, value, standard_error) VALUES " + metrics);
    });
    return id;
}

TuneRecord TuneHistory::load(std::int64_t id) {
    std::optional<TuneRecord> record;
    state_->run("SELECT json FROM tune_records WHERE id = $1", {std::to_string(id)},
                [&](const Database::Row& row) { record = tune_record_from_json(row.text(0)); });
    if (!record)
        throw Error(error_number::file_or_element, "TuneHistory",
                    fmt::format("{}: there is no record {}", state_->name, id));
    record->id = id;
    return *record;
}

std::vector<TuneRecord> TuneHistory::list(std::size_t most) {
    return state_->list("", most);
}

std::optional<TuneRecord> TuneHistory::last() {
    auto found = state_->list("WHERE kind <> 'mark'", 1);
    return found.empty() ? std::nullopt : std::optional(std::move(found.front()));
}

std::optional<std::int64_t> TuneHistory::last_until(std::string time, const TuneRecord& like) {
    constexpr std::string_view latest = "9999-12-31T23:59:59Z";
    if (time.size() < latest.size()) time += latest.substr(time.size());
    std::optional<std::int64_t> id;
    state_->run(
        "SELECT id FROM tune_records WHERE time <= $1 AND instrument = $2 AND serial = $3 AND source = $4 "
        "AND polarity = $5 AND kind <> 'mark' ORDER BY time DESC, id DESC LIMIT 1",
        {time, like.instrument, like.serial, like.source, like.polarity},
        [&](const Database::Row& row) { id = static_cast<std::int64_t>(row.number(0)); });
    return id;
}

std::vector<MetricReading> TuneHistory::readings(std::string_view metric, const TuneRecord& like) {
    std::vector<MetricReading> found;
    state_->run(
        "SELECT record, mz, value, standard_error FROM tune_metrics WHERE metric = $1 AND record IN "
        "(SELECT id FROM tune_records WHERE instrument = $2 AND serial = $3 AND source = $4 AND polarity = $5 "
        "AND id <= $6 AND id > (SELECT coalesce(max(id), 0) FROM tune_records WHERE kind = 'mark' "
        "AND note LIKE 'maintenance%' AND instrument = $2 AND serial = $3 AND id <= $6)) ORDER BY mz, record",
        {std::string(metric), like.instrument, like.serial, like.source, like.polarity, std::to_string(like.id)},
        [&](const Database::Row& row) {
            found.push_back({static_cast<std::int64_t>(row.number(0)), row.number(1), row.number(2), row.number(3)});
        });
    return found;
}

// Records for other programs: mzQC and Prometheus.

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
    const ExportJson errors = table["value"].empty() ? ExportJson() : table["value"]["MS:4000072"];
    for (const double error : errors) sum += error;
    mean["value"] = errors.empty() ? ExportJson() : ExportJson(sum / static_cast<double>(errors.size()));
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
    constexpr std::pair<const char*, const char*> gauges[] = {
        {"korvane_mass_error_ppm", "Measured minus expected mass of a calibrant."},
        {"korvane_peak_height_counts", "Height of the peak of a calibrant."},
        {"korvane_mass_resolution", "m/z over the full width at half maximum."},
        {"korvane_peak_misfit", "Root of chi-square per degree of freedom of the peak's fit."},
        {"korvane_calibrant_ok", "1 where a calibrant is within its limits, else 0."}};
    const std::string labels =
        fmt::format("instrument=\"{}\",title=\"{}\",source=\"{}\",polarity=\"{}\"", escaped_label(record.instrument),
                    escaped_label(record.serial), escaped_label(record.source), escaped_label(record.polarity));
    std::string text;
    const auto head = [&](const char* name, const char* help) {
        text += fmt::format("# HELP {0} {1}\n# TYPE {0} gauge\n", name, help);
    };
    for (std::size_t metric = 0; metric < std::size(gauges); ++metric) {
        const auto& [name, help] = gauges[metric];
        head(name, help);
        for (const auto& [measured, verdict, trace] : record.calibrants) {
            const bool is_verdict = metric == std::size(tune_metrics);
            const double value = is_verdict         ? verdict.state == CalibrantState::ok
                                 : measured.found() ? metrics_of(measured)[metric].value
                                                    : std::nan("");
            if (std::isfinite(value))
                text += fmt::format("{}{{{},mz=\"{}\"}} {}\n", name, labels, measured.mass, value);
        }
    }
    constexpr const char* time = "korvane_record_time_seconds";
    head(time, "When the record was made, since 1970.");
    return text + fmt::format("{}{{{}}} {}\n", time, labels, seconds_of(record.time));
}

}  // namespace korvane
