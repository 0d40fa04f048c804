// The numbers of the method, each with its reason. "Sigmas" are standard deviations of a peak, "deviations" those of
// the noise or of an estimate. "Chosen" are numbers without a derivation: the accuracy table is their evidence.
#pragma once

#include <cstddef>

namespace korvane::method {

// --- Window
inline constexpr double context_samples = 256;  ///< beside a window, looked at too: a short block of background each
/// Another search is made when the refined model's widths differ by more, or when its ions scatter so much less that
/// shallower valleys count, or so much more that chance has made peaks. Chosen.
inline constexpr double agreeing_width_part = 0.2, agreeing_ion_variance_part = 0.85, most_ion_variance_part = 2;

// --- Background
inline constexpr double least_noise_counts = 0.5;  ///< Rounding to whole counts alone makes 0.29.
/// A drift is nearly straight over a block, and peaks cover less than half of it. A window has up to four short ones.
inline constexpr std::ptrdiff_t block_samples = 4096, least_block_samples = 256, least_blocks = 4;
/// Where the level changes faster, from stretch to stretch or from block to block, by so many deviations: a slow drift
/// makes half of one. A ripple of 6,000 samples is followed to a thirtieth of its amplitude.
inline constexpr std::ptrdiff_t fine_block_samples = 512;
inline constexpr double uneven_deviations = 0.7, jump_deviations = 1, most_noise_part = 1.5;
/// A step of the level is larger, and leaves that much less in squares of deviations than a slope.
inline constexpr double step_deviations = 2.5, least_step_gain = 50;
inline constexpr std::ptrdiff_t digit_samples = 256;  ///< Looked at for what all counts are multiples of.
/// Long blocks are judged by stretches of them: a mean of 1024 samples is good to a thirtieth of the noise.
inline constexpr std::ptrdiff_t block_stretches = 4, stretch_samples = 256;
/// Sorted for the first guess of a block: its half is good to a fifth of the noise.
inline constexpr std::ptrdiff_t guess_samples = 64;
/// The shortest interval that holds half of a normal distribution of deviation 1.
inline constexpr double half_interval_width = 1.349;
/// Samples further from the baseline are peaks; what is left of a normal distribution of deviation 1 has the second.
inline constexpr double clip_deviations = 3, clipped_deviation = 0.98658;
/// Keeps distances within 32 bits.
inline constexpr double largest_clip_counts = 1e8;
/// A baseline that holds a smaller part of the samples is none; half would refuse blocks full of peaks.
inline constexpr double least_baseline_part = 0.3;
/// Clipping ends when a step moves the level by little of the noise, or does not settle. Chosen.
inline constexpr double settled_baseline_deviations = 0.3, settled_noise_part = 0.15;
inline constexpr int most_clip_steps = 10;

// --- Candidates
/// Every peak worth reporting has a sample above the deviations, one chunk in 270 of pure noise has one.
inline constexpr std::ptrdiff_t chunk_samples = 16, scanned_samples = 64;
inline constexpr double chunk_deviations = 3.5;
inline constexpr double least_signal_to_noise = 5;  ///< One in three million of pure noise.
/// Between two apexes of one peak ions make dips: a valley is deeper than so many deviations of ions and noise; far
/// from a peak noise alone counts. Chosen.
inline constexpr double least_valley_deviations = 4.5, least_rise_deviations = 3, one_peak_sigmas = 4.5;
inline constexpr double smoothing_sigmas = 0.35;  ///< Widens a peak by 6 %.
/// Square samples up to which passes of 1/4, 1/2, 1/4 are quicker than running means.
inline constexpr double most_binomial_variance = 4;
/// About one full width: nearer apexes are one peak.
inline constexpr double resolved_sigmas = 2.4;
/// Long stretches are taken in pieces that the cache holds, with what lies about them within a peak's reach.
inline constexpr std::ptrdiff_t piece_samples = 8192;
inline constexpr double piece_overlap_sigmas = 10, region_reach_sigmas = 3;
/// Late ions that a stronger peak is granted: no instrument in order has more. Their exponential is gone at the reach.
inline constexpr double granted_tail_fraction = 0.15, tail_reach_sigmas = 30;
/// Between them the lowest sample to either side is what an apex stands on: nearer it is the peak itself.
inline constexpr double pedestal_from_sigmas = 1.5, pedestal_to_sigmas = 3.5;
/// A weak apex, of fewer ions by its height and width, is compared with the stretches between these distances too: in
/// the wings of a strong peak chance makes such apexes.
inline constexpr double surrounded_ions = 30, surroundings_sigmas[] = {2.5, 6, 9.5};
/// The lowest of about ten independent values of a normal distribution of deviation 1.
inline constexpr double lowest_deviations = 1.5;
/// What an apex stands on is at most so much of the lower side.
inline constexpr double most_slope = 2;
/// Of the correlation with the expected peak: 99 % of a Gaussian.
inline constexpr double correlation_sigmas = 2.5;

// --- Late ions, by an exponential. How the Gaussian fit answers, as change per part of the ions that is late, is from
// --- fits to exact peaks with 0 to 12 % late ions.
/// Mean delay of the late ions.
inline constexpr double tail_sigmas = 1.5;
/// Relative to the true full width at half maximum and height of the whole peak.
inline constexpr double width_of_tail = 0.38, height_of_tail = -0.24;
/// Relative to the sigma of the undelayed ions, which are narrower than the whole peak.
inline constexpr double fitted_width_of_tail = 0.61;
/// In sigmas of the undelayed ions, from their centre.
inline constexpr double fitted_centre_of_tail = 0.84;
/// Top of the whole peak, in sigmas of it, from the fitted centre.
inline constexpr double top_of_tail = -0.46;
/// Relative excess of the true area over that of the fit.
inline constexpr double fitted_area_of_tail = 0.127;
/// The two sides of a peak that tell late ions, and the excess of counts in the later one, relative to the area.
inline constexpr double side_from_sigmas = 2, side_to_sigmas = 6, excess_of_tail = 0.203;
/// Part of the area in the two sides, which are eight sigmas of samples: 4.6 % of a Gaussian and usual late ions.
inline constexpr double sides_part = 0.055, sides_sigmas = 8;

// --- Fit
/// There a Gaussian has fallen to 1.5e-8.
inline constexpr double gone_sigmas = 6;
/// Beyond lies 0.006 % of a Gaussian: of a peak, and of an ion's pulse.
inline constexpr double fit_reach_sigmas = 4, pulse_reach_sigmas = 4;
/// Part of the height that is added to every sample's variance, in counts squared per count per ion: keeps the ends of
/// a peak, where the ions are late, from counting as much as their few ions would deserve.
inline constexpr double end_softening = 0.01;
/// No peak's width is trusted to lie further from the expected one; keeps peaks of a few ions in bounds. A width that
/// far from it in deviations is fitted by its own data nearly alone.
inline constexpr double widest_spread = 0.3, largest_widening = 4, freed_width_deviations = 4;
/// A pulse much shorter than the sampling interval lies in one sample.
inline constexpr double shortest_pulse_samples = 0.5;
/// Largest steps in logarithm of height, sigmas of centre and logarithm of width, about as far as the linear
/// approximation holds; and of the one step that tells the peak's own width.
inline constexpr double most_height_step = 0.7, most_centre_step = 1, most_width_step = 0.3, most_own_width_step = 1;
/// Steps below both, in sigmas and in standard errors, converge so fast that one more is the last.
inline constexpr double settled_step = 0.1, settled_step_errors = 0.5;
inline constexpr int most_fit_steps = 12;
/// Of the product of the diagonal: below, the samples do not tell the three parameters apart.
inline constexpr double least_determinant_part = 1e-12;
/// An arrival has at least this part of the peak's variance, for all that is known of the pulse.
inline constexpr double least_arrival_part = 0.01;

struct Node {
    double place;
    double weight;
};
/// Gauss-Hermite quadrature for a normal distribution, Gauss-Laguerre for an exponential one.
inline constexpr Node normal_nodes[] = {
    {-2.85697, 0.0112574}, {-1.35563, 0.2220759}, {0, 0.5333333}, {1.35563, 0.2220759}, {2.85697, 0.0112574}};
inline constexpr Node delay_nodes[] = {{0.5857864, 0.8535534}, {3.4142136, 0.1464466}};

/// To which part of the height, and with which part of the late ions besides, a Gaussian describes a lone peak.
inline constexpr double fit_shape_error = 0.01, fit_tail_error = 0.25;
/// Chi squared beyond its mean by so many of its deviations is a misfit, which the errors grow with; so much of what
/// makes such a peak wider than the law, in deviations of a peak, may lie to one side of its centre.
inline constexpr double misfit_deviations = 4, one_sided_widening = 0.6;

// --- Measurement
/// Late ions make the right side longer.
inline constexpr double area_left_sigmas = 4, area_right_sigmas = 6;
/// An area reaches six, and a neighbour begins four before its centre; half a sigma for the fit to move.
inline constexpr double group_reach_sigmas = 10.5, loaded_sigmas = 6.5;
/// The exponential has fallen by ten of its lengths.
inline constexpr double late_reach_sigmas = 15;
/// Fits of overlapping peaks are repeated until none moves by that part of its error.
inline constexpr double settled_move_errors = 0.05;
inline constexpr int most_rounds = 12;
/// A fit that leaves its candidate further behind has found another peak.
inline constexpr double most_move_sigmas = 2;
/// Samples that a local baseline rests on.
inline constexpr double baseline_samples = 500;
/// A peak ends at 0.2 % of its top or at half of the noise, and is not shorter than 1.5 sigmas to either side.
inline constexpr double end_height_part = 0.002, end_noise_part = 0.5, least_end_ratio = 3;
/// Halvings that find where two peaks cross: to a billionth of their distance.
inline constexpr int crossing_steps = 30;
/// Where no fit holds: moments of what rises above a tenth of the top, a fifth of a sample wide where all is in one.
inline constexpr double moment_level_part = 0.1, least_moment_sigma = 0.2;
/// Late ions widen what is left of a peak whose top is cut off: taken away, they settle in so many fits.
inline constexpr int flank_rounds = 4;
/// The less of a peak is left, the more its flanks depend on how late the late ions are: part of the centre's error. A
/// fit to flanks that does not reach that part of where the top was cut off has lost them.
inline constexpr double flank_error = 0.3, least_clipped_height = 0.8;
/// Of the centre, twice that of the ions; and a guess of the width's standard error.
inline constexpr double moment_variance = 2, moment_width_error = 0.3;
/// Nearer neighbours share samples that count; fewer ions leave the width to 13 % of chance.
inline constexpr double overlapped_sigmas = 6, few_ions = 30;

// --- Chance
/// A peak of fewer ions has to stand out, in its middle, from the counts about it that no peak explains: those to
/// either side, and the middle one of longer stretches farther out, three to a side, so that ions scattered thinly are
/// counted.
inline constexpr double surrounded_ions_of_fit = 100, middle_sigmas = 2.5, near_side_sigmas = 7.5, far_side_sigmas = 15;
inline constexpr std::size_t far_sides = 3;
/// A level is more than so many deviations of the noise; beside a peak, more than the few ions that its fit misses.
inline constexpr double near_deviations = 2, far_deviations = 1, own_side_ions = 2;
/// What is so much wider than the law, also in deviations, is the wing of a peak so much stronger within that reach.
inline constexpr double wing_width = 1.5, wing_width_deviations = 2, wing_of_area = 10, wing_reach_sigmas = 40;
/// In the flanks of a peak whose top is cut off something smaller may be its own shape; two such tops so near are one.
inline constexpr double clipped_wing_of_area = 4, clipped_wing_sigmas = 8, clipped_place_sigmas = 3;
/// What strong peaks have about them in common is seen from so many deviations on, in bands that grow by the ratio; it
/// is the lower median of the strongest peaks, of which so many or more, of so many ions and of that part of the
/// strongest, have to show it, the nearest and the farther bands beyond so many of its errors. Chosen.
inline constexpr double wing_from_sigmas = 5, wing_band_ratio = 1.5, wing_far_sigmas = 600, wing_errors = 4,
                        far_wing_errors = 1, winged_ions = 100, winged_part = 0.05;
inline constexpr std::size_t wing_bands = 10, wing_steps[] = {1, 3, wing_bands}, least_winged_peaks = 4,
                             most_winged_peaks = 12;
/// Peaks of a smaller part of its area may be a strong peak's wing themselves; two peaks so near are one, which its fit
/// does not describe.
inline constexpr double unexplained_part = 0.05, same_place_sigmas = 1;

// --- Overlap
/// Peaks further away share no samples: two of `loaded_sigmas`, nearly.
inline constexpr double overlap_neighbour_sigmas = 12;
/// A peak is suspect when it is wider or more lopsided than that many deviations, and that part of the area besides.
inline constexpr double suspect_deviations = 4, lopsided_part = 0.02;
/// A second peak that made the first this wide lies within one of the two.
inline constexpr double searched_sigmas = 6.5, searched_own_sigmas = 3;
/// Shorter than that of candidates, since the peaks overlap; just above a full width.
inline constexpr double overlap_correlation_sigmas = 1.5, least_distance_sigmas = 2.6;
/// Late ions and the detector's ringing make shoulders of a few percent. The gain is one in the sum of squares, for
/// three more parameters: five deviations.
inline constexpr double least_height_part = 0.06, least_height_errors = 6, least_gain = 25;
/// To which part a model describes a strong peak, and how far from the two centres it is judged.
inline constexpr double overlap_shape_error = 0.03, judged_sigmas = 5;

// --- Widths
/// Relative standard deviation of a peak's width about the law, and while the law is coarse. Chosen.
inline constexpr double usual_width_spread = 0.05, coarse_width_spread = 0.5;
/// The strongest of each of these parts of the range, so that the width is known along the whole axis.
inline constexpr std::size_t axis_sections = 8, peaks_per_section = 4;
inline constexpr std::ptrdiff_t longest_stretch_samples = 1024;  ///< A longer one above the noise is taken for several.
/// Boxes are tried up to so much of the best one's width: the ions of a weak peak come in clumps. One that reaches so
/// far to either side of a Gaussian stands out most from white noise.
inline constexpr double box_growth = 1.6, box_margin_samples = 8, box_reach_sigmas = 1.4;
/// A box to one side that much narrower than the whole means a neighbour on the other, where there are ions enough.
inline constexpr double one_sided_part = 0.4, one_sided_ions = 200;
/// Such a box leaves less than this part of its counts beyond it, up to that many widths.
inline constexpr double beyond_box_part = 0.4, beyond_box_widths = 3;
/// The top of an apex at half of which its width is taken holds so many ions, and stands out by so many deviations;
/// a box that is so much wider holds several peaks.
inline constexpr double half_height_ions = 30, half_height_deviations = 10, one_peak_box_part = 0.7;
/// Second moments are taken within these reaches in turn, and may change a sigma by a factor of two.
inline constexpr double moment_reaches_sigmas[] = {1.5, 3.0}, most_moment_change = 2;
/// A coarse width is good to a tenth at best; no peak is narrower than half a sample. What stands out less is noise,
/// unless there is nothing else. Few ions may make a law too narrow to find anything with; a wider one is tried.
inline constexpr double coarse_width_variance = 0.01, least_coarse_sigma = 0.5, coarse_signal_to_noise = 8, wider = 2;
/// Two unknowns want more than two points, over times that differ. From that many deviations on a point weighs less, as
/// the inverse of its distance, which is kept above zero.
inline constexpr std::size_t least_law_points = 5;
inline constexpr double least_law_lever = 1.3, law_outlier_deviations = 2, tail_outlier_deviations = 2.5,
                        least_deviation = 1e-9;
/// A fit to few ions finds them nearer together than they would come: relative, per variance of the width.
inline constexpr double narrowing_of_few = 7;
/// Repetitions after which such weights have settled.
inline constexpr int law_rounds = 6, tail_rounds = 4, counts_rounds = 3;

// --- Ions
/// An ion's pulse stands a little out of the noise of a sample, else ions could not be counted; the pulses of an
/// electron multiplier differ by this part.
inline constexpr double usual_pulse_over_noise = 1.2, usual_height_spread = 0.5;
/// Digitizers are chosen to take so many samples of a pulse's full width at half maximum; no peak is its pulse alone.
inline constexpr double usual_pulse_samples = 3.2, most_pulse_part = 0.9;
/// A detector's limit shows as its largest value several times in a row, high above the noise; twice only far above.
inline constexpr std::ptrdiff_t saturated_run = 3;
inline constexpr double saturated_deviations = 20, saturated_pair_deviations = 500;
/// What a fit of a strong peak has to know about: not even late ions reach from further away.
inline constexpr double model_neighbour_sigmas = 14;
/// The middle of a peak, whose samples are compared with its fit, and to which part the model describes it; the sides
/// less well.
inline constexpr double core_sigmas = 2.5, core_shape_error = 0.005;
/// A core has that many samples to either side at least. The fit takes three parameters out of it.
inline constexpr double least_core_reach_samples = 2, fitted_parameters = 3;
inline constexpr std::ptrdiff_t least_core_samples = 3;
/// The shape that so many peaks or more have in common is taken out of what they leave, part by part of their middles,
/// as far as it is more than so many errors. Chosen.
inline constexpr std::size_t least_shaped_cores = 5, shape_parts = 20, shape_errors = 6;
/// Weight of the expected counts per ion, as if that many strong samples had shown it, how far an estimate may go, and
/// the samples from fewer of which too small a rest is chance.
inline constexpr double expectation_samples = 3, least_counts_part = 0.08, most_counts_part = 50, least_freedom = 5;
/// Samples that count for themselves are left correlated by -0.4 to 0, samples under common pulses by 0.4 and more.
inline constexpr double pulse_correlation = 0.35;
/// Late ions of instruments, how they differ, and their limit; to 0.3 % of its area a strong peak's sides differ by
/// other reasons.
inline constexpr double usual_tail = 0.04, usual_tail_spread = 0.04, largest_tail = 0.3, sides_variance = 1e-5;
/// Peaks that are nearly all pulse tell nothing of late ions: least effect that is divided by, of one peak and of all.
inline constexpr double least_tail_effect = 0.1, least_common_tail_effect = 0.15;

}  // namespace korvane::method
