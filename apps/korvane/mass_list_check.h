// What a calibrant list must be, for the routines that use it to work.
#pragma once

#include <string>
#include <vector>

#include "korvane/listing.h"

namespace korvane::program {

/// The faults of a list, a sentence each: masses that are no positive numbers, not ascending, fewer than the four that
/// a valid calibrant spectrum needs.
std::vector<std::string> mass_list_faults(const ListedMassList& list);

}  // namespace korvane::program
