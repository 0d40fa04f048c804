// How the Gaussian fit answers to ions that come late, by an exponential of 1.5 standard deviations. Every value is a
// change per part of the ions that is late, from fits to exact peaks with 0 to 12 % late ions.
#pragma once

namespace korvane {

/// Relative to the true full width at half maximum and height of the whole peak.
inline constexpr double width_of_tail = 0.38;
inline constexpr double height_of_tail = -0.24;
/// Relative to the deviation of the undelayed ions, which are narrower than the whole peak.
inline constexpr double fitted_width_of_tail = 0.61;
/// In deviations of the undelayed ions, from their centre.
inline constexpr double fitted_centre_of_tail = 0.84;
/// Top of the whole peak, in deviations of it, from the fitted centre.
inline constexpr double top_of_tail = -0.46;
/// Relative excess of the true area over that of the fit.
inline constexpr double fitted_area_of_tail = 0.127;
/// Excess of counts two to six deviations after the centre over those before it, relative to the area.
inline constexpr double excess_of_tail = 0.203;

}  // namespace korvane
