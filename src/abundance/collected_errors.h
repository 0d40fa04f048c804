// Statements that go on after an error, with the error kept for later.
#pragma once

#include <optional>

#include "frame/routine.h"
#include "spectrum/no_peaks.h"

namespace korvane {

/// Keeps the last error, but never lets a mere absence of peaks hide another one.
class CollectedErrors {
public:
    template <class Statement>
    void collect(Statement&& statement) {
        try {
            statement();
        } catch (...) {
            keep(current_error());
        }
    }

    /// The error to raise; none where nothing failed or no more than peaks were missing.
    const Error* serious() const { return pending_ && !means_no_peaks(*pending_) ? &*pending_ : nullptr; }

private:
    void keep(Error error) {
        if (!serious() || !means_no_peaks(error)) pending_ = std::move(error);
    }

    std::optional<Error> pending_;
};

}  // namespace korvane
