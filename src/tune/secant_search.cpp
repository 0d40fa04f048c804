#include "korvane/secant_search.h"

#include <fmt/format.h>

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>

#include "korvane/calibrants.h"
#include "korvane/error.h"
#include "korvane/instrument_contract.h"
#include "korvane/restoring.h"

namespace korvane {

namespace {

using End = SecantOutcome::End;

/// Standard errors by which a reading must lie beside the target to move a bound.
constexpr double sure = 2;
/// The same for a slope against the direction asked for, which is looked at after every probe.
constexpr double surely_wrong = 3;
/// The logarithm of a response bends: its second derivative over the square of the first is of this size (1 for a
/// proportional response, 0.7 for a logistic one below its middle, 0 for an exponential one).
constexpr double curvature = 1.5;
/// What a parabola leaves of it, per cube of the logarithm.
constexpr double beyond_parabola = 0.6;
/// Logarithm of the abundance over the target within which a reading is near enough for the curve to be trusted.
constexpr double near_level = 0.3;
/// Logarithm beyond which a reading tells its side of the target and no distance: responses have plateaus and ends.
constexpr double far_level = 1.5;
/// Part of the way to a bound that a step goes at most on the word of the curve alone.
constexpr double longest_step = 0.6;
/// The first step goes half of the logarithm, within these parts of the way to the bound.
constexpr double shortest_first_step = 0.15, longest_first_step = 0.5;
/// Part of the range from which a bound itself is tried.
constexpr double beside_a_bound = 0.1;
/// Near the target a reading takes what is missing and a little more, and at least this part of the transients on
/// entry: less saves little and ends where chance wants it.
constexpr double missing_margin = 1.15, least_part_near = 0.25;
/// Without a stated error a reading is taken for one of a tenth.
constexpr double unknown_relative_error = 0.1;
/// The number of transients at the start is that on entry divided by it.
constexpr double speed_up = 16;
/// More probes than any response needs that a search can end on.
constexpr std::size_t most_probes = 40;
/// Halvings towards more abundance before its bound is tried.
constexpr std::size_t no_signal_probes = 3;

[[noreturn]] void refuse(const std::string& why) {
    throw Error(error_number::invalid_call, "adjust_by_secant", why, ErrorKind::usage);
}

/// Logarithm of abundance over target against the setpoint's value.
struct LevelReading {
    double value = 0, level = 0, error = 0, transients = 0;
    /// Variance of a reading at the target with one transient: ions scatter by the root of their number.
    double variance_at_target() const { return error * error * std::exp(level) * transients; }
    double variance() const { return error * error + std::pow(beyond_parabola * level * level * level, 2); }
};

/// A weighted curve through the readings: where it crosses the target, and the error of the logarithm there.
struct Crossing {
    double value = 0, error = 0;
    double slope = 0, slope_error = 0;
};

/// A parabola about a value, by weighted least squares; its curvature is known to be none within a standard error.
std::optional<Crossing> parabola_about(const std::vector<LevelReading>& readings, double centre,
                                       double curvature_error) {
    Eigen::Matrix3d normal = Eigen::Matrix3d::Zero();
    Eigen::Vector3d right = Eigen::Vector3d::Zero();
    normal(2, 2) = 1 / (curvature_error * curvature_error);
    for (const LevelReading& reading : readings) {
        const double offset = reading.value - centre;
        const Eigen::Vector3d powers(1, offset, offset * offset);
        normal += powers * powers.transpose() / reading.variance();
        right += powers * (reading.level / reading.variance());
    }
    const Eigen::Vector3d scale = normal.diagonal().cwiseSqrt();
    const Eigen::Matrix3d scaled = scale.asDiagonal().inverse() * normal * scale.asDiagonal().inverse();
    const Eigen::FullPivLU<Eigen::Matrix3d> solver(scaled);
    if (!solver.isInvertible()) return std::nullopt;
    const Eigen::Matrix3d covariance =
        scale.asDiagonal().inverse() * Eigen::Matrix3d(solver.inverse()) * scale.asDiagonal().inverse();
    const Eigen::Vector3d curve = covariance * right;

    Crossing crossing;
    double offset = 0;
    for (int step = 0; step < 5; ++step) {
        crossing.slope = curve[1] + 2 * curve[2] * offset;
        offset -= (curve[0] + offset * (curve[1] + offset * curve[2])) / crossing.slope;
    }
    const Eigen::Vector3d powers(1, offset, offset * offset), slopes(0, 1, 2 * offset);
    crossing.value = centre + offset;
    crossing.error = std::sqrt(powers.dot(covariance * powers));
    crossing.slope_error = std::sqrt(slopes.dot(covariance * slopes));
    if (!std::isfinite(crossing.value) || crossing.slope == 0) return std::nullopt;
    return crossing;
}

std::optional<Crossing> crossing_of(const std::vector<LevelReading>& readings) {
    const auto [least, most] = std::ranges::minmax(readings, {}, &LevelReading::value);
    if (!(most.value > least.value)) return std::nullopt;
    // A line tells where to look and how steep the response is there, and so how far it may bend.
    auto crossing = parabola_about(readings, readings.back().value, 1e-9 / std::pow(most.value - least.value, 2));
    for (int round = 0; round < 2 && crossing; ++round)
        crossing = parabola_about(readings, crossing->value, curvature * crossing->slope * crossing->slope / 2);
    return crossing;
}

/// One side of the target.
struct Bound {
    double value = 0, level = 0;
    bool is_sure = false;  ///< a reading; else a limit
};

class SecantSearch {
public:
    SecantSearch(const Platform& platform, const SecantRequest& request,
                 const std::function<void(const SecantProbe&)>& on_probe)
        : guard_(platform),
          globals_(guard_.platform()),
          parser_(guard_.platform()),
          request_(request),
          on_probe_(on_probe),
          instrument_(open_globals(*guard_.platform().instrument)) {
        SetpointTable& table = instrument_->setpoints();
        low_ = request.low.value_or(table.lower_limit(request.setpoint));
        high_ = request.high.value_or(table.upper_limit(request.setpoint));
        resolution_ = request.resolution.value_or(table.resolution(request.setpoint));
        require_meaning(table);
        is_whole_ = table.variable_type(request.setpoint) != contract::variable_type.real.key;
        transients_setpoint_ = globals_.GetNumTransTuneSPForCurrentSamplingRate();
        all_transients_ = globals_.GetMSSetpointValueByIdx(transients_setpoint_);
        outcome_.value = globals_.GetMSSetpointValueByIdx(request.setpoint);
        set_transients(all_transients_ / speed_up);
    }

    SecantOutcome run() {
        double next = std::clamp(outcome_.value, low_, high_);
        while (outcome_.probes.size() < most_probes) {
            if (!probe(next) && readings_.empty()) {
                // Without a peak the target lies towards more abundance.
                const double bound = more_abundance_bound(), dark = outcome_.probes.back().value;
                if (dark == bound) return ended(End::no_signal);
                next = outcome_.probes.size() > no_signal_probes ? bound : 0.5 * (dark + bound);
                continue;
            }
            close_bracket();
            if (const auto end = end_here()) return ended(*end);
            next = next_value();
        }
        return ended(End::out_of_reach);
    }

private:
    void require_meaning(SetpointTable& table) const {
        if (!(request_.target > 0)) refuse(fmt::format("target {} is not above 0", request_.target));
        if (!(request_.relative_tolerance > 0))
            refuse(fmt::format("tolerance {} is not above 0", request_.relative_tolerance));
        if (!(resolution_ > 0)) refuse(fmt::format("resolution {} is not above 0", resolution_));
        const double least = table.lower_limit(request_.setpoint), most = table.upper_limit(request_.setpoint);
        if (!(low_ < high_ && low_ >= least && high_ <= most))
            refuse(fmt::format("bounds {} to {} do not lie within the setpoint's, {} to {}", low_, high_, least, most));
    }

    /// The direction of the setpoint in which abundance grows: 1 or -1.
    double upwards() const { return request_.lower_value_reduces_abundance ? 1 : -1; }
    double more_abundance_bound() const { return request_.lower_value_reduces_abundance ? high_ : low_; }
    double less_abundance_bound() const { return request_.lower_value_reduces_abundance ? low_ : high_; }

    void set_transients(double transients) {
        transients_ = std::clamp(std::round(transients), 1.0, all_transients_);
        globals_.SetMSSetpointValueByIdx(transients_setpoint_, transients_);
    }

    double settable(double value) const { return std::clamp(is_whole_ ? std::round(value) : value, low_, high_); }

    /// Whether there is a peak.
    bool probe(double wanted) {
        const double value = settable(wanted), scale = all_transients_ / transients_;
        globals_.SetMSSetpointValueByIdx(request_.setpoint, value);
        const MeasuredCalibrant peak =
            measure_calibrants(parser_, globals_, VariantArray<double>({request_.mz})).front();
        SecantProbe probe{value, transients_, scale * peak.ns.pkHeight, 0};
        probe.standard_error =
            peak.standard_errors ? scale * peak.standard_errors->height : unknown_relative_error * probe.abundance;
        outcome_.probes.push_back(probe);
        if (on_probe_) on_probe_(probe);
        if (probe.abundance > 0)
            readings_.push_back({value, std::log(probe.abundance / request_.target),
                                 probe.standard_error / probe.abundance, transients_});
        else if (!readings_.empty() && (!dark_ || upwards() * (value - *dark_) > 0))
            dark_ = value;
        return probe.abundance > 0;
    }

    /// The nearest readings that are surely on either side of the target; the limits where there is none.
    void close_bracket() {
        below_ = {dark_.value_or(less_abundance_bound()), -far_level, dark_.has_value()};
        above_ = {more_abundance_bound(), far_level, false};
        for (const LevelReading& reading : readings_) {
            if (std::abs(reading.level) <= sure * reading.error) continue;
            Bound& bound = reading.level < 0 ? below_ : above_;
            const double nearer = upwards() * (reading.level < 0 ? 1 : -1) * (reading.value - bound.value);
            if (nearer >= 0) bound = {reading.value, std::clamp(reading.level, -far_level, far_level), true};
        }
        nearest_ =
            *std::ranges::min_element(readings_, {}, [](const auto& reading) { return std::abs(reading.level); });
        crossing_ = crossing_of(readings_);
    }

    bool is_near() const { return std::abs(nearest_.level) < near_level; }

    /// Whether the curve crosses the target where it may be believed: near the target anywhere between the limits,
    /// since bounds that seemed sure can be wrong, and so little beyond them that they are within tolerance; else
    /// between the bounds.
    bool is_inside() const {
        if (!crossing_) return false;
        const double slope = upwards() * crossing_->slope, beyond = request_.relative_tolerance / slope;
        if (is_near())
            return slope > sure * crossing_->slope_error && crossing_->value >= low_ - beyond &&
                   crossing_->value <= high_ + beyond;
        const auto [least, most] = std::minmax(below_.value, above_.value);
        return slope > 0 && crossing_->value >= least && crossing_->value <= most;
    }

    /// Whether the last probe stands at a limit from which the target lies surely still further out.
    bool is_beyond_limit() const {
        const SecantProbe& probe = outcome_.probes.back();
        if (probe.abundance <= 0) return probe.value == more_abundance_bound();
        const LevelReading& last = readings_.back();
        return (last.value == more_abundance_bound() && last.level < -sure * last.error) ||
               (last.value == less_abundance_bound() && last.level > sure * last.error);
    }

    /// Whether another reading was surely nearer to the target, or beyond it, than the last probe, at a limit, is.
    bool falls_towards_limit() const {
        const LevelReading& last = readings_.back();
        if (outcome_.probes.back().abundance <= 0) return true;
        const double side = last.level > 0 ? 1 : -1;
        return std::ranges::any_of(readings_, [&](const LevelReading& reading) {
            return side * (last.level - reading.level) > surely_wrong * std::hypot(last.error, reading.error);
        });
    }

    std::optional<End> end_here() const {
        if (crossing_ && upwards() * crossing_->slope < -surely_wrong * crossing_->slope_error && readings_.size() > 2)
            return End::wrong_direction;
        if (is_beyond_limit()) return falls_towards_limit() ? End::wrong_direction : End::out_of_reach;
        if (!is_inside()) return std::nullopt;
        if (crossing_->error <= goal()) return End::within_tolerance;
        if (below_.is_sure && above_.is_sure && std::abs(above_.value - below_.value) <= resolution_)
            return End::resolution_reached;
        return std::nullopt;
    }

    double goal() const { return request_.relative_tolerance / 2; }

    double next_value() {
        const double few = all_transients_ / speed_up;
        if (is_near() && is_inside()) {
            const double missing = 1 / (goal() * goal()) - 1 / (crossing_->error * crossing_->error);
            set_transients(std::max(
                {few, least_part_near * all_transients_, missing_margin * missing * nearest_.variance_at_target()}));
            return crossing_->value;
        }
        const double last = outcome_.probes.back().value;
        const double level = readings_.back().level,
                     bound = level > 0 ? less_abundance_bound() : more_abundance_bound();
        if (last == bound) {
            set_transients(4 * transients_);  // whether the target lies beyond the limit is a matter of noise
            return bound;
        }
        set_transients(few);
        const double middle = 0.5 * (below_.value + above_.value);
        if (below_.is_sure && above_.is_sure) {
            const double part = std::clamp(below_.level / (below_.level - above_.level), 0.1, 0.9);
            const double value = below_.value + part * (above_.value - below_.value);
            return value == last ? middle : value;
        }
        const auto [least, most] = std::minmax(below_.value, above_.value);
        if (is_inside()) {
            const double value =
                std::clamp(crossing_->value, last - longest_step * (last - least), last + longest_step * (most - last));
            if (value != last) return value;
        }
        if (std::abs(bound - last) < beside_a_bound * (high_ - low_)) return bound;
        const double part = readings_.size() > 1
                                ? longest_step
                                : std::clamp(std::abs(level) / 2, shortest_first_step, longest_first_step);
        return last + part * (bound - last);
    }

    SecantOutcome ended(End end) {
        outcome_.end = end;
        if (!is_reached(end)) return std::move(outcome_);
        const double value = settable(crossing_->value);
        globals_.SetMSSetpointValueByIdx(request_.setpoint, value);
        guard_.keep(request_.setpoint);
        outcome_.value = value;
        outcome_.abundance = request_.target * std::exp(crossing_->slope * (value - crossing_->value));
        outcome_.standard_error = outcome_.abundance * crossing_->error;
        return std::move(outcome_);
    }

    Restoring guard_;
    TuneGlobals globals_;
    SpectrumParser parser_;
    const SecantRequest& request_;
    const std::function<void(const SecantProbe&)>& on_probe_;
    std::unique_ptr<InstrumentGlobals> instrument_;
    double low_ = 0, high_ = 0, resolution_ = 0;
    std::int32_t transients_setpoint_ = 0;
    double all_transients_ = 0, transients_ = 0;
    bool is_whole_ = false;  // the setpoint takes whole numbers only
    std::vector<LevelReading> readings_;
    std::optional<double> dark_;  // the value nearest to the target that showed no peak
    Bound below_, above_;         // bracket of the crossing
    LevelReading nearest_;        // to the target
    std::optional<Crossing> crossing_;
    SecantOutcome outcome_;
};

}  // namespace

const char* name_of(SecantOutcome::End end) noexcept {
    constexpr std::array names{"within tolerance", "resolution reached", "no signal at this mass", "out of reach",
                               "wrong direction"};
    return names[static_cast<std::size_t>(end)];
}

SecantOutcome adjust_by_secant(const Platform& platform, const SecantRequest& request,
                               const std::function<void(const SecantProbe&)>& on_probe) {
    return SecantSearch(platform, request, on_probe).run();
}

}  // namespace korvane
