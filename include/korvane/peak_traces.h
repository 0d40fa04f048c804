// Keeps the samples that peaks are searched in, for pictures.
#pragma once

#include <memory>
#include <vector>

#include "korvane/platform.h"
#include "korvane/tune_record.h"

namespace korvane {

/// Classes that are made on `platform()` act on the same instrument as ever; of every search of a peak finder the
/// samples of the window are kept, and what was fitted to them. Not for several threads at once.
class KORVANE_API PeakTraces {
public:
    /// Makes nothing and asks the instrument nothing.
    explicit PeakTraces(const Platform& platform);

    const Platform& platform() const { return platform_; }
    /// One trace a search, in their order; they are forgotten here. Of `SpectrumParser::GetPeakInfoForCalibrantMasses`
    /// that is one a mass. A window of more than 4096 samples is cut to those around its highest peak.
    std::vector<PeakTrace> take();
    /// Takes them as those of the calibrants; of another number of searches nothing is given.
    void give_to(std::vector<RecordedCalibrant>& calibrants);

private:
    std::shared_ptr<std::vector<PeakTrace>> kept_;
    Platform platform_;
};

}  // namespace korvane
