#include "instrument/peakfinder/ion_pulse.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "instrument/peakfinder/tail_response.h"

namespace korvane {

namespace {

struct Node {
    double place;
    double weight;
};

// Gauss-Hermite for a normal distribution, Gauss-Laguerre for an exponential one.
constexpr std::array<Node, 5> normal_nodes{
    {{-2.85697, 0.0112574}, {-1.35563, 0.2220759}, {0, 0.5333333}, {1.35563, 0.2220759}, {2.85697, 0.0112574}}};
constexpr std::array<Node, 2> delay_nodes{{{0.5857864, 0.8535534}, {3.4142136, 0.1464466}}};
constexpr double pulse_reach = 4;  // deviations

/// What a pulse of unit counts at `place` adds to the three sums.
Vector3 share_of_pulse(const PeakShape& peak, double pulse_sigma, double place, std::ptrdiff_t first,
                       std::span<const double> influence, std::vector<double>& pulse) {
    const auto last = first + static_cast<std::ptrdiff_t>(influence.size()) - 1;
    const auto from = std::max(first, static_cast<std::ptrdiff_t>(std::ceil(place - pulse_reach * pulse_sigma)));
    const auto to = std::min(last, static_cast<std::ptrdiff_t>(std::floor(place + pulse_reach * pulse_sigma)));
    Vector3 share{};
    if (to < from) return share;
    pulse.resize(static_cast<std::size_t>(to - from + 1));
    const double height = 1 / (pulse_sigma * std::sqrt(2 * std::numbers::pi));
    gaussian_samples({height, place, pulse_sigma}, from, pulse);
    for (auto i = from; i <= to; ++i) {
        const double u = (static_cast<double>(i) - peak.centre) / peak.sigma;
        const double value = influence[static_cast<std::size_t>(i - first)] * pulse[static_cast<std::size_t>(i - from)];
        share[0] += value;
        share[1] += value * u;
        share[2] += value * u * u;
    }
    return share;
}

}  // namespace

Matrix3 pulse_scatter(const PeakShape& peak, const IonPulses& ions, std::ptrdiff_t first,
                      std::span<const double> influence) {
    const double least_square = 0.01 * peak.sigma * peak.sigma;
    const double square = std::max(least_square, peak.sigma * peak.sigma - ions.sigma * ions.sigma);
    const double arrival = std::sqrt(square) / (1 + fitted_width_of_tail * ions.tail_fraction);
    const double area = peak.height * peak.sigma * std::sqrt(2 * std::numbers::pi);
    Matrix3 scatter{};
    std::vector<double> pulse;
    auto add = [&](double place, double weight) {
        const Vector3 share = share_of_pulse(peak, ions.sigma, place, first, influence, pulse);
        for (std::size_t row = 0; row < 3; ++row)
            for (std::size_t column = 0; column < 3; ++column)
                scatter[row][column] += ions.variance * area * weight * share[row] * share[column];
    };
    for (const auto& node : normal_nodes)
        add(peak.centre + node.place * arrival, (1 - ions.tail_fraction) * node.weight);
    const double delay = tail_sigmas * std::sqrt(arrival * arrival + ions.tail_pulse_part * ions.sigma * ions.sigma);
    if (ions.tail_fraction > 0)
        for (const auto& node : delay_nodes) add(peak.centre + node.place * delay, ions.tail_fraction * node.weight);
    return scatter;
}

}  // namespace korvane
