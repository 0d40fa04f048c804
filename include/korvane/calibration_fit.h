// Fit of the mass-time law to measured calibrants.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "korvane/calibrants.h"
#include "korvane/mass_time.h"
#include "korvane/platform.h"

namespace korvane {

/// One calibrant of a fit. Residuals are (mass by the law - expected mass) / expected mass.
struct CalibrantResidual {
    CalibrantTime measured;
    /// Standard error of the flight time, as mass, and of the expected mass, which its list tells rounded.
    double error_ppm = 0;
    double before_ppm = 0;    ///< by the calibration before the fit
    double after_ppm = 0;     ///< by the fitted law
    double left_out_ppm = 0;  ///< by the law fitted to the other used calibrants
    /// Standard error of the fitted law here. Where the residuals are larger than the stated errors it has grown with
    /// them (by the root of chi-square per degree of freedom).
    double law_error_ppm = 0;
    std::string not_used;  ///< why the fit leaves the calibrant out; empty where it is used
};

struct CalibrationFit {
    CalibrationObject calibration;  ///< a copy of the one before, with the fitted coefficients
    std::size_t terms = 0;          ///< used terms beyond A and t0
    std::vector<CalibrantResidual> calibrants;
    std::size_t used = 0;                     ///< calibrants in the fit
    double chi_square_per_freedom = 0;        ///< of the fit, by the stated standard errors
    double before_ppm = 0, left_out_ppm = 0;  ///< root mean squares over the used calibrants, weighted as in the fit
    /// Root of chi-square per degree of freedom above which the peaks are not those of the calibrants.
    static constexpr double most_misfit = 30;
    bool meets_calibrants() const { return chi_square_per_freedom < most_misfit * most_misfit; }
    /// The new law predicts calibrants that it has not seen better than the old law does.
    bool is_better() const { return meets_calibrants() && left_out_ppm < before_ppm; }
};

/// Weighted least squares of m = (A (t - t0))^2 + terms to the calibrants, by the standard errors of their flight
/// times and of their masses: rounding to d decimals, the most that the masses have and at least four, has the
/// standard deviation 10^-d / sqrt(12), which no number of spectra makes smaller. As many of the calibration's used
/// terms as the calibrants carry are fitted, the others are 0: that number makes Akaike's criterion for small
/// samples smallest, with chi-square over the residual variance of the largest model (Hurvich and Tsai, Biometrika
/// 76 (1989) 297). Calibrants far off the law of the others are left out: a least median of squares over subsets
/// (Rousseeuw and Leroy, Robust Regression and Outlier Detection, 1987, ch. 3) tells them at three robust standard
/// deviations.
/// Errors: -1 naming the number of calibrants with a peak where they are fewer than three, and where flight times are
/// equal or no law meets three calibrants.
KORVANE_API CalibrationFit fit_calibration(const std::vector<CalibrantTime>& measured,
                                           const MassTimeCalibration& before);

/// Keeps the calibration of the current polarity in "PreviousCalibration.json" of the base folder, for
/// `undo_calibration`; one a polarity. Errors: those of the instrument; -904 naming the file where it cannot be read or
/// written, or holds something else.
KORVANE_API void keep_calibration(const Platform& platform);
/// Writes the kept calibration of the current polarity to the instrument and keeps the one that it replaces: a second
/// call takes back the first. Errors as `keep_calibration`; -904 where none is kept.
KORVANE_API void undo_calibration(const Platform& platform);

}  // namespace korvane
