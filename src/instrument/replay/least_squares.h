// Linear least squares for a handful of columns.
#pragma once

#include <vector>

namespace korvane::replay {

/// The coefficients of `columns` whose sum comes nearest to `values` in the sense of least squares; all columns are as
/// long as `values`. By orthogonalisation (Gram-Schmidt, done twice), so that columns that are nearly alike do no harm;
/// a column that depends on those before it gets the coefficient 0.
std::vector<double> least_squares(const std::vector<std::vector<double>>& columns, const std::vector<double>& values);

}  // namespace korvane::replay
