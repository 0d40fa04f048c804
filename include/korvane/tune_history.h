// The history of an instrument's tunes: records kept in a file of the base folder or on a server, and read again.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "korvane/platform.h"
#include "korvane/tune_record.h"

namespace korvane {

/// A record as one JSON object (schema 1), and back. What is not finite becomes null, and null NaN; what the text lacks
/// stays as in a new record. Error -904, of the kind `configuration`, naming the value that is not of its type, or a
/// schema that is newer than this library.
KORVANE_API std::string tune_record_json(const TuneRecord& record);
KORVANE_API TuneRecord tune_record_from_json(std::string_view json);

/// A record of a run that is about to begin: time, source, polarity, the title of the instrument as its serial, all
/// setpoints and the calibration, after as before. Errors as `TuneGlobals` has them.
KORVANE_API TuneRecord begin_record(const Platform& platform, std::string kind);
/// Reads setpoints and calibration again, as those after the run.
KORVANE_API void end_record(TuneRecord& record, const Platform& platform);
/// Seconds since 1970 of a time as records have it.
KORVANE_API std::int64_t seconds_of(const std::string& record_time);
/// A mark of the history, such as "maintenance", for the instrument of `like`.
KORVANE_API TuneRecord make_mark(const Platform& platform, const TuneRecord& like, const std::string& word,
                                 const std::string& text);
/// The calibrants with their verdicts by the limits, and the verdict of all: "ok", or what is wrong with which.
KORVANE_API void judge(TuneRecord& record, const std::vector<MeasuredCalibrant>& measured, const TuneLimits& limits);
/// `measure_calibrants` judged by the limits of the base folder, each with the samples of its window (of one of more
/// than 4096 those around its highest peak) and what was fitted to them. Returns the path of the tune log, empty where
/// none was written. Errors as `read_tune_limits` and `measure_calibrants`.
KORVANE_API std::string measure_record(TuneRecord& record, const Platform& platform, TuneGlobals& globals,
                                       const VariantArray<double>& masses, double window_percent = -1);

/// What the history keeps of every calibrant for charts. In ppm, counts, m / FWHM, and as the root of chi-square per
/// degree of freedom.
inline constexpr std::string_view tune_metrics[] = {"mass_error", "height", "resolution", "misfit"};

/// One number of one calibrant of one record.
struct MetricReading {
    std::int64_t record = 0;
    double mz = 0;
    double value = 0;
    double standard_error = 0;  ///< NaN where none was stated
};

/// A history. Several programs may use one at the same time; a program that is killed leaves whole records. An object
/// is used by one thread at a time. Errors, of the kind `configuration`: -904 naming the history, with the database's
/// own words.
class KORVANE_API TuneHistory {
public:
    /// `where` is the path of a file (UTF-8), made with its tables where there is none and `make` is true, or
    /// "postgresql://..." (natively). Older tables are brought to this library's version where `make` is true; those of
    /// a newer one are an error.
    explicit TuneHistory(std::string where, bool make = true);
    ~TuneHistory();
    TuneHistory(TuneHistory&&) noexcept;

    /// Keeps a record, whole or not at all, and returns the id that it got.
    std::int64_t add(const TuneRecord& record);
    /// Error -904 where there is no record of this id.
    TuneRecord load(std::int64_t id);
    /// The youngest records, the oldest of them first, but for what lists need not: setpoints, calibration, limits,
    /// calibrants, residuals, searches.
    std::vector<TuneRecord> list(std::size_t most);
    /// The youngest record that is no mark, as in a list; nothing where there is none.
    std::optional<TuneRecord> last();
    /// The last record of `time` ("2026-11-22T08:51:49Z", or its beginning: "2026-11-22") or before, of the instrument,
    /// source and polarity of `like`; nothing where all are later. Marks do not count.
    std::optional<std::int64_t> last_until(std::string time, const TuneRecord& like);
    /// Readings of a metric from records of the instrument, source and polarity of `like`, by m/z and then by record,
    /// from the first record after the last mark "maintenance" of this instrument, up to `like` itself.
    std::vector<MetricReading> readings(std::string_view metric, const TuneRecord& like);

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Records with calibrants as a document of mzQC 1.0, a run quality each; at least one. Terms beginning with KORVANE
/// are of its own small vocabulary. `creation_time` as `TuneRecord::time`.
KORVANE_API std::string mzqc_document(const std::vector<TuneRecord>& records, const std::string& creation_time);
/// A record as gauges in Prometheus' text format, for the text-file collector of a node exporter.
KORVANE_API std::string prometheus_text(const TuneRecord& record);

}  // namespace korvane
