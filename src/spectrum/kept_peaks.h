// A peak list that shows only the most abundant peaks of another one.
#pragma once

#include <vector>

#include "korvane/peak_finder.h"

namespace korvane {

/// The `most` most abundant peaks of `all`, in the order they had there. Ties keep the earlier peak.
PeakListObject most_abundant_peaks(PeakListObject all, std::int32_t most);

}  // namespace korvane
