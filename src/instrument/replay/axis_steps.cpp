#include "instrument/replay/axis_steps.h"

#include <Eigen/QR>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace korvane::replay {

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr std::int64_t hole = 0;  // a distance whose steps are not counted yet

/// Smallest typical distance among the first samples; holes only make distances larger.
double first_step(std::span<const double> roots) {
    std::vector<double> distances;
    for (std::size_t i = 1; i < std::min<std::size_t>(roots.size(), 201); ++i)
        distances.push_back(roots[i] - roots[i - 1]);
    const auto tenth = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 10);
    std::nth_element(distances.begin(), tenth, distances.end());
    return *tenth;
}

/// Marks distances of a single step with 1, following the step as it drifts; all others are holes.
std::vector<std::int64_t> single_steps(std::span<const double> roots) {
    constexpr double follow = 0.05;
    double step = first_step(roots);
    std::vector<std::int64_t> counts(roots.size() - 1, hole);
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const double distance = roots[i + 1] - roots[i];
        if (distance > 1.5 * step) continue;
        counts[i] = 1;
        step += follow * (distance - step);
    }
    return counts;
}

/// A stretch without holes.
struct Stretch {
    double from, to;  // roots
    double steps;
};

struct Prediction {
    double steps;
    double uncertainty;
};

class HoleCounter {
public:
    HoleCounter(std::span<const double> roots, std::int64_t limit)
        : roots_(roots), limit_(static_cast<double>(limit)), counts_(single_steps(roots)) {
        for (std::size_t i = 0; i < counts_.size(); ++i)
            if (counts_[i] == hole) holes_.push_back(i);
        predictions_left_ = 16 * holes_.size() + 1000;
    }

    std::vector<std::int64_t> count() {
        for (const double allowed : {0.05, 0.1, 0.2, 0.4, infinite})
            while (fill_certain(predictions_left_ > holes_.size() ? allowed : infinite)) {
            }
        std::vector<std::int64_t> positions(roots_.size());
        for (std::size_t i = 0; i < counts_.size(); ++i) positions[i + 1] = positions[i] + counts_[i];
        return positions;
    }

private:
    /// Fills the holes whose number is certain enough; true when there may be more of them now.
    bool fill_certain(double allowed) {
        predictions_left_ -= std::min(predictions_left_, holes_.size());
        const auto filled = std::remove_if(holes_.begin(), holes_.end(), [&](std::size_t at) {
            const Prediction predicted = predict(at);
            if (predicted.uncertainty > allowed) return false;
            counts_[at] = std::llround(std::clamp(predicted.steps, 1.0, limit_));
            return true;
        });
        const bool any = filled != holes_.end();
        holes_.erase(filled, holes_.end());
        return any && !holes_.empty();
    }

    /// Twice, with polynomials of neighbouring degree: their difference, and the distance from a whole number, tell how
    /// certain the prediction is.
    Prediction predict(std::size_t at) const {
        const std::vector<Stretch> near = neighbourhood(at);
        if (near.empty()) return {1, infinite};
        const auto count = static_cast<Eigen::Index>(near.size());
        const Eigen::Index degree = std::clamp<Eigen::Index>(count / 3, 1, 4);
        const double steps = steps_in_hole(at, near, degree);
        const double other = steps_in_hole(at, near, degree > 1 ? degree - 1 : std::min<Eigen::Index>(count, 2));
        const double uncertainty = std::abs(steps - other) + std::abs(steps - std::round(steps));
        return std::isfinite(uncertainty) ? Prediction{steps, uncertainty} : Prediction{1, infinite};
    }

    /// Stretches to both sides, the longer and the farther the longer the hole is.
    std::vector<Stretch> neighbourhood(std::size_t at) const {
        std::vector<Stretch> near;
        collect(at, at, -1, near);
        collect(at, at + 1, +1, near);
        return near;
    }

    void collect(std::size_t at, std::size_t from, int direction, std::vector<Stretch>& near) const {
        constexpr std::size_t most = 24;
        constexpr std::size_t enough = 6;
        const double width = roots_[at + 1] - roots_[at];
        const std::size_t end = direction > 0 ? roots_.size() - 1 : 0;
        const std::size_t before = near.size();
        for (std::size_t i = from; i != end && near.size() - before < most;) {
            const std::size_t to = end_of_stretch(i, end, direction, width / 8);
            if (to != i) near.push_back(stretch(std::min(i, to), std::max(i, to)));
            i = to != i ? to : neighbour(i, direction);  // where nothing is counted, over the hole
            const bool is_far = std::abs(roots_[i] - roots_[from]) > 6 * width;
            if (is_far && near.size() - before >= enough) return;
        }
    }

    static std::size_t neighbour(std::size_t i, int direction) { return direction > 0 ? i + 1 : i - 1; }

    std::size_t end_of_stretch(std::size_t from, std::size_t end, int direction, double longest) const {
        std::size_t i = from;
        while (i != end && counts_[std::min(i, neighbour(i, direction))] != hole &&
               (i == from || std::abs(roots_[i] - roots_[from]) < longest))
            i = neighbour(i, direction);
        return i;
    }

    Stretch stretch(std::size_t from, std::size_t to) const {
        double steps = 0;
        for (std::size_t i = from; i < to; ++i) steps += static_cast<double>(counts_[i]);
        return {roots_[from], roots_[to], steps};
    }

    /// The number of steps up to a root as a polynomial of the root: its differences over the stretches are known, that
    /// over the hole is sought.
    double steps_in_hole(std::size_t at, const std::vector<Stretch>& near, Eigen::Index degree) const {
        const double middle = 0.5 * (roots_[at] + roots_[at + 1]);
        double reach = roots_[at + 1] - middle;
        for (const Stretch& s : near) reach = std::max({reach, middle - s.from, s.to - middle});
        const auto differences = [&](double from, double to) {
            Eigen::RowVectorXd powers(degree);
            for (Eigen::Index p = 0; p < degree; ++p)
                powers[p] = std::pow((to - middle) / reach, p + 1) - std::pow((from - middle) / reach, p + 1);
            return powers;
        };
        const auto count = static_cast<Eigen::Index>(near.size());
        Eigen::MatrixXd columns(count, degree);
        Eigen::VectorXd steps(count);
        for (Eigen::Index i = 0; i < count; ++i) {
            const Stretch& stretch = near[static_cast<std::size_t>(i)];
            columns.row(i) = differences(stretch.from, stretch.to);
            steps[i] = stretch.steps;
        }
        return differences(roots_[at], roots_[at + 1]).dot(least_squares(columns, steps));
    }

    std::span<const double> roots_;
    double limit_;
    std::vector<std::int64_t> counts_;
    std::vector<std::size_t> holes_;
    std::size_t predictions_left_ = 0;  // so that the work grows no faster than the number of holes
};

}  // namespace

Eigen::VectorXd least_squares(const Eigen::MatrixXd& columns, const Eigen::VectorXd& values) {
    constexpr double dependent = 1e-13;
    const Eigen::VectorXd lengths = columns.colwise().norm().cwiseMax(std::numeric_limits<double>::min());
    Eigen::ColPivHouseholderQR<Eigen::MatrixXd> solver(columns * lengths.cwiseInverse().asDiagonal());
    solver.setThreshold(dependent);
    return solver.solve(values).cwiseQuotient(lengths);
}

std::vector<std::int64_t> count_steps(std::span<const double> roots, std::int64_t limit) {
    return HoleCounter(roots, limit).count();
}

}  // namespace korvane::replay
