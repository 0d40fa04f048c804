// Elementary functions made of the basic operations and square roots only, which round alike on every machine, so that
// a seed gives the same spectra everywhere. Accurate to a few units in the last place.
#pragma once

namespace korvane::simulation {

inline constexpr double pi = 3.14159265358979323846;

double portable_exp(double x);
/// Natural logarithm of a positive number.
double portable_log(double x);
double portable_pow(double positive_base, double exponent);
/// sin(2 pi turns).
double portable_sine_of_turns(double turns);
/// Density of the standard normal distribution.
double normal_density(double x);
/// Distribution function of the standard normal distribution, absolute error below 1e-15 for |x| < 6.
double normal_distribution(double x);
/// ln(n!), n >= 0.
double log_factorial(double n);

}  // namespace korvane::simulation
