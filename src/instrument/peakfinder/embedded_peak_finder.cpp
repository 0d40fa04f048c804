#include "instrument/peakfinder/embedded_peak_finder.h"

#include "instrument/peakfinder/measured_peak_list.h"
#include "instrument/peakfinder/search_steps.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

using namespace method;

namespace {

/// Whether candidates found with the one model would be found with the other.
bool agree(const PeakModel& model, const PeakModel& coarse, double start_ns, double end_ns) {
    const double scatter = model.ion_variance() / coarse.ion_variance();
    if (scatter < agreeing_ion_variance_part || scatter > most_ion_variance_part) return false;
    for (const double time_ns : {start_ns, 0.5 * (start_ns + end_ns), end_ns})
        if (std::abs(coarse.width.sigma_ns(time_ns) / model.width.sigma_ns(time_ns) - 1) > agreeing_width_part)
            return false;
    return true;
}

MeasuredPeak record_of(const SearchContext& context, const FittedPeak& fitted, bool on_baseline) {
    const PeakFit& fit = fitted.fit;
    const SampleAxis& axis = context.axis;
    MeasuredPeak peak;
    PeakInfo& record = peak.record;
    const double tail = context.late_part(fit.own_sigma);
    const double sigma = fit.own_sigma / (1 + width_of_tail * tail);
    record.pkApexX = axis.time_ns(fit.shape.centre + top_of_tail * tail * sigma);
    record.pkStart = axis.time_ns(fitted.start);
    record.pkArea = fitted.area;
    record.pkCentroid = axis.time_ns(fit.shape.centre);
    record.pkWidth = fwhm_per_sigma * sigma * axis.interval_ns;
    record.pkHeight = fit.shape.height / (1 + height_of_tail * tail);
    record.pkResolution = record.pkCentroid / (2 * record.pkWidth);
    record.pkEnd = axis.time_ns(fitted.end);
    peak.uncertainty.centroid = fit.centre_error * axis.interval_ns;
    peak.uncertainty.height = fit.height_error * record.pkHeight;
    peak.uncertainty.width = fit.sigma_error * record.pkWidth;
    peak.uncertainty.area = fitted.area_error;
    peak.uncertainty.ions = std::max(0.0, fitted.area / context.model.counts_per_ion);
    peak.quality = {fit.clipped, fitted.overlapped, peak.uncertainty.ions < few_ions, fit.misfit};
    peak.signal = {fit.shape.height, record.pkCentroid, fit.shape.sigma * axis.interval_ns,
                   context.late_part(fit.shape.sigma), fitted.baseline};
    if (!on_baseline) {
        record.pkHeight += fitted.baseline;
        record.pkArea += fitted.baseline * std::max(0.0, std::floor(fitted.end) - std::ceil(fitted.start) + 1);
    }
    return peak;
}

/// Every peak of the background's range.
std::vector<FittedPeak> find_peaks_of_range(SearchContext& context, const PeakFinderOptions& options) {
    const auto chunks = chunks_above_noise(context);
    if (chunks.empty()) return {};
    context.model = coarse_model(context, options, chunks);
    auto candidates = find_candidates(context, chunks);
    if (candidates.empty() && !options.width) {
        context.model.width = {wider * context.model.width.slope, wider * context.model.width.floor_ns};
        candidates = find_candidates(context, chunks);
    }
    const PeakModel coarse = context.model;
    context.model = refined_model(context, options, candidates);
    const auto& blocks = context.background.blocks();
    const double start_ns = context.axis.time_ns(static_cast<double>(blocks.front().first));
    const double end_ns = context.axis.time_ns(static_cast<double>(blocks.back().end));
    if (!agree(context.model, coarse, start_ns, end_ns)) candidates = find_candidates(context, chunks);
    auto peaks = measure_peaks(context, candidates);
    split_overlapping_peaks(context, peaks);
    remove_chance_peaks(context, peaks);
    return peaks;
}

}  // namespace

PeakListObject EmbeddedPeakFinder::run(double start_time_ns) {
    if (!(interval_ns_ > 0) || !std::isfinite(interval_ns_))
        raise_runtime_fault(error_number::invalid_call, "sampling interval of the peak finder");
    if (!std::isfinite(start_time_ns) || std::isnan(search_start_ns_) || std::isnan(search_end_ns_))
        raise_runtime_fault(error_number::invalid_call, "search time of the peak finder");
    const StandardRounding rounding;  // the host's thread may round otherwise; the peaks are the same
    const SampleAxis axis{start_time_ns, interval_ns_};
    baseline_ = 0;
    std::vector<MeasuredPeak> peaks;
    const auto size = static_cast<double>(counts_.size());
    const double first = std::max(0.0, std::ceil(axis.sample(search_start_ns_)));
    const double end = std::min(size, std::floor(axis.sample(search_end_ns_)) + 1);
    if (!(first < end)) return std::make_shared<MeasuredPeakList>(peaks);

    const Background background(counts_, static_cast<Index>(std::max(0.0, first - context_samples)),
                                static_cast<Index>(std::min(size, end + context_samples)));
    baseline_ = background.mean_baseline(static_cast<Index>(first), static_cast<Index>(end));
    SearchContext context{counts_, axis, background};
    const auto found = find_peaks_of_range(context, options_);
    peaks.reserve(found.size());
    for (const auto& fitted : found) {
        const MeasuredPeak peak = record_of(context, fitted, baseline_removal_);
        const double centroid_ns = peak.record.pkCentroid;
        if (centroid_ns < search_start_ns_ || centroid_ns > search_end_ns_) continue;
        if (fitted.samples >= minimum_samples_) peaks.push_back(peak);
    }
    // Two that overlap may have changed places in the fit.
    const auto centroid = [](const MeasuredPeak& peak) { return peak.record.pkCentroid; };
    if (!std::ranges::is_sorted(peaks, {}, centroid)) std::ranges::stable_sort(peaks, {}, centroid);
    return std::make_shared<MeasuredPeakList>(peaks);
}

std::unique_ptr<PeakFinder> make_peak_finder(const PeakFinderOptions& options) {
    return std::make_unique<EmbeddedPeakFinder>(options);
}

}  // namespace korvane
