// Counts the sampling steps of an m/z axis before its law is known.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <span>
#include <vector>

namespace korvane::replay {

/// The coefficients of `columns` whose sum comes nearest to `values` in the sense of least squares. By
/// orthogonalisation, so that columns that are nearly alike do no harm; one that depends on others gets the coefficient
/// 0.
Eigen::VectorXd least_squares(const Eigen::MatrixXd& columns, const Eigen::VectorXd& values);

/// Position of every sample, counted in sampling steps from the first one, 0. `roots` are the square roots of the m/z,
/// ascending, at least two; by the square law they lie almost evenly, with holes where samples were left out. The steps
/// of a hole follow from the neighbourhood, where the number of steps is a smooth function of the root; holes whose
/// number is certain are counted first and make the neighbourhood of the others larger. An axis that is not even gives
/// positions that no law meets: the caller checks. Holes longer than `limit` steps count as `limit`.
std::vector<std::int64_t> count_steps(std::span<const double> roots, std::int64_t limit);

}  // namespace korvane::replay
