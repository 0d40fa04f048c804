#include "korvane/secant_search.h"

#include <fmt/format.h>

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>

#include "korvane/calibrants.h"
#include "korvane/error.h"
#include "korvane/restoring.h"

namespace korvane {

namespace {

using End = SecantOutcome::End;

/// Standard errors by which a reading must lie beside the target to move a bound.
constexpr double sure = 2;
/// The logarithm of a response bends: its second derivative over the square of the first is of this size (1/2 for a
/// proportional response, 0 for an exponential one).
constexpr double curvature = 1.5;
/// What a parabola leaves of it, per cube of the logarithm.
constexpr double beyond_parabola = 0.3;
/// Logarithm of the abundance over the target within which a reading is near enough to end the search with the next.
constexpr double near = 0.2;
/// Part of the way to a bound that a step goes at most on the word of the line alone.
constexpr double longest_step = 0.6;
/// Without a stated error a reading is taken for one of a tenth.
constexpr double unknown_relative_error = 0.1;
/// More probes than any response needs that a search can end on.
constexpr std::size_t most_probes = 40;
/// Halvings towards more abundance before its bound is tried.
constexpr std::size_t no_signal_probes = 3;

[[noreturn]] void refuse(const std::string& why) {
    throw Error(error_number::invalid_call, "adjust_by_secant", why, ErrorKind::usage);
}

/// Logarithm of abundance over target against the setpoint's value.
struct LevelReading {
    double value = 0, level = 0, error = 0;
    double variance() const { return error * error + std::pow(beyond_parabola * level * level * level, 2); }
};

/// A weighted curve through the readings: where it crosses the target, and the error of the logarithm there.
struct Crossing {
    double value = 0, error = 0;
    double slope = 0, slope_error = 0;
    double nearest = 0;  ///< distance of the nearest reading
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
    if (!crossing) return std::nullopt;
    crossing->nearest = std::abs(least.value - crossing->value);
    for (const LevelReading& reading : readings)
        crossing->nearest = std::min(crossing->nearest, std::abs(reading.value - crossing->value));
    return crossing;
}

class SecantSearch {
public:
    SecantSearch(const Platform& platform, const SecantRequest& request,
                 const std::function<void(const SecantProbe&)>& on_probe)
        : guard_(platform),
          globals_(guard_.platform()),
          parser_(guard_.platform()),
          request_(request),
          on_probe_(on_probe),
          instrument_(guard_.platform().instrument->create_globals()) {
        instrument_->initialise();
        SetpointTable& table = instrument_->setpoints();
        low_ = request.low.value_or(table.lower_limit(request.setpoint));
        high_ = request.high.value_or(table.upper_limit(request.setpoint));
        resolution_ = request.resolution.value_or(table.resolution(request.setpoint));
        require_meaning(table);
        transients_setpoint_ = globals_.GetNumTransTuneSPForCurrentSamplingRate();
        all_transients_ = globals_.GetMSSetpointValueByIdx(transients_setpoint_);
        outcome_.value = globals_.GetMSSetpointValueByIdx(request.setpoint);
        set_transients(all_transients_ / request.speed_up_factor);
    }

    SecantOutcome run() {
        const double entry = outcome_.value;
        double next = std::clamp(entry, low_, high_);
        while (outcome_.probes.size() < most_probes) {
            probe(next);
            if (readings_.empty() || readings_.back().value != outcome_.probes.back().value) {
                // Without a peak the target lies towards more abundance.
                const double bound = more_abundance_bound();
                if (readings_.empty() && outcome_.probes.back().value == bound) return failed(End::no_signal, entry);
                if (readings_.empty()) {
                    next = outcome_.probes.size() > no_signal_probes ? bound : 0.5 * (next + bound);
                    continue;
                }
                dark_ = upwards() * (next - dark_.value_or(next)) >= 0 ? next : *dark_;
                close_bracket();
                next = 0.5 * (below_ + readings_.back().value);
                continue;
            }
            if (const auto end = end_here())
                return *end == End::within_tolerance || *end == End::resolution_reached ? succeeded(*end)
                                                                                        : failed(*end, entry);
            next = next_value();
        }
        return failed(End::out_of_reach, entry);
    }

private:
    void require_meaning(SetpointTable& table) const {
        if (!(request_.target > 0)) refuse(fmt::format("target {} is not above 0", request_.target));
        if (!(request_.relative_tolerance > 0))
            refuse(fmt::format("tolerance {} is not above 0", request_.relative_tolerance));
        if (!(request_.speed_up_factor >= 1))
            refuse(fmt::format("speed-up factor {} is below 1", request_.speed_up_factor));
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

    void probe(double value) {
        // A step that its predecessor already stands on is a further reading.
        const double stepped = std::clamp(low_ + std::round((value - low_) / resolution_) * resolution_, low_, high_);
        globals_.SetMSSetpointValueByIdx(request_.setpoint, stepped);
        const MeasuredCalibrant peak =
            measure_calibrants(parser_, globals_, VariantArray<double>({request_.mz})).front();
        const double scale = all_transients_ / transients_;
        SecantProbe probe{stepped, transients_, scale * peak.ns.pkHeight, 0};
        probe.standard_error =
            peak.standard_errors ? scale * peak.standard_errors->height : unknown_relative_error * probe.abundance;
        if (probe.abundance > 0)
            readings_.push_back(
                {stepped, std::log(probe.abundance / request_.target), probe.standard_error / probe.abundance});
        outcome_.probes.push_back(probe);
        if (on_probe_) on_probe_(probe);
    }

    /// The nearest readings that are surely on either side of the target; the bounds where there is none.
    void close_bracket() {
        below_ = dark_.value_or(less_abundance_bound());
        above_ = more_abundance_bound();
        below_is_sure_ = dark_.has_value();
        above_is_sure_ = false;
        for (const LevelReading& reading : readings_) {
            const bool nearer_below = upwards() * (reading.value - below_) >= 0;
            const bool nearer_above = upwards() * (above_ - reading.value) >= 0;
            if (reading.level < -sure * reading.error && nearer_below) {
                below_ = reading.value;
                below_is_sure_ = true;
            }
            if (reading.level > sure * reading.error && nearer_above) {
                above_ = reading.value;
                above_is_sure_ = true;
            }
        }
    }

    std::optional<End> end_here() {
        close_bracket();
        crossing_ = crossing_of(readings_);
        const LevelReading& last = readings_.back();
        if (crossing_ && upwards() * crossing_->slope < -sure * crossing_->slope_error && readings_.size() > 2)
            return End::wrong_direction;
        // A bound from which the target lies still further out.
        if (last.value == more_abundance_bound() && last.level < -sure * last.error) return End::out_of_reach;
        if (last.value == less_abundance_bound() && last.level > sure * last.error) return End::out_of_reach;
        const double goal = request_.relative_tolerance / 2;
        if (is_inside() && crossing_->error <= goal) return End::within_tolerance;
        if (below_is_sure_ && above_is_sure_ && std::abs(above_ - below_) <= 1.5 * resolution_)
            return End::resolution_reached;
        return std::nullopt;
    }

    bool is_inside() const {
        return crossing_ && upwards() * crossing_->slope > 0 && crossing_->value >= low_ && crossing_->value <= high_;
    }

    /// So many transients that one reading at the crossing ends the search: the error falls with their root.
    void take_what_is_missing() {
        const double goal = request_.relative_tolerance / 2;
        const double missing = 1 / (goal * goal) - 1 / (crossing_->error * crossing_->error);
        const double of_one = 1 / (readings_.back().error * readings_.back().error * transients_);
        set_transients(std::max(missing / of_one, all_transients_ / request_.speed_up_factor));
    }

    double next_value() {
        const LevelReading& last = readings_.back();
        if (is_inside() && std::abs(crossing_->slope) * crossing_->nearest < near) take_what_is_missing();
        if (readings_.size() > 1 && crossing_ && upwards() * crossing_->slope > 0) {
            const double least = std::min(below_, above_), most = std::max(below_, above_);
            if (crossing_->value > least && crossing_->value < most)
                return std::clamp(crossing_->value, last.value - longest_step * (last.value - least),
                                  last.value + longest_step * (most - last.value));
            // Beyond a reading that was sure the line is not to be trusted; beyond a mere limit the limit tells.
            if (below_is_sure_ && above_is_sure_) return 0.5 * (least + most);
            const double bound = upwards() * (crossing_->value - last.value) > 0 ? above_ : below_;
            if (std::abs(bound - last.value) < 0.1 * (high_ - low_)) return bound;
            return last.value + longest_step * (bound - last.value);
        }
        // The first step: the further, the further off the target.
        const double bound = last.level > 0 ? less_abundance_bound() : more_abundance_bound();
        const double part = std::clamp(std::abs(last.level) / 2, 0.15, 0.5);
        return last.value + part * (bound - last.value);
    }

    SecantOutcome succeeded(End end) {
        double value = std::clamp(crossing_->value, low_, high_);
        value = std::clamp(low_ + std::round((value - low_) / resolution_) * resolution_, low_, high_);
        globals_.SetMSSetpointValueByIdx(request_.setpoint, value);
        guard_.keep(request_.setpoint);
        outcome_.end = end;
        outcome_.value = value;
        outcome_.abundance = request_.target * std::exp(crossing_->slope * (value - crossing_->value));
        outcome_.standard_error = outcome_.abundance * crossing_->error;
        return std::move(outcome_);
    }

    SecantOutcome failed(End end, double entry) {
        outcome_.end = end;
        outcome_.value = entry;
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
    std::vector<LevelReading> readings_;
    std::optional<double> dark_;    // the value nearest to the target that showed no peak
    double below_ = 0, above_ = 0;  // bracket of the crossing
    bool below_is_sure_ = false, above_is_sure_ = false;
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
