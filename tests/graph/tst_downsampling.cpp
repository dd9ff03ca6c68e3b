#include "downsampling.h"
#include "minmaxpyramid.h"

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <functional>

namespace naive {

// Written out step by step from the rules, without a thought for speed.
QVector<QPointF> downsample(const std::vector<double> &v, double dt, double t0, std::uint64_t start,
                            std::uint64_t end, int maxPoints)
{
    QVector<QPointF> out;
    const auto add = [&](std::uint64_t i) { out.append(QPointF(static_cast<double>(i) * dt + t0, v[i])); };
    const std::uint64_t count = end - start + 1;
    if (count <= static_cast<std::uint64_t>(maxPoints)) {
        for (std::uint64_t i = start; i <= end; ++i)
            add(i);
        return out;
    }
    // maxPoints / 2 buckets, each giving its first minimum and first maximum in time order.
    const int buckets = maxPoints / 2;
    const double size = static_cast<double>(count) / buckets;
    for (int b = 0; b < buckets; ++b) {
        const std::uint64_t s = start + static_cast<std::uint64_t>(b * size);
        const std::uint64_t e = std::min(end + 1, start + static_cast<std::uint64_t>((b + 1) * size));
        std::uint64_t lo = s, hi = s;
        for (std::uint64_t i = s; i < e; ++i) {
            lo = v[i] < v[lo] ? i : lo;
            hi = v[i] > v[hi] ? i : hi;
        }
        if (s < e) {
            add(std::min(lo, hi));
            add(std::max(lo, hi));
        }
    }
    return out;
}

} // namespace naive

namespace {

// QPointF's own == is fuzzy; the reduction must match to the bit.
bool identical(const QVector<QPointF> &a, const QVector<QPointF> &b)
{
    return a.size() == b.size()
        && std::equal(a.begin(), a.end(), b.begin(),
                      [](QPointF p, QPointF q) { return p.x() == q.x() && p.y() == q.y(); });
}

std::vector<double> randomSamples(QRandomGenerator &random, std::size_t n, int distinctValues)
{
    std::vector<double> v(n);
    // Few distinct values make many ties, which the rules settle by index.
    for (double &x : v)
        x = distinctValues > 0 ? random.bounded(distinctValues) : random.generateDouble() * 2 - 1;
    return v;
}

} // namespace

class TstDownsampling : public QObject
{
    Q_OBJECT

private slots:
    void findsVisibleIndices_data()
    {
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("interval");
        QTest::addColumn<double>("xMin");
        QTest::addColumn<double>("xMax");
        QTest::addColumn<QList<quint64>>("range"); // first and last index of 20 samples; none when empty
        // The view's edges fall between samples; one more each side lets the line leave the plot.
        QTest::newRow("inner view widened by one") << 10.0 << 1.0 << 12.5 << 17.2 << QList<quint64>{1, 9};
        QTest::newRow("on samples, widened by one") << 10.0 << 1.0 << 12.0 << 17.0 << QList<quint64>{1, 8};
        QTest::newRow("before the start") << 10.0 << 1.0 << 0.0 << 9.9 << QList<quint64>{};
        QTest::newRow("after the end") << 10.0 << 1.0 << 29.1 << 40.0 << QList<quint64>{};
        QTest::newRow("wider than the data") << 10.0 << 1.0 << -100.0 << 100.0 << QList<quint64>{0, 19};
        QTest::newRow("zero interval") << 10.0 << 0.0 << 0.0 << 100.0 << QList<quint64>{};
        // In steps of half the rounding unit at 1e6 s the last sample's time rounds up to a
        // twentieth step; the first index must still be a sample.
        const double halfUlp = std::ldexp(1.0, -34), last = 1e6 + 19 * halfUlp;
        QTest::newRow("rounding past the last sample") << 1e6 << halfUlp << last << last << QList<quint64>{18, 19};
    }

    void findsVisibleIndices()
    {
        QFETCH(double, start);
        QFETCH(double, interval);
        QFETCH(double, xMin);
        QFETCH(double, xMax);
        QFETCH(QList<quint64>, range);
        const VisibleRange r = calculateVisibleIndices(20, SampleTimeBase{interval, start}, xMin, xMax);
        QCOMPARE(r.empty ? QList<quint64>() : QList<quint64>({r.startIndex, r.endIndex}), range);
    }

    // Continuous values, many ties and all equal. Odd limits leave one point unused; below 2 there
    // is no bucket at all.
    void reductionMatchesReferenceOnRandomData()
    {
        const int limits[] = {1, 2, 3, 7, 100, 5000}, distinctValues[] = {0, 3, 1};
        QRandomGenerator random(1234);
        for (int round = 0; round < 900; ++round) {
            const std::vector<double> v = randomSamples(random, random.bounded(1, 40000), distinctValues[round % 3]);
            const std::uint64_t a = random.bounded(quint64(v.size()));
            const std::uint64_t b = a + random.bounded(quint64(v.size() - a));
            const int maxPoints = limits[random.bounded(6)];
            const SampleTimeBase time{1e-6 * (1 + random.bounded(9)), -0.5};
            const QVector<QPointF> want = naive::downsample(v, time.interval, time.start, a, b, maxPoints);
            const MinMaxPyramid pyramid(v);
            for (const MinMaxPyramid *p : {static_cast<const MinMaxPyramid *>(nullptr), &pyramid})
                QVERIFY2(identical(downsampleVisibleRange(v, time, a, b, maxPoints, p), want),
                         qPrintable(QStringLiteral("%1 samples, [%2, %3], %4 points, pyramid %5")
                                        .arg(v.size()).arg(a).arg(b).arg(maxPoints).arg(p != nullptr)));
        }
    }

    void pyramidMatchesReferenceOnLongViews()
    {
        // Long enough for the work to be split between two threads.
        QRandomGenerator random(99);
        const std::vector<double> v = randomSamples(random, 6000000, 50);
        const MinMaxPyramid pyramid(v);
        for (const auto &[a, b] : {std::pair<std::uint64_t, std::uint64_t>{0, v.size() - 1}, {12345, 5999000}, {64, 4000127}}) {
            const QVector<QPointF> want = naive::downsample(v, 1e-6, 0.0, a, b, 5000);
            QVERIFY(identical(downsampleVisibleRange(v, SampleTimeBase{1e-6, 0.0}, a, b, 5000, &pyramid), want));
        }
    }

    // Every sample within the tolerance of the line through the corners, which are samples'
    // times and as few as the shape needs; a curve of no straight pieces gives up.
    void cornersFollowEverySample_data()
    {
        QTest::addColumn<std::vector<double>>("v");
        QTest::addColumn<int>("corners"); // 0: given up
        const auto make = [](int n, const std::function<double(int)> &f) {
            std::vector<double> v(size_t(n), 0.0);
            for (int i = 0; i < n; ++i)
                v[size_t(i)] = f(i);
            return v;
        };
        // Interpolated as an envelope's knots are, so the ramps carry rounding noise.
        QTest::newRow("flat") << make(1000, [](int) { return 3.3; }) << 2;
        QTest::newRow("one sample") << std::vector<double>{-1.0} << 1;
        QTest::newRow("ramp, up, flat, down") << make(30000, [](int i) {
            return i < 10000 ? 0.1 + 3.2 * i / 9999.0 : i < 20000 ? 3.3 : 3.3 - 3.3 * (i - 19999) / 10000.0;
        }) << 4;
        QTest::newRow("a spike of one sample") << make(5000, [](int i) { return i == 2500 ? 5.0 : 0.0; }) << 5;
        // Bends far less than the tolerance from one sample to the next, but by thousands of
        // tolerances over the run: corners must follow.
        QTest::newRow("slow parabola") << make(1000000, [](int i) { return 1.0 + 1e-17 * i * double(i); }) << -1;
        // A value far above the rest must not widen their tolerance: the peak stays a corner.
        QTest::newRow("peak beside an outlier") << make(1000, [](int i) { return i == 999 ? 1e30 : i < 500 ? i : 998.0 - i; }) << 4;
        QTest::newRow("sine, capped") << make(20000, [](int i) { return std::sin(i / 50.0); }) << 0;
        QTest::newRow("infinite") << make(100, [](int i) { return i == 7 ? HUGE_VAL : 1.0; }) << 0;
    }

    void cornersFollowEverySample()
    {
        QFETCH(std::vector<double>, v);
        QFETCH(int, corners);
        const SampleTimeBase time{2e-6, -0.01};
        const QVector<QPointF> got = polylineCorners(v, time, v.size() / 8 + 2);
        if (corners == 0) {
            QVERIFY(got.isEmpty());
            return;
        }
        if (corners > 0)
            QCOMPARE(got.size(), corners);
        QVERIFY(got.size() >= 1 && got.front().x() == time.timeOf(0) && got.back().x() == time.timeOf(v.size() - 1));
        // Corners in sample indices, and the line between them at every sample.
        std::vector<double> at, value;
        for (const QPointF &p : got) {
            at.push_back(std::round((p.x() - time.start) / time.interval));
            value.push_back(p.y());
        }
        std::size_t c = 0;
        for (std::size_t i = 0; i + 1 < v.size(); ++i) {
            while (at[c + 1] < double(i))
                ++c;
            const double line = value[c] + (value[c + 1] - value[c]) * (double(i) - at[c]) / (at[c + 1] - at[c]);
            QVERIFY2(std::abs(line - v[i]) <= std::abs(v[i]) * 1.001e-12,
                     qPrintable(QStringLiteral("sample %1: %2, not %3").arg(i).arg(line, 0, 'g', 17).arg(v[i], 0, 'g', 17)));
        }
        QVERIFY(std::abs(value.back() - v.back()) <= std::abs(v.back()) * 1.001e-12);
    }
};

QTEST_APPLESS_MAIN(TstDownsampling)
#include "tst_downsampling.moc"
