#include "peers.h"

#include <OpenMS/KERNEL/MSSpectrum.h>
#include <OpenMS/TRANSFORMATIONS/RAW2PEAK/PeakPickerHiRes.h>

#include "pwiz/analysis/common/LocalMaximumPeakDetector.hpp"

namespace korvane::bench {

struct OpenMsPeer::State {
    OpenMS::PeakPickerHiRes picker;
    OpenMS::MSSpectrum spectrum;
};

OpenMsPeer::OpenMsPeer(const std::vector<double>& masses, const std::vector<double>& intensities) : state_(new State) {
    for (std::size_t i = 0; i < masses.size(); ++i)
        state_->spectrum.emplace_back(masses[i], static_cast<float>(intensities[i]));
}

OpenMsPeer::~OpenMsPeer() {
    delete state_;
}

std::size_t OpenMsPeer::pick() const {
    OpenMS::MSSpectrum picked;
    state_->picker.pick(state_->spectrum, picked);
    return picked.size();
}

std::size_t pick_local_maxima(const std::vector<double>& masses, const std::vector<double>& intensities) {
    pwiz::analysis::LocalMaximumPeakDetector detector(3);
    std::vector<double> positions, heights;
    detector.detect(masses, intensities, positions, heights);
    return positions.size();
}

}  // namespace korvane::bench
