// The file that keeps the instrument's state, if there is one.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "instrument/simulator/scene.h"
#include "platform/files.h"

namespace korvane::simulation {

/// Reads a whole file; error -904 naming it as the file of `what` where that fails.
std::string read_named_file(Files& files, const std::string& path, const std::string& what);

class StateFile {
public:
    StateFile(std::shared_ptr<Files> files, std::shared_ptr<Clock> clock, std::optional<std::string> path)
        : files_(std::move(files)), clock_(std::move(clock)), path_(std::move(path)) {}

    /// Nothing where no file is kept or it does not exist yet. Errors as `parse_state`, and -904 where it cannot be
    /// read.
    std::optional<InstrumentState> load() const;
    /// Under the lock of the file's editors, puts in the place of what the file holds now what `merged` makes of it.
    /// Does nothing where no file is kept. Errors as `load`, and naming the file where it cannot be saved.
    void update(const std::function<InstrumentState(const std::optional<InstrumentState>& present)>& merged) const;

private:
    std::shared_ptr<Files> files_;
    std::shared_ptr<Clock> clock_;
    std::optional<std::string> path_;
};

}  // namespace korvane::simulation
