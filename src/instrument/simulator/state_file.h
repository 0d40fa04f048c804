// The file that keeps the instrument's state, if there is one.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "instrument/simulator/instrument_state.h"
#include "platform/files.h"

namespace korvane::simulation {

/// Reads a whole file; error -904 naming it where that fails.
std::string read_named_file(Files& files, const std::string& path, const std::string& what);

class StateFile {
public:
    StateFile(std::shared_ptr<Files> files, std::optional<std::string> path)
        : files_(std::move(files)), path_(std::move(path)) {}

    bool is_kept() const { return path_.has_value(); }
    /// Nothing where no file is kept or it does not exist yet. Errors as `parse_state`, and -904 where it cannot be
    /// read.
    std::optional<InstrumentState> load();
    /// Saves, unless the file already says the same. Error naming the file where that fails.
    void save(const InstrumentState& state);

private:
    std::shared_ptr<Files> files_;
    std::optional<std::string> path_;
    std::string saved_text_;
};

}  // namespace korvane::simulation
