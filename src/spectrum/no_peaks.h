// The one measuring error that callers may take for an answer.
#pragma once

#include <string_view>

#include "korvane/error.h"

namespace korvane {

inline constexpr std::string_view no_peaks_description = "No peaks returned by peakfinder";

inline bool means_no_peaks(const Error& error) {
    return error.description() == no_peaks_description;
}

}  // namespace korvane
