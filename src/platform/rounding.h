// Rounding to the nearest number, whatever the host has set for its threads.
#pragma once

#include <cfenv>
#include <cmath>

namespace korvane {

/// The nearest whole number, halves to the even one, in every rounding mode: the remainder and the difference are
/// exact.
inline double nearest_even(double value) {
    return value - std::remainder(value, 1.0);
}

/// For its life the thread rounds to nearest, halves to even, and no floating-point exception traps.
class StandardRounding {
public:
    StandardRounding() {
        std::feholdexcept(&before_);
        std::fesetround(FE_TONEAREST);
    }
    ~StandardRounding() { std::fesetenv(&before_); }
    StandardRounding(const StandardRounding&) = delete;
    StandardRounding& operator=(const StandardRounding&) = delete;

private:
    std::fenv_t before_;
};

}  // namespace korvane
