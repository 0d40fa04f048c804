#include "instrument/replay/least_squares.h"

#include <cmath>
#include <cstddef>
#include <numeric>

namespace korvane::replay {

namespace {

using Column = std::vector<double>;

double product(const Column& a, const Column& b) {
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

void subtract(Column& from, double factor, const Column& column) {
    for (std::size_t i = 0; i < from.size(); ++i) from[i] -= factor * column[i];
}

}  // namespace

std::vector<double> least_squares(const std::vector<Column>& columns, const std::vector<double>& values) {
    constexpr double dependent = 1e-13;
    const std::size_t count = columns.size();
    std::vector<Column> orthogonal;
    std::vector<Column> triangle(count, Column(count));  // triangle[j][i]: share of orthogonal i in column j
    Column shares(count);
    Column rest = values;
    for (std::size_t j = 0; j < count; ++j) {
        Column column = columns[j];
        const double length = std::sqrt(product(column, column));
        for (int pass = 0; pass < 2; ++pass) {
            for (std::size_t i = 0; i < j; ++i) {
                const double share = product(orthogonal[i], column);
                triangle[j][i] += share;
                subtract(column, share, orthogonal[i]);
            }
        }
        const double left = std::sqrt(product(column, column));
        const bool independent = left > dependent * length;
        for (double& value : column) value = independent ? value / left : 0;
        triangle[j][j] = independent ? left : 0;
        shares[j] = product(column, rest);
        subtract(rest, shares[j], column);
        orthogonal.push_back(std::move(column));
    }
    std::vector<double> coefficients(count);
    for (std::size_t j = count; j-- > 0;) {
        double share = shares[j];
        for (std::size_t k = j + 1; k < count; ++k) share -= triangle[k][j] * coefficients[k];
        coefficients[j] = triangle[j][j] == 0 ? 0 : share / triangle[j][j];
    }
    return coefficients;
}

}  // namespace korvane::replay
