#include "downsampling.h"
#include "minmaxpyramid.h"

#include <QRandomGenerator>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <cmath>

namespace naive {

// Written out step by step from the rules, without a thought for speed.
VisibleRange visibleIndices(std::uint64_t n, double dt, double t0, double xMin, double xMax)
{
    VisibleRange r;
    if (n == 0 || dt <= 0 || t0 > xMax)
        return r;
    const std::uint64_t last = n - 1;
    if (xMin > static_cast<double>(last) * dt + t0)
        return r;
    r.startIndex = static_cast<std::uint64_t>(std::max(std::floor((xMin - t0) / dt), 0.0));
    r.endIndex = static_cast<std::uint64_t>(std::min(std::ceil((xMax - t0) / dt), static_cast<double>(last)));
    if (r.startIndex > 0)
        r.startIndex -= 1;
    if (r.endIndex < last)
        r.endIndex += 1;
    r.empty = false;
    return r;
}

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
        QTest::addColumn<double>("interval");
        QTest::addColumn<double>("xMin");
        QTest::addColumn<double>("xMax");
        QTest::addColumn<QList<quint64>>("range"); // first and last index; none when empty

        // 20 samples from t = 10.
        QTest::newRow("inner view widened by one") << 1.0 << 12.5 << 17.2 << QList<quint64>{1, 9};
        QTest::newRow("before the start") << 1.0 << 0.0 << 9.9 << QList<quint64>{};
        QTest::newRow("after the end") << 1.0 << 29.1 << 40.0 << QList<quint64>{};
        QTest::newRow("wider than the data") << 1.0 << -100.0 << 100.0 << QList<quint64>{0, 19};
        QTest::newRow("zero interval") << 0.0 << 0.0 << 100.0 << QList<quint64>{};
    }

    void findsVisibleIndices()
    {
        QFETCH(double, interval);
        QFETCH(double, xMin);
        QFETCH(double, xMax);
        QFETCH(QList<quint64>, range);

        const VisibleRange r = calculateVisibleIndices(20, SampleTimeBase{interval, 10.0}, xMin, xMax);
        QCOMPARE(r.empty, range.isEmpty());
        if (!r.empty)
            QCOMPARE(QList<quint64>({r.startIndex, r.endIndex}), range);
    }

    void visibleIndicesMatchReferenceOnRandomViews()
    {
        QRandomGenerator random(4711);
        for (int round = 0; round < 20000; ++round) {
            const std::uint64_t n = random.bounded(2000);
            const double dt = std::ldexp(1.0 + random.generateDouble(), random.bounded(-40, 10));
            const double t0 = (random.generateDouble() - 0.5) * dt * 1000;
            const double a = t0 + (random.generateDouble() * 1.4 - 0.2) * dt * n;
            const double b = a + random.generateDouble() * dt * n;
            const VisibleRange got = calculateVisibleIndices(n, SampleTimeBase{dt, t0}, a, b);
            const VisibleRange want = naive::visibleIndices(n, dt, t0, a, b);
            QCOMPARE(QList<quint64>({got.empty, got.startIndex, got.endIndex}),
                     QList<quint64>({want.empty, want.startIndex, want.endIndex}));
        }
    }

    void reductionMatchesReferenceOnRandomData_data()
    {
        QTest::addColumn<int>("distinctValues");
        QTest::newRow("continuous values") << 0;
        QTest::newRow("many ties") << 3;
        QTest::newRow("all equal") << 1;
    }

    void reductionMatchesReferenceOnRandomData()
    {
        QFETCH(int, distinctValues);
        QRandomGenerator random(1234 + distinctValues);
        // Odd limits leave one point unused; below 2 there is no bucket at all.
        const int limits[] = {1, 2, 3, 7, 100, 5000};
        for (int round = 0; round < 300; ++round) {
            const std::vector<double> v = randomSamples(random, random.bounded(1, 40000), distinctValues);
            const std::uint64_t a = random.bounded(quint64(v.size()));
            const std::uint64_t b = a + random.bounded(quint64(v.size() - a));
            const int maxPoints = limits[random.bounded(6)];
            const SampleTimeBase time{1e-6 * (1 + random.bounded(9)), -0.5};
            const QVector<QPointF> want = naive::downsample(v, time.interval, time.start, a, b, maxPoints);
            const MinMaxPyramid pyramid(v);
            const QString where = QStringLiteral("%1 samples, [%2, %3], %4 points").arg(v.size()).arg(a).arg(b).arg(maxPoints);
            QVERIFY2(identical(downsampleVisibleRange(v, time, a, b, maxPoints), want), qPrintable(where));
            QVERIFY2(identical(downsampleVisibleRange(v, time, a, b, maxPoints, &pyramid), want),
                     qPrintable(where + QStringLiteral(" with the pyramid")));
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

    // The reference checked on its own: 10000 samples one second apart in 2500 buckets of 4, each
    // giving its minimum and maximum in time order.
    void reducesToTheExtremesOfEachBucket()
    {
        QRandomGenerator random(7);
        const std::vector<double> v = randomSamples(random, 10000, 0);
        const QVector<QPointF> points = downsampleVisibleRange(v, SampleTimeBase{1.0, 0.0}, 0, 9999, 5000);
        QCOMPARE(points.size(), 5000);
        for (int b = 0; b < 2500; ++b) {
            const auto [lowest, highest] = std::minmax_element(v.begin() + 4 * b, v.begin() + 4 * b + 4);
            const int first = int(points[2 * b].x()), second = int(points[2 * b + 1].x());
            QVERIFY(first < second && points[2 * b].y() == v[first] && points[2 * b + 1].y() == v[second]);
            QCOMPARE(QSet<int>({first, second}), QSet<int>({int(lowest - v.begin()), int(highest - v.begin())}));
        }
    }
};

QTEST_APPLESS_MAIN(TstDownsampling)
#include "tst_downsampling.moc"
