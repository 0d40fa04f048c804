// Division by the rules of automation.
#pragma once

#include "korvane/error.h"

namespace korvane {

/// Error 11 when the divisor is 0.
inline double checked_quotient(double value, double divisor) {
    if (divisor == 0) raise_runtime_fault(error_number::division_by_zero);
    return value / divisor;
}

}  // namespace korvane
