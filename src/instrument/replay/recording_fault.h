// Errors of the room: each names the file and, where there is one, the spectrum.
#pragma once

#include <string>

#include "korvane/error.h"

namespace korvane::replay {

/// Where in a recording something is wrong.
struct RecordingPlace {
    std::string file;
    std::string spectrum_id;  ///< empty for the file as a whole

    /// Raises error -904 from "RecordingReader": "recording [file], spectrum [id]: what".
    [[noreturn]] void fail(const std::string& what) const {
        std::string where = "recording [" + file + "]";
        if (!spectrum_id.empty()) where += ", spectrum [" + spectrum_id + "]";
        throw Error(error_number::file_or_element, "RecordingReader", where + ": " + what);
    }
};

}  // namespace korvane::replay
