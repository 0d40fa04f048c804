// Peak pickers of other libraries, behind plain functions.
#pragma once

#include <cstddef>
#include <vector>

namespace korvane::bench {

/// Whole-spectrum picking; returns the number of peaks. Input conversion is not part of a call: each peer gets its own
/// kind of spectrum ready made.
class OpenMsPeer {
public:
    OpenMsPeer(const std::vector<double>& masses, const std::vector<double>& intensities);
    ~OpenMsPeer();
    std::size_t pick() const;

private:
    struct State;
    State* state_;
};

std::size_t pick_local_maxima(const std::vector<double>& masses, const std::vector<double>& intensities);

}  // namespace korvane::bench
