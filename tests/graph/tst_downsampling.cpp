#include "downsampling.h"
#include "minmaxpyramid.h"

#include <QRandomGenerator>
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
    auto time = [&](std::uint64_t i) { return static_cast<double>(i) * dt + t0; };
    QVector<QPointF> out;
    const std::uint64_t count = end - start + 1;
    if (count <= static_cast<std::uint64_t>(static_cast<std::int64_t>(maxPoints))) {
        if (start > end)
            return out;
        for (std::uint64_t i = start; i <= end; ++i)
            out.append(QPointF(time(i), v[i]));
        return out;
    }
    const int buckets = maxPoints / 2;
    const double bucketSize = static_cast<double>(count) / static_cast<double>(buckets);
    if (buckets < 1)
        return out;
    for (int b = 0; b < buckets; ++b) {
        const std::uint64_t s = start + static_cast<std::uint64_t>(b * bucketSize);
        const std::uint64_t e = std::min(end + 1, start + static_cast<std::uint64_t>((b + 1) * bucketSize));
        if (s >= e)
            continue;
        std::uint64_t minI = s, maxI = s;
        for (std::uint64_t i = s; i < e; ++i) {
            if (v[i] < v[minI])
                minI = i;
            if (v[i] > v[maxI])
                maxI = i;
        }
        if (minI > maxI) {
            out.append(QPointF(time(maxI), v[maxI]));
            out.append(QPointF(time(minI), v[minI]));
        } else {
            out.append(QPointF(time(minI), v[minI]));
            out.append(QPointF(time(maxI), v[maxI]));
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
    void findsVisibleIndices_data();
    void findsVisibleIndices();
    void visibleIndicesMatchReferenceOnRandomViews();
    void reductionMatchesReferenceOnRandomData_data();
    void reductionMatchesReferenceOnRandomData();
    void pyramidMatchesReferenceOnLongViews();
    void keepsEveryPointUpToTheLimit_data();
    void keepsEveryPointUpToTheLimit();
    void reducesFullBucketsToMinAndMaxInTimeOrder();
};

void TstDownsampling::findsVisibleIndices_data()
{
    QTest::addColumn<quint64>("count");
    QTest::addColumn<double>("interval");
    QTest::addColumn<double>("start");
    QTest::addColumn<double>("xMin");
    QTest::addColumn<double>("xMax");
    QTest::addColumn<bool>("empty");
    QTest::addColumn<quint64>("first");
    QTest::addColumn<quint64>("last");

    QTest::newRow("inner view widened by one") << quint64(20) << 1.0 << 10.0 << 12.5 << 17.2 << false << quint64(1) << quint64(9);
    QTest::newRow("before the start") << quint64(20) << 1.0 << 10.0 << 0.0 << 9.9 << true << quint64(0) << quint64(0);
    QTest::newRow("after the end") << quint64(20) << 1.0 << 10.0 << 29.1 << 40.0 << true << quint64(0) << quint64(0);
    QTest::newRow("ends exactly at the start") << quint64(20) << 1.0 << 10.0 << 5.0 << 10.0 << false << quint64(0) << quint64(1);
    QTest::newRow("starts exactly at the end") << quint64(20) << 1.0 << 10.0 << 29.0 << 35.0 << false << quint64(18) << quint64(19);
    QTest::newRow("wider than the data") << quint64(20) << 1.0 << 10.0 << -100.0 << 100.0 << false << quint64(0) << quint64(19);
    QTest::newRow("zero interval") << quint64(20) << 0.0 << 10.0 << 0.0 << 100.0 << true << quint64(0) << quint64(0);
    QTest::newRow("no samples") << quint64(0) << 1.0 << 0.0 << -1.0 << 1.0 << true << quint64(0) << quint64(0);
    QTest::newRow("single sample inside") << quint64(1) << 1e-3 << 2.0 << 1.0 << 3.0 << false << quint64(0) << quint64(0);
    QTest::newRow("single sample on the edge") << quint64(1) << 1e-3 << 2.0 << 2.0 << 2.0 << false << quint64(0) << quint64(0);
}

void TstDownsampling::findsVisibleIndices()
{
    QFETCH(quint64, count);
    QFETCH(double, interval);
    QFETCH(double, start);
    QFETCH(double, xMin);
    QFETCH(double, xMax);
    QFETCH(bool, empty);
    QFETCH(quint64, first);
    QFETCH(quint64, last);

    const VisibleRange r = calculateVisibleIndices(count, SampleTimeBase{interval, start}, xMin, xMax);
    QCOMPARE(r.empty, empty);
    QCOMPARE(quint64(r.startIndex), first);
    QCOMPARE(quint64(r.endIndex), last);
}

void TstDownsampling::visibleIndicesMatchReferenceOnRandomViews()
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
        QCOMPARE(got.empty, want.empty);
        QCOMPARE(got.startIndex, want.startIndex);
        QCOMPARE(got.endIndex, want.endIndex);
    }
}

void TstDownsampling::reductionMatchesReferenceOnRandomData_data()
{
    QTest::addColumn<int>("distinctValues");
    QTest::newRow("continuous values") << 0;
    QTest::newRow("many ties") << 3;
    QTest::newRow("all equal") << 1;
}

void TstDownsampling::reductionMatchesReferenceOnRandomData()
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
        const double dt = 1e-6 * (1 + random.bounded(9));
        const QVector<QPointF> want = naive::downsample(v, dt, -0.5, a, b, maxPoints);
        const MinMaxPyramid pyramid(v);
        const QString where = QStringLiteral("%1 samples, [%2, %3], %4 points").arg(v.size()).arg(a).arg(b).arg(maxPoints);
        QVERIFY2(identical(downsampleVisibleRange(v, SampleTimeBase{dt, -0.5}, a, b, maxPoints), want), qPrintable(where));
        QVERIFY2(identical(downsampleVisibleRange(v, SampleTimeBase{dt, -0.5}, a, b, maxPoints, &pyramid), want),
                 qPrintable(where + QStringLiteral(" with the pyramid")));
    }
}

void TstDownsampling::pyramidMatchesReferenceOnLongViews()
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

void TstDownsampling::keepsEveryPointUpToTheLimit_data()
{
    QTest::addColumn<int>("visible");
    QTest::addColumn<bool>("reduced");
    QTest::newRow("5000 samples drawn one by one") << 5000 << false;
    QTest::newRow("5001 samples reduced") << 5001 << true;
}

void TstDownsampling::keepsEveryPointUpToTheLimit()
{
    QFETCH(int, visible);
    QFETCH(bool, reduced);
    QRandomGenerator random(7);
    const std::vector<double> v = randomSamples(random, visible, 0);
    const QVector<QPointF> points = downsampleVisibleRange(v, SampleTimeBase{1.0, 0.0}, 0, visible - 1, 5000);
    QCOMPARE(points.size() < visible, reduced);
    QVERIFY(points.size() <= 5000);
    if (!reduced) {
        for (int i = 0; i < visible; ++i)
            QCOMPARE(points[i].y(), v[i]);
    }
}

void TstDownsampling::reducesFullBucketsToMinAndMaxInTimeOrder()
{
    // Blocks of four whose maximum comes before the minimum in odd blocks.
    std::vector<double> v(10000);
    for (std::size_t i = 0; i < v.size(); ++i) {
        const std::size_t block = i / 4, k = i % 4;
        const bool maxFirst = block % 2 == 1;
        v[i] = k == 1 ? (maxFirst ? 9.0 : -9.0) : k == 2 ? (maxFirst ? -9.0 : 9.0) : 0.0;
    }
    const QVector<QPointF> points = downsampleVisibleRange(v, SampleTimeBase{2.0, 1.0}, 0, 9999, 5000);
    QCOMPARE(points.size(), 5000);
    for (int b = 0; b < 2500; ++b) {
        QCOMPARE(points[2 * b].x(), (4.0 * b + 1) * 2.0 + 1.0);
        QCOMPARE(points[2 * b + 1].x(), (4.0 * b + 2) * 2.0 + 1.0);
        QCOMPARE(points[2 * b].y(), b % 2 ? 9.0 : -9.0);
    }
}

QTEST_APPLESS_MAIN(TstDownsampling)
#include "tst_downsampling.moc"
