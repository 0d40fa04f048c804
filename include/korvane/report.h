// Pictures of a tune, and a page to hand on.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "korvane/tune_record.h"

namespace korvane {

/// A picture, and its data as a table: titles first, every row as long.
struct Figure {
    std::string title;
    std::string svg;      ///< to stand in a page; `svg_file` makes a file of it
    std::string summary;  ///< what the table shows
    std::vector<std::vector<std::string>> table;
    double width = 0, height = 0;
};

/// One figure of a metric over the runs of a history.
struct TrendPoint {
    std::string run;  ///< a few characters that name it: a day, the number of a record
    double value = 0;
    double centre = 0, low = 0, high = 0;  ///< of a control chart; not a number where there is none
    std::string alarm;                     ///< the rule that is broken; empty without
};

struct TrendChart {
    std::string title, unit;
    std::vector<TrendPoint> points;
};

/// The samples of a calibrant, what was fitted to them, the residual, and the window of the search. Where the peak
/// finder does not tell what it fitted, a Gaussian of the recorded centroid, height and width stands for it, and the
/// legend says so. Without a trace: an empty picture.
KORVANE_API Figure peak_figure(const RecordedCalibrant& calibrant);
/// Mass errors against m/z: of the fit, before and after it, where the record has one; else as measured.
KORVANE_API Figure mass_error_figure(const TuneRecord& record);
/// The probes of a search: abundance against the setpoint's value.
KORVANE_API Figure search_figure(const RecordedSearch& search);
KORVANE_API Figure trend_figure(const TrendChart& chart);

/// A file of pictures one below the other.
KORVANE_API std::string svg_file(std::span<const Figure> figures);

/// A page of one file that needs nothing else, no script among it: verdict, calibrants, mass errors, setpoints before
/// and after, peaks, searches, trends; and the record for machines (`tune_record_json`) in an element "script" of type
/// "application/json", which nobody runs.
KORVANE_API std::string report_html(const TuneRecord& record, std::span<const TrendChart> trends = {});

}  // namespace korvane
