// How often charts alarm in health, and how soon after a change, by simulation with fixed seeds.
#include "korvane/control_chart.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace korvane {
namespace {

std::vector<double> normal_values(std::mt19937_64& random, std::size_t count) {
    std::normal_distribution<double> normal;
    std::vector<double> values(count);
    for (double& value : values) value = normal(random);
    return values;
}

TEST(ControlChart, RunLengthsInHealthAreThoseOfTheRules) {
    for (const auto& [rule, expected] : {std::pair{ChartRule::three_sigma, 370.4},
                                         {ChartRule::ewma, 496.0},
                                         {ChartRule::western_electric, 91.75},
                                         {ChartRule::cusum, 465.0}}) {
        std::mt19937_64 random(15);
        constexpr int runs = 2500;
        double total = 0;
        for (int run = 0; run < runs; ++run) {
            for (std::size_t block = 512;; block *= 2) {
                std::mt19937_64 again(random);
                const auto alarms = alarms_of(rule, normal_values(again, block), {});
                const auto first = std::find(alarms.begin(), alarms.end(), true);
                if (first == alarms.end()) continue;
                total += static_cast<double>(first - alarms.begin() + 1);
                random = again;
                break;
            }
        }
        EXPECT_NEAR(total / runs, expected, 0.05 * expected) << chart_rule_names[static_cast<std::size_t>(rule)];
    }
}

/// Ten calibrants of four metrics and what each metric's share, of normal values. Those of one metric shift by `shift`
/// behind the guide set.
std::vector<ControlChart> simulated_charts(std::mt19937_64& random, std::size_t guide, std::size_t tunes,
                                           double shift) {
    std::vector<ControlChart> charts;
    for (std::size_t metric = 0; metric < std::size(tune_metrics); ++metric) {
        std::vector<ControlChart> calibrants(10);
        for (std::size_t i = 0; i < calibrants.size(); ++i) {
            calibrants[i].metric = tune_metrics[metric];
            calibrants[i].mz = 100.0 * static_cast<double>(i + 1);
            calibrants[i].values = normal_values(random, guide + tunes);
            for (std::size_t k = 0; k < guide + tunes; ++k) {
                calibrants[i].records.push_back(static_cast<std::int64_t>(k));
                if (metric == 0 && k >= guide) calibrants[i].values[k] += shift;
            }
            judge(calibrants[i], guide);
        }
        charts.push_back(common_chart(calibrants, std::vector<double>(calibrants.size(), 1)));
        judge(charts.back(), guide);
        charts.insert(charts.end(), calibrants.begin(), calibrants.end());
    }
    return charts;
}

TEST(ControlChart, AllChartsTogetherSeldomAlarmInHealthAndSoonAfterACommonShift) {
    for (const auto& [guide, histories] : {std::pair<std::size_t, std::size_t>{20, 1200}, {100, 100}}) {
        std::mt19937_64 random(16);
        int alarms = 0, tunes = 0, waited = 0;
        for (std::size_t history = 0; history < histories; ++history) {
            const std::size_t length = history % 2 ? 30 : 10;
            const double shift = history % 2 ? 0 : 2;
            const auto charts = simulated_charts(random, guide, length, shift);
            std::size_t tune = guide;
            for (bool seen = false; tune < guide + length && !(seen && shift > 0); ++tune) {
                seen = std::ranges::count(judged(charts, static_cast<std::int64_t>(tune)), true) > 0;
                (shift > 0 ? waited : alarms) += shift > 0 ? 1 : seen;
                tunes += shift > 0 ? 0 : 1;
            }
        }
        EXPECT_LE(alarms, tunes / healthy_tunes_per_alarm) << guide;
        EXPECT_LE(waited, 4 * histories / 2) << guide;
    }
}

}  // namespace
}  // namespace korvane
