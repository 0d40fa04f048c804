// Shows an abundance search while it runs: a bar on a terminal, a line a probe elsewhere.
#pragma once

#include "korvane/spectrum_parser.h"
#include "session.h"

namespace korvane::program {

class AdjustProgress {
public:
    /// `range` is the width of the bracket at the start, `resolution` the width at which the search ends.
    AdjustProgress(Session& session, double range, double resolution)
        : session_(session), range_(range), resolution_(resolution) {}
    /// Ends the bar's line.
    ~AdjustProgress();
    AdjustProgress(const AdjustProgress&) = delete;
    AdjustProgress& operator=(const AdjustProgress&) = delete;

    void show(const AdjustProbe& probe);

private:
    Session& session_;
    double range_, resolution_;
    bool bar_shown_ = false;
};

}  // namespace korvane::program
