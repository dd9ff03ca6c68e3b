#include "decimal.h"
#include "vornwaveform.h"

#include <cmath>

namespace {

double exactPowerOfTen(int exponent)
{
    // Powers of ten up to 1e22 are exact doubles.
    static const double table[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (exponent >= 0 && exponent <= 22)
        return table[exponent];
    return std::pow(10.0, exponent);
}

const int MANTISSAS[] = {1, 2, 5};

double seriesValue(int step)
{
    // step 3k + j is MANTISSAS[j] × 10^k
    const int decade = static_cast<int>(std::floor(step / 3.0));
    return scaleByPowerOfTen(MANTISSAS[step - 3 * decade], decade);
}

int firstStepNear(double value)
{
    return 3 * (static_cast<int>(std::floor(std::log10(value))) - 1);
}

} // namespace

double scaleByPowerOfTen(double mantissa, int exponent)
{
    return exponent >= 0 ? mantissa * exactPowerOfTen(exponent) : mantissa / exactPowerOfTen(-exponent);
}

double unscaleByPowerOfTen(double value, int exponent)
{
    return exponent >= 0 ? value / exactPowerOfTen(exponent) : value * exactPowerOfTen(-exponent);
}

double Scale125::nextUp(double value)
{
    if (!(value > 0.0))
        return 0.0;
    if (std::isinf(value))
        return value;
    // log10 may be off by one near a power of ten, so start a decade low and walk up.
    for (int step = firstStepNear(value);; ++step) {
        const double candidate = seriesValue(step);
        if (candidate > value)
            return candidate;
    }
}

double Scale125::nextDown(double value)
{
    if (!(value > 0.0))
        return 0.0;
    if (std::isinf(value))
        return value;
    for (int step = firstStepNear(value) + 9;; --step) {
        const double candidate = seriesValue(step);
        if (candidate < value)
            return candidate;
    }
}
