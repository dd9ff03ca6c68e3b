#ifndef VORN_DECIMAL_H
#define VORN_DECIMAL_H

// mantissa × 10^exponent rounded once: a negative power is applied by dividing by the exact
// 10^-exponent, because multiplying by the inexact 10^exponent can miss the nearest double
// (200 * 1e-9 is not 2e-7, 200 / 1e9 is).
double scaleByPowerOfTen(double mantissa, int exponent);
// value / 10^exponent, the inverse of the above.
double unscaleByPowerOfTen(double value, int exponent);

#endif
