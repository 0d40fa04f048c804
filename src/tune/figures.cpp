// The pictures of a report.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "korvane/report.h"
#include "tune/svg.h"

namespace korvane {

using svg::Marker;
using svg::Panel;
using svg::Point;
using svg::Range;

namespace {

constexpr double picture_width = 640, panel_left = 66, panel_width = 560;
constexpr double half_a_date = 30;      // that the label of the last run needs beside it
constexpr double shown_widths = 4;      // of a peak, to either side of its centroid
constexpr std::size_t most_dots = 400;  // more samples than that are drawn as a line
constexpr double margin_part = 0.06;    // of a range, at either end
constexpr int ticks_across = 7, ticks_up = 5, ticks_of_strip = 3;

using Row = std::vector<std::string>;

std::string fixed(double value, int decimals) {
    return std::isfinite(value) ? fmt::format("{:.{}f}", value, decimals) : "";
}

svg::Axis axis(const Range& range, int ticks, std::string label = {}) {
    return {range, std::move(label), svg::nice_ticks(range, ticks)};
}

Range y_range(std::span<const Point> points) {
    std::vector<double> ends;
    for (const Point& point : points) ends.insert(ends.end(), {point.y - point.error, point.y + point.error});
    return svg::range_of(ends);
}

double time_of(const PeakTrace& trace, std::size_t sample) {
    return trace.start_ns + static_cast<double>(sample) * trace.interval_ns;
}

/// What was fitted at the flight time of a sample; not a number beside the fit.
double fit_at(const PeakTrace& trace, double time_ns) {
    const double place = std::round((time_ns - trace.fit_start_ns) / trace.fit_interval_ns);
    return place >= 0 && place < static_cast<double>(trace.fit.size()) ? trace.fit[static_cast<std::size_t>(place)]
                                                                       : std::numeric_limits<double>::quiet_NaN();
}

std::vector<Point> samples_between(const PeakTrace& trace, const Range& shown_ns) {
    std::vector<Point> points;
    for (std::size_t i = 0; i < trace.counts.size(); ++i)
        if (const double time_ns = time_of(trace, i); shown_ns.holds(time_ns))
            points.push_back({time_ns, static_cast<double>(trace.counts[i])});
    return points;
}

/// The whole window, small, with what the panel below shows of it.
std::string window_strip(const PeakTrace& trace, const Range& window_ns, const Range& shown_ns) {
    const std::vector<Point> all = samples_between(trace, window_ns.widened(margin_part));
    Panel strip({panel_left, 26, panel_width, 40}, axis(window_ns.widened(0.02), ticks_of_strip),
                {y_range(all).widened(margin_part)});
    strip.shade(shown_ns.low, shown_ns.high, "shade");
    strip.line(all, "thin");
    for (const double edge : {window_ns.low, window_ns.high}) strip.upright(edge, "dashed soft");
    strip.legend("search window", "dashed soft");
    return strip.content();
}

void add_peak_panels(const RecordedCalibrant& calibrant, const PeakTrace& trace, const Range& shown_ns,
                     const std::vector<Point>& samples, std::string& content) {
    const MeasuredCalibrant& measured = calibrant.measured;
    std::vector<Point> curve;
    for (std::size_t i = 0; i < trace.fit.size(); ++i)
        curve.push_back({trace.fit_start_ns + static_cast<double>(i) * trace.fit_interval_ns, trace.fit[i]});
    Range y = y_range(samples);
    for (const Point& point : curve) y.include(point.y);
    Panel main({panel_left, 130, panel_width, 150}, {shown_ns}, axis(y.widened(margin_part), ticks_up, "counts"));
    if (measured.ppm_per_ns != 0)
        main.upright(measured.ns.pkCentroid - measured.error_ppm() / measured.ppm_per_ns, "dotted green");
    for (const double edge : {trace.window_start_ns, trace.window_end_ns}) main.upright(edge, "dashed soft");
    main.line(curve, "red");
    samples.size() > most_dots ? main.line(samples, "blue") : main.markers(samples, Marker::dot, "blue");
    main.legend("samples", "blue", Marker::dot);
    main.legend(trace.fit_is_told ? "fit of the peak finder" : "Gaussian of centroid, height and width", "red");
    main.legend("expected", "dotted green");
    content += main.content();

    std::vector<Point> residuals;
    for (const Point& sample : samples) residuals.push_back({sample.x, sample.y - fit_at(trace, sample.x)});
    Range left;
    for (const Point& residual : residuals)
        for (const double sign : {-1, 1}) left.include(sign * residual.y);
    Panel below({panel_left, 292, panel_width, 50}, axis(shown_ns, ticks_across, "flight time, ns"),
                axis(left.widened(margin_part), ticks_of_strip, "residual"));
    below.across(0, "thin soft");
    below.stems(residuals, "blue");
    content += below.content();
}

std::string peak_description(const RecordedCalibrant& calibrant) {
    const MeasuredCalibrant& measured = calibrant.measured;
    if (!measured.found()) return fmt::format("No peak in the search window. Verdict: {}.", calibrant.verdict.text);
    return fmt::format(
        "Samples of the peak with the fitted curve, the residual below, the whole search window above. Measured at m/z "
        "{:.4f}, {:+.2f} ppm off; height {:.0f} counts, width {:.3f} ns. Verdict: {}.",
        measured.amu.pkCentroid, measured.error_ppm(), measured.ns.pkHeight, measured.ns.pkWidth,
        calibrant.verdict.text);
}

/// A mass error with its standard error; a marker for each way of measuring it.
struct ErrorSeries {
    const char *name, *style;
    Marker marker;
    std::vector<Point> points;
};

std::string error_panel(const Panel::Place& place, const Range& masses, const char* label,
                        const std::optional<TuneLimits>& limits, const std::vector<ErrorSeries>& all) {
    std::vector<Point> shown{{0, 0, limits ? limits->mass_error_ppm : 0}};
    for (const ErrorSeries& series : all) shown.insert(shown.end(), series.points.begin(), series.points.end());
    Panel panel(place, axis(masses, ticks_across, label), axis(y_range(shown).widened(margin_part), ticks_up, "ppm"));
    panel.across(0, "thin soft");
    if (limits)
        for (const double sign : {1, -1}) panel.across(sign * limits->mass_error_ppm, "dashed soft");
    for (const ErrorSeries& series : all) {
        if (series.points.empty()) continue;
        panel.markers(series.points, series.marker, series.style);
        panel.legend(series.name, series.style, series.marker);
    }
    if (limits) panel.legend("limit", "dashed soft");
    return panel.content();
}

Figure begun(std::string title, std::string summary, Row titles, double height) {
    return {std::move(title), {}, std::move(summary), {std::move(titles)}, picture_width, height};
}

Figure finished(Figure figure, const std::string& description, const std::string& content) {
    figure.svg = svg::picture(figure.title, description, figure.width, figure.height, content);
    return figure;
}

}  // namespace

Figure peak_figure(const RecordedCalibrant& calibrant) {
    const MeasuredCalibrant& measured = calibrant.measured;
    Figure figure = begun(fmt::format("m/z {:.4f}: {}", measured.mass, calibrant.verdict.text), "samples",
                          {"time ns", "counts", "fit", "residual"}, 376);
    std::string content;
    if (calibrant.trace && !calibrant.trace->counts.empty()) {
        const PeakTrace& trace = *calibrant.trace;
        const Range window_ns{trace.window_start_ns, trace.window_end_ns};
        Range shown_ns{trace.start_ns, time_of(trace, trace.counts.size() - 1)};
        const double reach_ns = shown_widths * measured.ns.pkWidth, centre_ns = measured.ns.pkCentroid;
        if (measured.found() && reach_ns > 0) {
            shown_ns = {std::max(shown_ns.low, centre_ns - reach_ns), std::min(shown_ns.high, centre_ns + reach_ns)};
            if (!(shown_ns.low < shown_ns.high)) shown_ns = shown_ns.widened(1);
        }
        const std::vector<Point> samples = samples_between(trace, shown_ns);
        content += window_strip(trace, window_ns, measured.found() ? shown_ns : Range{});
        if (measured.found())
            add_peak_panels(calibrant, trace, shown_ns, samples, content);
        else
            figure.height = 90;
        for (const Point& sample : samples) {
            const double fitted = fit_at(trace, sample.x);
            figure.table.push_back(
                {fixed(sample.x, 3), fixed(sample.y, 0), fixed(fitted, 0), fixed(sample.y - fitted, 0)});
        }
    }
    return finished(std::move(figure), peak_description(calibrant), content);
}

Figure mass_error_figure(const TuneRecord& record) {
    const bool has_fit = !record.residuals.empty();
    Figure figure =
        has_fit ? begun("Mass errors", "mass errors",
                        {"m/z", "before ppm", "after ppm", "left out ppm", "standard error ppm", "not used"}, 480)
                : begun("Mass errors", "mass errors", {"m/z", "error ppm", "standard error ppm"}, 250);
    std::vector<double> mz;
    for (const RecordedCalibrant& calibrant : record.calibrants) mz.push_back(calibrant.measured.mass);
    for (const CalibrantResidual& residual : record.residuals) mz.push_back(residual.measured.mass);
    const Range masses = svg::range_of(mz).widened(margin_part);

    ErrorSeries measured{"measured", "green", Marker::square, {}};
    for (const RecordedCalibrant& calibrant : record.calibrants)
        if (calibrant.measured.found())
            measured.points.push_back({calibrant.measured.mass, calibrant.measured.error_ppm(),
                                       calibrant.measured.standard_error_ppm().value_or(0)});
    const Panel::Place first{panel_left, 36, panel_width, 160}, second{panel_left, 266, panel_width, 160};
    if (!has_fit) {
        for (const Point& point : measured.points)
            figure.table.push_back({fixed(point.x, 4), fixed(point.y, 3), fixed(point.error, 3)});
        return finished(std::move(figure), "Mass error of every calibrant in ppm, with its standard error.",
                        error_panel(first, masses, "m/z", record.limits, {measured}));
    }

    if (record.calibration_before == record.calibration_after) figure.title += "; the fitted law is not written";
    ErrorSeries before{"before the fit", "blue", Marker::square, {}}, after{"after the fit", "red", Marker::dot, {}},
        left_out{"left out of the fit", "", Marker::diamond, {}}, unused{"not used", "", Marker::cross, {}};
    measured.name = "measured afterwards";
    measured.marker = Marker::triangle;
    for (const CalibrantResidual& residual : record.residuals) {
        const double mass = residual.measured.mass;
        const bool is_used = residual.not_used.empty();
        if (residual.measured.spectra > 0) {
            before.points.push_back({mass, residual.before_ppm, residual.error_ppm});
            (is_used ? after : unused).points.push_back({mass, residual.after_ppm, residual.error_ppm});
            if (is_used) left_out.points.push_back({mass, residual.left_out_ppm});
        }
        figure.table.push_back({fixed(mass, 4), fixed(residual.before_ppm, 3), fixed(residual.after_ppm, 3),
                                fixed(residual.left_out_ppm, 3), fixed(residual.error_ppm, 3), residual.not_used});
    }
    // What lies far off its neighbours is told by the table and does not squash them.
    return finished(std::move(figure),
                    "Mass error of every calibrant in ppm with its standard error, above before the fit of the "
                    "calibration, below after it, and as each is predicted by the others.",
                    error_panel(first, masses, "", record.limits, {before}) +
                        error_panel(second, masses, "m/z", record.limits, {after, left_out, unused, measured}));
}

Figure search_figure(const RecordedSearch& search) {
    Figure figure = begun(
        fmt::format("{} for {:.0f} counts at m/z {:.4f}: {}", search.setpoint, search.target, search.mz, search.end),
        "probes", {"probe", search.setpoint, "abundance", "standard error", "transients"}, 290);
    std::vector<Point> probes;
    std::vector<double> values{search.before, search.after};
    for (const SecantProbe& probe : search.probes) {
        probes.push_back({probe.value, probe.abundance, probe.standard_error});
        values.push_back(probe.value);
        figure.table.push_back({fmt::format("{}", probes.size()), fmt::format("{:g}", probe.value),
                                fixed(probe.abundance, 0), fixed(probe.standard_error, 0),
                                fmt::format("{:g}", probe.transients)});
    }
    Range y = y_range(probes);
    y.include(search.target);
    y.include(0);
    Panel panel({panel_left, 36, panel_width, 200},
                axis(svg::range_of(values).widened(margin_part), ticks_across, search.setpoint),
                axis(y.widened(margin_part), ticks_up, "counts"));
    panel.across(search.target, "dashed green");
    panel.upright(search.before, "dotted soft");
    panel.upright(search.after, "red");
    panel.markers(probes, Marker::dot, "blue");
    for (std::size_t i = 0; i < probes.size(); ++i) panel.label(probes[i], fmt::format("{}", i + 1));
    panel.legend("probes", "blue", Marker::dot);
    panel.legend("target", "dashed green");
    panel.legend("before", "dotted soft");
    panel.legend("after", "red");
    return finished(std::move(figure),
                    fmt::format("Abundance by the value of {}, one point a probe, numbered in their order; it was {:g} "
                                "and is {:g} now. The search ended: {}.",
                                search.setpoint, search.before, search.after, search.end),
                    panel.content());
}

Figure trend_figure(const TrendChart& chart) {
    Figure figure = begun(chart.title, "runs", {"run", chart.unit, "centre", "low", "high", "alarm"}, 260);
    std::vector<Point> values, alarms;
    std::array<std::vector<Point>, 3> limits;  // centre, low, high
    std::vector<double> all;
    for (std::size_t i = 0; i < chart.points.size(); ++i) {
        const TrendPoint& point = chart.points[i];
        const auto x = static_cast<double>(i + 1);
        (point.alarm.empty() ? values : alarms).push_back({x, point.value});
        limits[0].push_back({x, point.centre});
        limits[1].push_back({x, point.low});
        limits[2].push_back({x, point.high});
        all.insert(all.end(), {point.value, point.centre, point.low, point.high});
        figure.table.push_back({point.run, fmt::format("{:.6g}", point.value), fixed(point.centre, 3),
                                fixed(point.low, 3), fixed(point.high, 3), point.alarm});
    }
    const auto runs = static_cast<double>(chart.points.size());
    svg::Axis x{{0.5, std::max(runs, 1.0) + 0.5}, "run"};
    for (const svg::Tick& tick : svg::nice_ticks(x.range, ticks_across - 2))
        if (tick.value >= 1 && tick.value <= runs && tick.value == std::floor(tick.value))
            x.ticks.push_back({tick.value, chart.points[static_cast<std::size_t>(tick.value) - 1].run});
    Panel panel({panel_left, 36, panel_width - half_a_date, 170}, x,
                axis(svg::range_of(all).widened(margin_part), ticks_up, chart.unit));
    panel.line(limits[0], "thin soft");
    panel.line(limits[1], "dashed soft");
    panel.line(limits[2], "dashed soft");
    panel.markers(values, Marker::dot, "blue");
    panel.markers(alarms, Marker::triangle, "red");
    panel.legend("in control", "blue", Marker::dot);
    panel.legend("alarm", "red", Marker::triangle);
    panel.legend("limits", "dashed soft");
    return finished(std::move(figure),
                    fmt::format("{} over {} runs with the limits of a control chart; {} of them raise an alarm.",
                                chart.title, chart.points.size(), alarms.size()),
                    panel.content());
}

}  // namespace korvane
