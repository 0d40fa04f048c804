// Fit of the mass-time law to measured calibrants.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "korvane/calibrants.h"
#include "korvane/mass_time.h"

namespace korvane {

/// One calibrant of a fit. Residuals are (mass by the law - expected mass) / expected mass.
struct CalibrantResidual {
    CalibrantTime measured;
    double error_ppm = 0;     ///< standard error of the flight time, as mass
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
    /// The new law predicts calibrants that it has not seen better than the old law those that it was made from.
    bool is_better() const { return left_out_ppm < before_ppm; }
};

/// Weighted least squares of m = (A (t - t0))^2 + terms to the calibrants, by the standard errors of their flight
/// times. As many of the calibration's used terms as the calibrants carry are fitted, the others are 0: that number
/// makes Akaike's criterion for small samples smallest, with chi-square over the residual variance of the largest model
/// (Hurvich and Tsai, Biometrika 76 (1989) 297). Calibrants far off the law of the others are left out: a least median
/// of squares over subsets (Rousseeuw and Leroy, Robust Regression and Outlier Detection, 1987, ch. 3) tells them at
/// three robust standard deviations.
/// Errors, of the kind `usage`: 5 for fewer than three calibrants with a peak, or flight times that are equal.
KORVANE_API CalibrationFit fit_calibration(const std::vector<CalibrantTime>& measured,
                                           const MassTimeCalibration& before);

}  // namespace korvane
