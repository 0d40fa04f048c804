// How often charts alarm in health, and how soon after a change, by simulation with fixed seeds.
#include "korvane/control_chart.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace korvane {
namespace {

std::vector<double> normal_values(std::mt19937_64& random, std::size_t count, double mean = 0) {
    std::normal_distribution<double> normal(mean, 1);
    std::vector<double> values(count);
    for (double& value : values) value = normal(random);
    return values;
}

TEST(ControlChart, RunLengthsInHealthAreThoseOfTheRules) {
    struct Case {
        ChartRule rule;
        double run_length;
    };
    for (const auto& [rule, expected] : {Case{ChartRule::three_sigma, 370.4}, Case{ChartRule::ewma, 496},
                                         Case{ChartRule::western_electric, 91.75}, Case{ChartRule::cusum, 465}}) {
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

/// Ten calibrants of four metrics and what each metric's share, of normal values of which `common` is the part of the
/// variance that all calibrants of a metric have together. Those of one metric shift by `shift` behind the guide set.
std::vector<ControlChart> simulated_charts(std::mt19937_64& random, std::size_t guide, std::size_t tunes, double common,
                                           double shift) {
    std::vector<ControlChart> charts;
    for (std::size_t metric = 0; metric < std::size(tune_metrics); ++metric) {
        const std::vector<double> together = normal_values(random, guide + tunes);
        std::vector<ControlChart> calibrants(10);
        for (std::size_t i = 0; i < calibrants.size(); ++i) {
            calibrants[i].metric = tune_metrics[metric];
            calibrants[i].mz = 100.0 * static_cast<double>(i + 1);
            const std::vector<double> alone = normal_values(random, guide + tunes);
            for (std::size_t k = 0; k < guide + tunes; ++k) {
                calibrants[i].records.push_back(static_cast<std::int64_t>(k));
                calibrants[i].values.push_back(std::sqrt(common) * together[k] + std::sqrt(1 - common) * alone[k] +
                                               (metric == 0 && k >= guide ? shift : 0));
            }
            judge(calibrants[i], guide);
        }
        charts.push_back(common_chart(calibrants, std::vector<double>(calibrants.size(), 1)));
        judge(charts.back(), guide);
        charts.insert(charts.end(), calibrants.begin(), calibrants.end());
    }
    return charts;
}

bool is_out_of_control(const std::vector<ControlChart>& charts, std::size_t record) {
    const auto answers = judged(charts, static_cast<std::int64_t>(record));
    return std::find(answers.begin(), answers.end(), true) != answers.end();
}

TEST(ControlChart, AllChartsTogetherSeldomAlarmInHealthAndSoonAfterACommonShift) {
    struct Case {
        std::size_t guide, histories;
        double common;
    };
    for (const auto& [guide, histories, common] : {Case{20, 1200, 0}, Case{100, 100, 0}}) {
        std::mt19937_64 random(16);
        int alarms = 0, tunes = 0, waited = 0;
        for (std::size_t history = 0; history < histories; ++history) {
            const std::size_t length = history % 2 ? 30 : 10;
            const double shift = history % 2 ? 0 : 2;
            const auto charts = simulated_charts(random, guide, length, common, shift);
            std::size_t tune = guide;
            for (bool seen = false; tune < guide + length && !(seen && shift > 0); ++tune) {
                seen = is_out_of_control(charts, tune);
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
