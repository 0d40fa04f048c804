// Control charts of the history.
#include <algorithm>
#include <cmath>

#include "commands.h"
#include "run.h"

namespace korvane::program {

namespace {

constexpr std::size_t short_guide = 20;
constexpr std::size_t drawn_values = 60;
constexpr int drawn_sigmas = 5;

struct TrendChoice {
    std::string metric, record = "last";
    std::optional<double> mz;
    std::int64_t guide = 20;
    std::vector<std::string> rules{"ewma", "3sigma"};
};

/// "%" for the deviation that calibrants share, else that of the metric.
const char* unit_of(const ControlChart& chart) {
    const bool is_percent = is_logarithmic(chart.metric) && !chart.mz;
    return is_percent ? "%" : chart.metric == "mass_error" ? "ppm" : chart.metric == "height" ? "counts" : "";
}

/// In that unit.
double shown_value(const ControlChart& chart, double value) {
    if (!is_logarithmic(chart.metric)) return value;
    return chart.mz ? std::exp(value) : 100 * std::expm1(value);
}

/// The same as a text; counts go without their unit.
std::string value_text(const ControlChart& chart, double value) {
    const std::string unit = unit_of(chart);
    const char* const format = unit == "%"                ? "{:+.1f} %"
                               : unit == "ppm"            ? "{:+.2f} ppm"
                               : chart.metric == "misfit" ? "{:.2f}"
                                                          : "{:.0f}";
    return fmt::format(fmt::runtime(format), shown_value(chart, value));
}

std::string chart_name(const ControlChart& chart) {
    return chart.metric + (chart.mz ? fmt::format(" {:.4f}", *chart.mz) : ", all");
}

/// A chart with what the chosen rules say of each value; nothing of those of the guide set.
struct RuledChart {
    ControlChart chart;
    std::vector<std::vector<std::string>> alarms;
    bool out_of_control = false;

    std::size_t guide() const { return chart.guide.size > 0 ? chart.guide.size : chart.values.size(); }
};

RuledChart ruled(const ControlChart& chart, const std::vector<std::string>& rules) {
    RuledChart result{chart, {}, false};
    const auto values = std::span(chart.values).subspan(result.guide());
    result.alarms.resize(chart.values.size());
    for (std::size_t rule = 0; rule < std::size(chart_rule_names); ++rule) {
        if (std::ranges::count(rules, chart_rule_names[rule]) == 0) continue;
        const auto alarms = alarms_of(static_cast<ChartRule>(rule), values, chart.guide);
        for (std::size_t i = 0; i < values.size(); ++i)
            if (alarms[i]) result.alarms[result.guide() + i].emplace_back(chart_rule_names[rule]);
    }
    return result;
}

/// The records of the alarms, neighbours together: "21, 24 to 27"; null without.
Json alarmed_records(const RuledChart& ruled_chart) {
    std::string text;
    for (std::size_t i = 0; i < ruled_chart.alarms.size(); ++i) {
        if (ruled_chart.alarms[i].empty()) continue;
        std::size_t end = i;
        while (end + 1 < ruled_chart.alarms.size() && !ruled_chart.alarms[end + 1].empty()) ++end;
        const auto& records = ruled_chart.chart.records;
        text += fmt::format("{}{}", text.empty() ? "" : ", ", records[i]);
        if (end > i) text += fmt::format("{}{}", end > i + 1 ? " to " : ", ", records[end]);
        i = end;
    }
    return text.empty() ? Json() : Json(text);
}

/// The last values, one a column: '.' of the guide set, 'o' behind it, 'X' where a rule alarms.
std::string drawing(const RuledChart& ruled_chart) {
    const ControlChart& chart = ruled_chart.chart;
    const std::size_t first = chart.values.size() - std::min(chart.values.size(), drawn_values);
    std::string text = "\n";
    for (int level = drawn_sigmas; level >= -drawn_sigmas; --level) {
        std::string line(chart.values.size() - first, level == 0 || std::abs(level) == 3 ? '-' : ' ');
        for (std::size_t i = first; i < chart.values.size(); ++i) {
            const double z = (chart.values[i] - chart.guide.centre) / chart.guide.sigma;
            if (std::lround(std::clamp(z, -1.0 * drawn_sigmas, 1.0 * drawn_sigmas)) == level)
                line[i - first] = i < ruled_chart.guide() ? '.' : ruled_chart.alarms[i].empty() ? 'o' : 'X';
        }
        line.resize(line.find_last_not_of(' ') + 1);
        const std::string value = value_text(chart, chart.guide.centre + level * chart.guide.sigma);
        text += fmt::format("{:>12} {:>+2} |{}\n", level % 3 == 0 ? value : "", level, line);
    }
    return text + fmt::format("{:>16} records {} to {}\n", "", chart.records[first], chart.records.back());
}

/// All points, a line each, and what JSON has of every chart.
Table point_table(const std::vector<RuledChart>& charts, Json& objects) {
    Table table({"<metric", "m/z", "record|record", "value|value", "centre", "sigma", "|ewma", "|alarms", "<alarms"});
    for (const RuledChart& each : charts) {
        const auto& [metric, mz, records, values, guide, average] = each.chart;
        const auto known = [&](double value) { return guide.size > 0 ? Json(value) : Json(); };
        const std::size_t first = table.size();
        for (std::size_t i = 0; i < values.size(); ++i) {
            const auto& alarms = each.alarms[i];
            table.add(metric, mz, records[i], values[i], guide.centre, guide.sigma,
                      i < each.guide() ? Json() : Json(average[i - each.guide()]), alarms,
                      fmt::format("{}", fmt::join(alarms, " ")));
        }
        objects.push_back(Json{{"metric", metric},
                               {"mz", mz},
                               {"logarithm", is_logarithmic(metric)},
                               {"guide", guide.size},
                               {"centre", known(guide.centre)},
                               {"sigma", known(guide.sigma)},
                               {"out_of_control", each.out_of_control},
                               {"points", table.json(first)}});
    }
    return table;
}

/// All rows of one metric; of several those that calibrants share, and those with an alarm.
Table chart_table(const std::vector<RuledChart>& charts, bool all) {
    Table table({"<chart", "last", "centre", "sigma", "z||+.1f", "ewma||+.1f", "<alarms at records", "<now"});
    for (const RuledChart& each : charts) {
        const auto& [chart, alarms, out_of_control] = each;
        const Json past = alarmed_records(each);
        if (chart.values.empty() || (!all && chart.mz && past.is_null() && !out_of_control)) continue;
        const std::string name = chart_name(chart), last = value_text(chart, chart.values.back());
        const auto& [size, centre, sigma, range] = chart.guide;
        if (size == 0)
            table.add(name, last, nullptr, nullptr, nullptr, nullptr, nullptr, "no judgement");
        else
            table.add(
                name, last, value_text(chart, centre),
                is_logarithmic(chart.metric) ? fmt::format("{:.1f} %", 100 * sigma) : fmt::format("{:.3g}", sigma),
                (chart.values.back() - centre) / sigma, chart.average.back(), past,
                out_of_control ? "OUT OF CONTROL" : "ok");
    }
    return table;
}

/// How much the guide set is worth. From so few values three sigma, which alarm once in 370 where they are known, alarm
/// once in about 18 (5 values), 91 (20), 254 (100).
std::string guide_text(const ControlChart& common) {
    if (common.guide.size == 0)
        return fmt::format("{} records since the last maintenance: no judgement from so few", common.values.size());
    const std::string text = fmt::format("guide set: records {} to {}, {} values", common.records.front(),
                                         common.records[common.guide.size - 1], common.guide.size);
    return common.guide.size < short_guide ? text + "; it is short: single rules alarm too often" : text;
}

ExitCode trend(Session& session, const TrendChoice& options) {
    TuneHistory history = open_history(session, false);
    const TuneRecord like = record_named(history, options.record);
    TrendOptions choice;
    choice.guide = static_cast<std::size_t>(options.guide);
    if (!options.metric.empty()) choice.metrics = {options.metric};
    std::vector<ControlChart> found = charts_of(history, like, choice);
    if (options.mz)
        std::erase_if(found,
                      [&](const ControlChart& chart) { return !chart.mz || !is_same_mass(*chart.mz, *options.mz); });
    const auto fullest =
        std::ranges::max_element(found, {}, [](const ControlChart& chart) { return chart.values.size(); });
    if (found.empty() || fullest->values.empty())
        throw UsageError(fmt::format("record {} has no such calibrants", like.id));

    const std::vector<bool> answers = judged(found, like.id);
    std::vector<RuledChart> charts;
    Json rows = Json::array();
    std::string now;
    for (std::size_t i = 0; i < found.size(); ++i) {
        charts.push_back(ruled(found[i], options.rules));
        charts.back().out_of_control = answers[i];
        if (answers[i]) now += (now.empty() ? "" : "; ") + chart_name(found[i]);
    }
    session.talk(fmt::format("record {}: {}, {}, {}; {}", like.id, like.instrument, like.source, like.polarity,
                             guide_text(*fullest)));
    const Table points = point_table(charts, rows);
    std::string text = session.csv ? points.csv() : chart_table(charts, !options.metric.empty()).text();
    if (!session.csv && !options.metric.empty() && found.front().guide.size > 0) text += drawing(charts.front());
    session.show(Json{{"record", like.id}, {"out_of_control", !now.empty()}, {"charts", std::move(rows)}}, text);
    return session.checked(now.empty() ? "" : "out of control: " + now);
}

}  // namespace

TrendChart trend_chart(const ControlChart& chart) {
    const RuledChart marked = ruled(chart, TrendChoice().rules);
    const auto limit = [&](double sigmas) {
        return chart.guide.size > 0 ? shown_value(chart, chart.guide.centre + sigmas * chart.guide.sigma)
                                    : std::nan("");
    };
    TrendChart drawn{chart_name(chart), unit_of(chart), {}};
    for (std::size_t i = 0; i < chart.values.size(); ++i)
        drawn.points.push_back({std::to_string(chart.records[i]), shown_value(chart, chart.values[i]), limit(0),
                                limit(-3), limit(3), fmt::format("{}", fmt::join(marked.alarms[i], " "))});
    return drawn;
}

void declare_trend(CLI::App& command, Session& session) {
    TrendChoice& options = runs(command, session, "korvane trend mass_error", trend, Prints::table);
    add_choice(command, "METRIC", options.metric, "mass_error, height, resolution or misfit (all)", "TEXT",
               tune_metrics);
    add_number(command, "--mz", options.mz, "the chart of this calibrant alone", positive);
    command.add_option("--record", options.record, record_words)->type_name("RECORD");
    add_count(command, "--guide", options.guide, "records in the guide set (20)", 5, 10000);
    add_choice(command, "--rule", options.rules, "rule to mark by; repeat for more (ewma, 3sigma)", "RULE",
               chart_rule_names);
}

}  // namespace korvane::program
