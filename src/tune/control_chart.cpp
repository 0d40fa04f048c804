#include "korvane/control_chart.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <numeric>

namespace korvane {

namespace {

constexpr double ewma_weight = 0.2, ewma_limit = 2.962;
constexpr double most_sigmas = 4;  // that a value counts in the average, which one bad day else keeps out for a week
constexpr double cusum_slack = 0.5, cusum_limit = 5;
constexpr double xmr_limit = 2.66, range_limit = 3.267;
constexpr std::size_t least_guide = 5;
constexpr double common_part = 0.75;    // of the false alarms
constexpr double approximation = 0.75;  // room for that of Student's distribution, far out
constexpr int tests_per_chart = 2;

/// The variance of the average after `count` values, in those of one.
double average_variance(std::size_t count) {
    return ewma_weight / (2 - ewma_weight) * (1 - std::pow(1 - ewma_weight, 2.0 * static_cast<double>(count)));
}

/// So many of so many values beyond a limit, to the side of the last one.
struct Zone {
    std::size_t beyond, of;
    double limit;
};
constexpr Zone western_electric_zones[] = {{1, 1, 3}, {2, 3, 2}, {4, 5, 1}, {8, 8, 0}};

bool shows(const Zone& zone, std::span<const double> values) {
    const auto window = values.last(std::min(zone.of, values.size()));
    const double side = window.back() < 0 ? -1 : 1;
    const auto beyond = [&](double value) { return side * value > zone.limit; };
    return beyond(window.back()) && static_cast<std::size_t>(std::ranges::count_if(window, beyond)) >= zone.beyond;
}

/// Two-sided, of Student's distribution; normal for no freedom.
double chance_of(double t, std::size_t freedom) {
    const double n = static_cast<double>(freedom);
    const double z = freedom == 0 ? std::abs(t) : (8 * n + 1) / (8 * n + 3) * std::sqrt(n * std::log1p(t * t / n));
    return std::erfc(z / std::sqrt(2.0));
}

/// How likely health shows the record's value, or an average `ewma`, so far off or farther, whichever is rarer; nothing
/// where the record is not judged. Student's prediction interval: centre and sigma are only known from the guide set,
/// whose mean adds sigma^2 / n; so a short set makes no false alarms. The distribution by D. L. Wallace,
/// Ann. Math. Statist. 30 (1959) 1121.
std::optional<double> chance_of(const ControlChart& chart, std::int64_t record) {
    const auto found = std::ranges::lower_bound(chart.records, record);
    const auto place = static_cast<std::size_t>(found - chart.records.begin());
    const std::size_t size = chart.guide.size;
    if (found == chart.records.end() || *found != record || size == 0 || place < size) return std::nullopt;
    const double of_centre = 1 / static_cast<double>(size), variance = average_variance(place - size + 1);
    const double z = (chart.values[place] - chart.guide.centre) / chart.guide.sigma / std::sqrt(1 + of_centre);
    const double average = chart.average[place - size] * std::sqrt(variance / (variance + of_centre));
    return std::min(chance_of(z, size - 1), chance_of(average, size - 1));
}

}  // namespace

bool is_logarithmic(std::string_view metric) noexcept {
    return metric == "height" || metric == "misfit";
}

GuideSet guide_set(std::span<const double> values) {
    GuideSet guide{values.size(), 0, 0, 0};
    const double n = static_cast<double>(values.size());
    guide.centre = std::accumulate(values.begin(), values.end(), 0.0) / n;
    for (std::size_t i = 0; i < values.size(); ++i) {
        guide.sigma += (values[i] - guide.centre) * (values[i] - guide.centre);
        if (i > 0) guide.mean_moving_range += std::abs(values[i] - values[i - 1]) / (n - 1);
    }
    guide.sigma = std::sqrt(guide.sigma / (n - 1));
    return guide;
}

std::vector<double> ewma_of(std::span<const double> values, const GuideSet& guide) {
    std::vector<double> averages;
    double average = 0;
    for (const double value : values) {
        const double z = std::clamp((value - guide.centre) / guide.sigma, -most_sigmas, most_sigmas);
        average += ewma_weight * (z - average);
        averages.push_back(average / std::sqrt(average_variance(averages.size() + 1)));
    }
    return averages;
}

std::vector<bool> alarms_of(ChartRule rule, std::span<const double> values, const GuideSet& guide) {
    std::vector<double> z;
    for (const double value : values) z.push_back((value - guide.centre) / guide.sigma);
    const std::vector<double> averages = ewma_of(values, guide);
    std::vector<bool> alarms;
    double up = 0, down = 0;
    for (std::size_t i = 0; i < z.size(); ++i) {
        up = std::max(0.0, up + z[i] - cusum_slack);
        down = std::max(0.0, down - z[i] - cusum_slack);
        const double range = i > 0 ? std::abs(values[i] - values[i - 1]) : 0;
        const double moved = std::abs(values[i] - guide.centre);
        // In the order of the rules.
        const bool is_broken[] = {
            std::abs(z[i]) > 3, std::abs(averages[i]) > ewma_limit,
            moved > xmr_limit * guide.mean_moving_range || range > range_limit * guide.mean_moving_range,
            std::ranges::any_of(western_electric_zones,
                                [&](const Zone& zone) { return shows(zone, std::span(z).first(i + 1)); }),
            std::max(up, down) > cusum_limit};
        alarms.push_back(is_broken[static_cast<std::size_t>(rule)]);
    }
    return alarms;
}

void judge(ControlChart& chart, std::size_t guide) {
    if (chart.values.empty()) return;
    const std::size_t size = std::min(guide, chart.values.size() - 1);
    if (size < least_guide) return;
    const std::span values(chart.values);
    const GuideSet known = guide_set(values.first(size));
    if (!(known.sigma > 0)) return;
    chart.guide = known;
    chart.average = ewma_of(values.subspan(size), chart.guide);
}

ControlChart common_chart(const std::vector<ControlChart>& calibrants, const std::vector<double>& variances) {
    std::map<std::int64_t, std::pair<double, double>> sums;  // weighted deviation, weight
    const bool are_stated = std::ranges::all_of(variances, [](double variance) { return variance > 0; });
    for (std::size_t i = 0; i < calibrants.size(); ++i) {
        const ControlChart& chart = calibrants[i];
        if (chart.guide.size == 0) continue;
        const double weight = are_stated ? 1 / variances[i] : 1;
        for (std::size_t k = 0; k < chart.values.size(); ++k) {
            auto& [deviation, weights] = sums[chart.records[k]];
            deviation += weight * (chart.values[k] - chart.guide.centre);
            weights += weight;
        }
    }
    ControlChart common;
    if (!calibrants.empty()) common.metric = calibrants.front().metric;
    for (const auto& [record, sum] : sums) {
        common.records.push_back(record);
        common.values.push_back(sum.first / sum.second);
    }
    return common;
}

std::vector<ControlChart> charts_of(TuneHistory& history, const TuneRecord& like, const TrendOptions& options) {
    std::vector<ControlChart> charts;
    for (const std::string& metric : options.metrics) {
        std::vector<ControlChart> calibrants;
        std::vector<double> variances;  // the mean of those stated
        for (const MetricReading& reading : history.readings(metric, like)) {
            if (calibrants.empty() || calibrants.back().mz != reading.mz) {
                calibrants.push_back({metric, reading.mz, {}, {}, {}, {}});
                variances.push_back(0);
            }
            ControlChart& chart = calibrants.back();
            chart.records.push_back(reading.record);
            const bool is_log = is_logarithmic(metric);
            chart.values.push_back(is_log ? std::log(reading.value) : reading.value);
            const double error = reading.standard_error / (is_log ? reading.value : 1);
            variances.back() += (error * error - variances.back()) / static_cast<double>(chart.values.size());
        }
        for (ControlChart& chart : calibrants) judge(chart, options.guide);
        charts.push_back(common_chart(calibrants, variances));
        judge(charts.back(), options.guide);
        std::ranges::move(calibrants, std::back_inserter(charts));
    }
    return charts;
}

std::vector<bool> judged(const std::vector<ControlChart>& charts, std::int64_t record) {
    std::vector<std::optional<double>> chances;
    double counts[2] = {0, 0};  // of calibrants, common ones
    for (const ControlChart& chart : charts) {
        chances.push_back(chance_of(chart, record));
        counts[chart.mz ? 0 : 1] += chances.back() ? tests_per_chart : 0;
    }
    std::vector<bool> answers;
    for (std::size_t i = 0; i < charts.size(); ++i) {
        const bool is_common = !charts[i].mz;
        const double part = is_common ? common_part : 1 - common_part;
        const double limit = approximation * part / healthy_tunes_per_alarm / counts[is_common ? 1 : 0];
        answers.push_back(chances[i] && *chances[i] < limit);
    }
    return answers;
}

}  // namespace korvane
