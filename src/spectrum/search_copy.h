// The 32-bit copy of a spectrum that the peak finder searches.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "korvane/records.h"

namespace korvane {

/// Integers (halves to even) of a spectrum's samples. The copy of the spectrum taken last is kept: taking the same one
/// again costs nothing.
class SearchCopy {
public:
    /// Takes the samples from index 0 on. Error 13 for no array, 9 for an array without an element 0, 6 naming the
    /// first sample that has no 32-bit integer (a NaN, too); after an error there is no copy.
    void take(const VariantArray<double>& samples);

    /// Lets go of the spectrum, not of the memory of its copy.
    void release() { source_ = {}; }

    std::span<const std::int32_t> counts() const { return counts_; }
    /// The largest sample of the spectrum that was taken and not let go; looked for at every call.
    double maximum() const;

private:
    VariantArray<double> source_;  // holding it is what makes the comparison of storages safe
    std::span<const double> searched_;
    std::vector<std::int32_t> counts_;
};

}  // namespace korvane
