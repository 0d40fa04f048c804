// Control charts: whether a series of tunes goes on as it began.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "korvane/tune_history.h"

namespace korvane {

/// What the values of health are like, from the first values of a series.
struct GuideSet {
    std::size_t size = 0;  ///< values that it comes from; 0 where centre and sigma are known
    double centre = 0, sigma = 1;
    double mean_moving_range = 2 / 1.7724538509055159;  ///< of neighbours: 2 sigma / sqrt(pi) where sigma is known
};

/// Mean, standard deviation (n - 1) and mean moving range; at least two values.
KORVANE_API GuideSet guide_set(std::span<const double> values);

enum class ChartRule {
    /// Beyond three sigma (W. A. Shewhart, Economic Control of Quality of Manufactured Product, 1931).
    three_sigma,
    /// z = 0.2 x + 0.8 z beyond 2.962 of its own sigma, sqrt(0.2 / 1.8 (1 - 0.8^2i)) (S. W. Roberts, Technometrics 1
    /// (1959) 239; the limit by J. M. Lucas and M. S. Saccucci, Technometrics 32 (1990) 1).
    ewma,
    /// Beyond 2.66 mean moving ranges, or a moving range beyond 3.267 of them (D. J. Wheeler, Understanding Variation,
    /// 1993).
    xmr,
    /// 1 beyond 3 sigma, 2 of 3 beyond 2, 4 of 5 beyond 1, 8 running beyond 0, to one side (Western Electric,
    /// Statistical Quality Control Handbook, 1956).
    western_electric,
    /// A sum of deviations beyond half a sigma that exceeds 5 sigma (E. S. Page, Biometrika 41 (1954) 100).
    cusum
};
inline constexpr const char* chart_rule_names[] = {"3sigma", "ewma", "xmr", "western-electric", "cusum"};

/// Which of the values, that follow the guide set, the rule takes for a change.
KORVANE_API std::vector<bool> alarms_of(ChartRule rule, std::span<const double> values, const GuideSet& guide);
/// The moving average of `ChartRule::ewma` in units of its own sigma; a value counts four sigma at most.
KORVANE_API std::vector<double> ewma_of(std::span<const double> values, const GuideSet& guide);

/// Whether the chart of a metric is one of its natural logarithm: heights, misfits.
KORVANE_API bool is_logarithmic(std::string_view metric) noexcept;

/// One chart: a metric of a calibrant, or what all calibrants share.
struct ControlChart {
    std::string metric;        ///< one of `tune_metrics`
    std::optional<double> mz;  ///< nothing for the mean deviation of all calibrants from their centres
    std::vector<std::int64_t> records;
    std::vector<double> values;   ///< as in the history, or their logarithm: `is_logarithmic`
    GuideSet guide;               ///< of the first values; size 0 where there is no judgement
    std::vector<double> average;  ///< `ewma_of`, from the first value behind the guide set on
};

/// Takes the first `guide` values as the guide set, all but the last where there are not so many more, and judges those
/// behind it. No judgement where that leaves fewer than five, or no scatter.
KORVANE_API void judge(ControlChart& chart, std::size_t guide);

/// The mean deviation of judged calibrants from their centres, record by record, not yet judged. `variances`, one a
/// calibrant, are weights as peaks state them; not of the scatter, which the guide set would then understate. All count
/// alike where one is not above 0.
KORVANE_API ControlChart common_chart(const std::vector<ControlChart>& calibrants,
                                      const std::vector<double>& variances);

struct TrendOptions {
    std::size_t guide = 20;  ///< records in the guide set
    std::vector<std::string> metrics{std::begin(tune_metrics), std::end(tune_metrics)};
};

/// The charts of the history at the time of `like` and before, for its instrument, source and polarity, since the last
/// maintenance: of every metric first what the calibrants share, weighted by their stated errors, then each by m/z.
KORVANE_API std::vector<ControlChart> charts_of(TuneHistory& history, const TuneRecord& like,
                                                const TrendOptions& options = {});

/// Healthy tunes for each that is called out of control, by all charts together.
inline constexpr double healthy_tunes_per_alarm = 370;

/// Which charts call the tune `record` out of control, one answer a chart. Bonferroni's inequality over all charts,
/// value and average each a test, holds false alarms to one in `healthy_tunes_per_alarm` tunes however the charts hang
/// together; three quarters of that are for what calibrants share.
KORVANE_API std::vector<bool> judged(const std::vector<ControlChart>& charts, std::int64_t record);

}  // namespace korvane
