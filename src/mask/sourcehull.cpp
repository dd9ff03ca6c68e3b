#include "hugepages.h"
#include "vornmask.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>
#include <new>

namespace {

constexpr uint64_t NOISE_PROBES = 200000;    // samples looked at for a noise estimate
constexpr uint64_t PARALLEL_ABOVE = 1U << 20; // below this a second thread costs more than it saves

QString tr(const char *text)
{
    return QCoreApplication::translate("EnvelopeBuild", text);
}

double median(std::vector<double> &v)
{
    if (v.empty())
        return 0.0;
    const auto middle = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
    std::nth_element(v.begin(), middle, v.end());
    return *middle;
}

// The standard deviation of white noise on a signal that bends slowly: second differences cancel
// the signal's level and slope, and their median ignores the edges.
double noiseOf(const std::vector<double> &x)
{
    if (x.size() < 3)
        return 0.0;
    const uint64_t step = std::max<uint64_t>(1, (x.size() - 2) / NOISE_PROBES);
    std::vector<double> d;
    for (uint64_t i = 1; i + 1 < x.size(); i += step) {
        const double s = x[i + 1] - 2 * x[i] + x[i - 1];
        if (std::isfinite(s))
            d.push_back(std::fabs(s));
    }
    return median(d) / (0.6745 * std::sqrt(6.0));
}

// Times at which x crosses level, interpolated between samples; a crossing counts only once the
// signal has gone past level by the hysteresis, so that noise on a flat part makes none. Between
// edges it only searches for the next sample past the far threshold.
std::vector<double> edgeTimes(const WaveformData &w, double level, double hysteresis)
{
    std::vector<double> edges;
    const std::vector<double> &x = *w.samples;
    const uint64_t n = x.size();
    const double above = level + hysteresis, below = level - hysteresis;
    uint64_t i = 0;
    while (i < n && !(x[i] > above) && !(x[i] < below))
        ++i;
    if (i == n)
        return edges;
    bool high = x[i] > above;
    for (;;) {
        if (high)
            while (i < n && !(x[i] < below))
                ++i;
        else
            while (i < n && !(x[i] > above))
                ++i;
        if (i == n)
            return edges;
        // The crossing lies between the last sample on the old side of level and the one after it.
        uint64_t k = i;
        while (k > 0 && !(high ? x[k - 1] >= level : x[k - 1] <= level))
            --k;
        k = k > 0 ? k - 1 : 0;
        double t = static_cast<double>(k) * w.sampleInterval + w.startTime;
        if (x[k + 1] != x[k])
            t += (level - x[k]) / (x[k + 1] - x[k]) * w.sampleInterval;
        edges.push_back(t);
        high = !high;
    }
}

// The expected range of n normal samples in standard deviations, for n = 2 ... 10; beyond, the
// range grows slowly and the last value is close enough for a margin.
double expectedRange(int n)
{
    static const double table[] = {1.128, 1.693, 2.059, 2.326, 2.534, 2.704, 2.847, 2.970, 3.078};
    return table[std::clamp(n, 2, 10) - 2];
}

} // namespace

SourceHull::SourceHull(double sigma) : m_sigma(sigma > 0.0 ? sigma : 0.0) {}

bool SourceHull::add(const WaveformData &capture, QString *error)
{
    const std::vector<double> &x = *capture.samples;
    if (m_captures == 0) {
        if (x.size() < 2 || !(capture.sampleInterval > 0.0) || !std::isfinite(capture.sampleInterval)) {
            if (error)
                *error = tr("'%1' has fewer than two samples").arg(capture.name);
            return false;
        }
        m_model.name = capture.name;
        m_model.unit = capture.unit;
        m_model.sampleInterval = capture.sampleInterval;
        m_model.startTime = capture.startTime;
        m_count = x.size();
        // Long arrays are faulted in on both cores, as the captures' samples are, on huge pages
        // where offered; the first capture's fold writes them whole, so they need no fill.
        const auto allocate = [this](std::vector<double> &v) {
            try {
                reserveOnHugePages(v, m_count);
            } catch (const std::bad_alloc &) {
            }
            if (!allocateSamples(v, m_count))
                v.assign(m_count, 0.0);
        };
        allocate(m_high);
        allocate(m_low);
        if (m_sigma == 0.0)
            allocate(m_sum);
        double lo = INFINITY, hi = -INFINITY;
        for (double v : x) {
            lo = v < lo ? v : lo;
            hi = v > hi ? v : hi;
        }
        m_span = lo <= hi ? hi - lo : 0.0;
        m_level = (hi + lo) / 2;
        m_hysteresis = m_span / 10;
    } else if (x.size() != m_count || capture.sampleInterval != m_model.sampleInterval
               || capture.startTime != m_model.startTime) {
        if (error)
            *error = tr("the captures differ in length, sample rate or start: %1 samples at %2 against %3 at %4")
                         .arg(x.size()).arg(ValueFormatter::formatWithUnit(capture.sampleInterval, "s"))
                         .arg(m_count).arg(ValueFormatter::formatWithUnit(m_model.sampleInterval, "s"));
        return false;
    }
    // The fold is split in two parts, and each thread also measures: the edges and the noise
    // only read the capture. Without sigma the noise counts only while there is one capture
    // (from two on, the spread between them gives it), so later captures skip it, and the thread
    // that finds the edges, about a third of a fold's time, folds a third.
    const bool measureNoise = m_captures == 0 || m_sigma > 0.0;
    double noise = 0.0;
    std::vector<double> edges;
    const uint64_t middle = m_count < PARALLEL_ABOVE ? m_count : measureNoise || !(m_hysteresis > 0.0) ? m_count / 2 : m_count / 3;
    const auto firstPart = [&] {
        fold(x, 0, middle);
        if (m_hysteresis > 0.0)
            edges = edgeTimes(capture, m_level, m_hysteresis);
    };
    if (middle < m_count) {
        runBeside(firstPart, [&] {
            fold(x, middle, m_count);
            if (measureNoise)
                noise = noiseOf(x);
        });
    } else {
        if (measureNoise)
            noise = noiseOf(x);
        firstPart();
    }
    m_noise = std::max(m_noise, noise);
    if (m_hysteresis > 0.0)
        m_edges.push_back(std::move(edges));
    ++m_captures;
    return true;
}

void SourceHull::fold(const std::vector<double> &x, uint64_t first, uint64_t last)
{
    double *high = m_high.data(), *low = m_low.data();
    const double *v = x.data();
    if (m_captures == 0 && m_sigma == 0.0) {
        // Against the empty hull (-infinity, +infinity, 0) without reading it: the same values
        // the general fold gives there, a NaN sample included.
        double *sum = m_sum.data();
        for (uint64_t i = first; i < last; ++i) {
            high[i] = v[i] > -INFINITY ? v[i] : -INFINITY;
            low[i] = v[i] < INFINITY ? v[i] : INFINITY;
            sum[i] = 0.0 + v[i];
        }
        return;
    }
    if (m_sigma > 0.0) {
        for (uint64_t i = first; i < last; ++i) {
            high[i] += v[i];
            low[i] += v[i] * v[i];
        }
        return;
    }
    // NaN compares false, so a gap in one capture leaves the others' extremes.
    double *sum = m_sum.data();
    for (uint64_t i = first; i < last; ++i) {
        high[i] = v[i] > high[i] ? v[i] : high[i];
        low[i] = v[i] < low[i] ? v[i] : low[i];
        sum[i] += v[i];
    }
}

double SourceHull::defaultDy() const
{
    const double span = m_span;
    double noise = m_noise;
    if (m_captures >= 2 && m_sigma == 0.0) {
        // The spread between captures at one sample is noise alone, even on a curved signal.
        const uint64_t step = std::max<uint64_t>(1, m_count / NOISE_PROBES);
        std::vector<double> spread;
        for (uint64_t i = 0; i < m_count; i += step) {
            if (std::isfinite(m_high[i] - m_low[i]))
                spread.push_back(m_high[i] - m_low[i]);
        }
        noise = median(spread) / expectedRange(m_captures);
    }
    return std::max(0.01 * span, std::min(5 * noise, 0.05 * span));
}

double SourceHull::defaultDx() const
{
    const double dt = m_model.sampleInterval;
    const double duration = static_cast<double>(m_count - 1) * dt;
    // Edges matched one to one across the captures show how far their timing wanders; the next
    // capture may wander a little further than ten have, so the whole spread is added again.
    bool matched = m_edges.size() >= 2 && !m_edges.front().empty();
    for (const std::vector<double> &e : m_edges)
        matched = matched && e.size() == m_edges.front().size();
    if (!matched)
        return std::max(2 * dt, 1e-3 * duration);
    double spread = 0.0;
    for (size_t k = 0; k < m_edges.front().size(); ++k) {
        double first = INFINITY, last = -INFINITY;
        for (const std::vector<double> &e : m_edges) {
            first = std::min(first, e[k]);
            last = std::max(last, e[k]);
        }
        spread = std::max(spread, last - first);
    }
    return std::max({spread, 2 * dt, 1e-4 * duration});
}
