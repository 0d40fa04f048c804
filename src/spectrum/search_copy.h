// The 32-bit copy of a spectrum that the peak finder searches.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "korvane/variant_array.h"

namespace korvane {

/// Integers (halves to even) of a spectrum's samples, and the largest sample. The copy of the spectrum taken last is
/// kept: taking the same one again costs nothing.
class SearchCopy {
public:
    /// Takes the samples from index 0 on. Error 13 for no array, 9 for an array without an element 0, 6 naming the
    /// first sample that has no 32-bit integer (a NaN, too); after an error there is no copy.
    void take(const VariantArray<double>& samples);

    /// Lets go of the spectrum, not of the memory of its copy.
    void release() { source_.reset(); }

    std::span<const std::int32_t> counts() const { return counts_; }
    double maximum() const { return maximum_; }

private:
    std::shared_ptr<const std::vector<double>> source_;  // holding it is what makes the comparison of pointers safe
    std::int32_t source_lower_bound_ = 0;
    std::vector<std::int32_t> counts_;
    double maximum_ = 0;
};

namespace conversion {

/// Both convert all of `samples` (at least one) into `counts` and return the largest sample. Independent of the
/// thread's rounding mode. Error 6.
double convert_portably(std::span<const double> samples, std::int32_t* counts);
/// The same by vector instructions where the target has them.
double convert(std::span<const double> samples, std::int32_t* counts);

}  // namespace conversion

}  // namespace korvane
