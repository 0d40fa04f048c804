// Mean and spread of numbers.
#pragma once

#include <algorithm>
#include <cmath>

namespace korvane {

class Spread {
public:
    void add(double value) {
        number_ += 1;
        sum_ += value;
        square_sum_ += value * value;
    }
    double mean() const { return sum_ / number_; }
    double variance() const { return std::max(0.0, (square_sum_ - sum_ * sum_ / number_) / (number_ - 1)); }
    double deviation() const { return std::sqrt(variance()); }

private:
    double number_ = 0, sum_ = 0, square_sum_ = 0;
};

}  // namespace korvane
