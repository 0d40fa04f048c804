// The steps of a search, in their order.
#pragma once

#include "instrument/peakfinder/gaussian_fit.h"
#include "korvane/embedded_parts.h"

namespace korvane {

/// In samples from the spectrum's first, and counts above the baseline.
struct FittedPeak {
    PeakFit fit;
    double start = 0;
    double end = 0;
    std::int32_t samples = 0;  ///< between start and end that rise above the noise
    double area = 0;
    double area_error = 0;
    double late_excess = 0;   ///< counts beyond two sigmas after the centre less those before it, model subtracted
    double baseline = 0;      ///< counts
    bool stands_out = true;   ///< from what chance and the wings of other peaks make
    bool alone = true;        ///< no other peak within reach
    bool overlapped = false;  ///< so near to another that they share samples that count
};

/// First indexes of the chunks of `chunk_samples` that hold a sample high above the noise, over the whole background.
/// The last chunk of a block of the background may be shorter.
std::vector<Index> chunks_above_noise(const SearchContext& context);

/// What the peaks have in common, good enough to search with: the width that makes the strongest apexes stand out most
/// from the noise. What the options give stays; the context's model is not looked at.
PeakModel coarse_model(const SearchContext& context, const PeakFinderOptions& options, std::span<const Index> chunks);

/// Looks at the chunks more closely: smooths them by a third of a peak's width, takes apexes that stand out from their
/// valleys by more than the statistics of ions and noise allow, and keeps those that are peaks against the noise and
/// against the late ions of a stronger peak before them. Start shapes in ascending order of their centres.
std::vector<PeakShape> find_candidates(const SearchContext& context, std::span<const Index> chunks);

/// From fits of the strongest candidates and their neighbours, beginning with the context's coarse model.
PeakModel refined_model(const SearchContext& context, const PeakFinderOptions& options,
                        std::span<const PeakShape> candidates);

/// Whether two are so near that they have to be fitted together.
bool share_samples(const PeakShape& left, const PeakShape& right);

/// Measures candidates in ascending order, alone where they stand alone, together where they overlap; one result each.
std::vector<FittedPeak> measure_peaks(const SearchContext& context, std::span<const PeakShape> candidates);

/// Removes peaks that do not stand out: few ions among others that are scattered about them, and tails and wings of
/// stronger peaks. What shared samples with them is measured again. `peaks` in ascending order of centres.
void remove_chance_peaks(const SearchContext& context, std::vector<FittedPeak>& peaks);

/// Finds the second of two peaks where it makes no apex of its own. A peak much wider or more lopsided than the law of
/// widths and the late ions allow may be two. It is replaced by two when two peaks of lawful width, more than a width
/// apart, describe its samples clearly better than the one wide peak does. `peaks` in ascending order of centres.
void split_overlapping_peaks(const SearchContext& context, std::vector<FittedPeak>& peaks);

}  // namespace korvane
