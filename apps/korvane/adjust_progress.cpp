#include "adjust_progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace korvane::program {

AdjustProgress::~AdjustProgress() {
    if (bar_shown_) session_.talk_stream() << std::endl;
}

void AdjustProgress::show(const AdjustProbe& probe) {
    const std::string line = fmt::format("probe {}: {:.6g} gives {:.0f}, bracket {:.6g} to {:.6g}", probe.number,
                                         probe.value, probe.abundance, probe.low, probe.high);
    if (!session_.talk_is_terminal()) {
        session_.talk(line);
        return;
    }
    // The bracket halves with every probe, so its logarithm tells how far the search has come.
    constexpr std::size_t bar_width = 24;
    const double bracket = std::max(probe.high - probe.low, resolution_);
    const double done = range_ > resolution_ ? std::log(range_ / bracket) / std::log(range_ / resolution_) : 1.0;
    const auto filled = static_cast<std::size_t>(std::clamp(done, 0.0, 1.0) * bar_width);
    session_.talk_stream() << fmt::format("\r[{}{}] {}\x1b[K", std::string(filled, '#'),
                                          std::string(bar_width - filled, '.'), line)
                           << std::flush;
    bar_shown_ = true;
}

}  // namespace korvane::program
