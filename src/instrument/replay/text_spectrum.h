// Reads a spectrum that stands in a text, a line a sample.
#pragma once

#include <string>
#include <string_view>

#include "instrument/replay/recording.h"

namespace korvane::replay {

/// m/z and counts, with blanks, tabs, a comma or a semicolon between. Empty lines, lines that begin with #, and a first
/// line of titles are passed over. Fails naming the line that is something else, and for m/z that do not ascend from
/// above 0 or are those of centroids.
Recording parse_text_spectrum(std::string_view text, const std::string& file);

}  // namespace korvane::replay
