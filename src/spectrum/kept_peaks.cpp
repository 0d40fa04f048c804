#include "spectrum/kept_peaks.h"

#include <algorithm>
#include <numeric>

namespace korvane {

namespace {

class KeptPeaks final : public PeakList {
public:
    KeptPeaks(PeakListObject all, std::int32_t most)
        : all_(std::move(all)), kept_(static_cast<std::size_t>(all_->count())) {
        std::iota(kept_.begin(), kept_.end(), 0);
        order(height_position, 0);
        kept_.resize(static_cast<std::size_t>(most));
        std::sort(kept_.begin(), kept_.end());
    }

    std::int32_t count() const override { return static_cast<std::int32_t>(kept_.size()); }
    void order(std::int32_t position, std::int32_t direction) override {
        const auto value = [&](std::int32_t index) { return all_->GetPeakAttributeInfo(index, true).value(position); };
        std::stable_sort(kept_.begin(), kept_.end(), [&](std::int32_t a, std::int32_t b) {
            return direction == 0 ? value(a) > value(b) : value(a) < value(b);
        });
    }
    PeakInfo GetPeakAttributeInfo(std::int32_t index, bool current_units) const override {
        return all_->GetPeakAttributeInfo(kept(index), current_units);
    }
    void convert(const MassTimeCalibration& calibration, std::int32_t mode) override {
        all_->convert(calibration, mode);
    }
    std::optional<PeakUncertainty> uncertainty(std::int32_t index) const override {
        return all_->uncertainty(kept(index));
    }
    std::optional<PeakQuality> quality(std::int32_t index) const override { return all_->quality(kept(index)); }

private:
    std::int32_t kept(std::int32_t index) const {
        if (index < 0 || index >= count())
            raise_runtime_fault(error_number::subscript, "peak " + std::to_string(index));
        return kept_[static_cast<std::size_t>(index)];
    }

    PeakListObject all_;              // never reordered
    std::vector<std::int32_t> kept_;  // indexes in `all_`
};

}  // namespace

PeakListObject most_abundant_peaks(PeakListObject all, std::int32_t most) {
    return std::make_shared<KeptPeaks>(std::move(all), most);
}

}  // namespace korvane
