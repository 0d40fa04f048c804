#include "instrument/replay/recording.h"

#include <cmath>

namespace korvane::replay {

std::vector<std::string> Notes::lines() const {
    std::vector<std::string> all;
    for (const auto& [what, count] : counted_)
        all.push_back(count == 1 ? what : what + " (" + std::to_string(count) + " spectra)");
    return all;
}

bool is_spaced_as_profile(const std::vector<double>& mz) {
    constexpr double alike = 0.1;
    constexpr std::size_t fewest = 4;  // that tell anything
    std::size_t even = 0;
    for (std::size_t i = 2; i < mz.size(); ++i)
        even += std::abs((mz[i] - mz[i - 1]) / (mz[i - 1] - mz[i - 2]) - 1) < alike;
    return mz.size() < fewest || 2 * even >= mz.size() - 2;
}

void check_masses(const std::vector<double>& mz, const RecordingPlace& place) {
    double below = 0;
    for (std::size_t i = 0; i < mz.size(); below = mz[i++])
        if (!std::isfinite(mz[i]) || !(mz[i] > below))
            place.fail("m/z [", mz[i], "] of sample ", i, " does not lie above [", below, "]");
}

void check_intensities(const std::vector<double>& intensity, const RecordingPlace& place) {
    for (std::size_t i = 0; i < intensity.size(); ++i)
        if (!std::isfinite(intensity[i])) place.fail("intensity of sample ", i, " is not a finite number");
}

}  // namespace korvane::replay
