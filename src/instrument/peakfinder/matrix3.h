// The little linear algebra of a fit of three parameters.
#pragma once

#include <array>
#include <cstddef>

namespace korvane {

using Vector3 = std::array<double, 3>;
using Matrix3 = std::array<Vector3, 3>;

/// Inverse of a symmetric positive definite matrix; false when it is not.
inline bool invert(const Matrix3& m, Matrix3& inverse) {
    const double c00 = m[1][1] * m[2][2] - m[1][2] * m[1][2];
    const double c01 = m[0][2] * m[1][2] - m[0][1] * m[2][2];
    const double c02 = m[0][1] * m[1][2] - m[0][2] * m[1][1];
    const double determinant = m[0][0] * c00 + m[0][1] * c01 + m[0][2] * c02;
    if (!(determinant > 1e-12 * m[0][0] * m[1][1] * m[2][2])) return false;
    const double scale = 1 / determinant;
    inverse[0] = {c00 * scale, c01 * scale, c02 * scale};
    inverse[1] = {inverse[0][1], (m[0][0] * m[2][2] - m[0][2] * m[0][2]) * scale,
                  (m[0][1] * m[0][2] - m[0][0] * m[1][2]) * scale};
    inverse[2] = {inverse[0][2], inverse[1][2], (m[0][0] * m[1][1] - m[0][1] * m[0][1]) * scale};
    return true;
}

inline double inner_product(const Vector3& left, const Vector3& right) {
    return left[0] * right[0] + left[1] * right[1] + left[2] * right[2];
}

inline Vector3 product(const Matrix3& matrix, const Vector3& vector) {
    return {inner_product(matrix[0], vector), inner_product(matrix[1], vector), inner_product(matrix[2], vector)};
}

/// From the moments sum of w u^k, k = 0 to 4.
inline Matrix3 moment_matrix(const std::array<double, 5>& moments) {
    return {{{moments[0], moments[1], moments[2]},
             {moments[1], moments[2], moments[3]},
             {moments[2], moments[3], moments[4]}}};
}

}  // namespace korvane
