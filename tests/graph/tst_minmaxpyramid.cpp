#include "minmaxpyramid.h"
#include "samplesummary.h"

#include <QTest>

#include <cmath>
#include <limits>
#include <random>

namespace {

// The plain front-to-back scan the pyramid must agree with.
MinMaxPyramid::Extremes scanned(const std::vector<double> &s, uint64_t first, uint64_t last)
{
    uint64_t lo = first, hi = first;
    for (uint64_t i = first + 1; i < last; ++i) {
        lo = s[i] < s[lo] ? i : lo;
        hi = s[i] > s[hi] ? i : hi;
    }
    return {s[lo], s[hi], lo, hi};
}

bool same(const MinMaxPyramid::Extremes &a, const MinMaxPyramid::Extremes &b)
{
    const auto eq = [](double x, double y) { return x == y || (std::isnan(x) && std::isnan(y)); };
    return eq(a.min, b.min) && eq(a.max, b.max) && a.minIndex == b.minIndex && a.maxIndex == b.maxIndex;
}

std::vector<double> makeSamples(const QString &shape, size_t n, std::mt19937_64 &random)
{
    std::vector<double> s(n);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::uniform_int_distribution<int> level(0, 3);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (size_t i = 0; i < n; ++i) {
        if (shape == "random")
            s[i] = uniform(random);
        else if (shape == "plateaus") // long runs of equal values: every tie matters
            s[i] = static_cast<double>(level(random) * ((i / 97) % 3));
        else if (shape == "block-edge extremes")
            s[i] = (i % 64 == 0 || i % 64 == 63) ? ((i / 64) % 2 ? 5.0 : -5.0) : uniform(random);
        else if (shape == "with gaps")
            s[i] = (i % 50 < 7) ? nan : uniform(random);
        else if (shape == "infinities")
            s[i] = i % 333 == 0 ? std::numeric_limits<double>::infinity() * (i % 2 ? 1 : -1) : level(random);
        else // "only gaps", "only +inf"
            s[i] = shape == "only gaps" || i % 3 ? nan : std::numeric_limits<double>::infinity();
    }
    return s;
}

} // namespace

class TstMinMaxPyramid : public QObject
{
    Q_OBJECT

private slots:
    void agreesWithAScanOnEveryRange_data()
    {
        QTest::addColumn<QString>("shape");
        for (const char *shape : {"random", "plateaus", "block-edge extremes", "with gaps", "infinities"})
            QTest::newRow(shape) << shape;
    }

    void agreesWithAScanOnEveryRange()
    {
        QFETCH(QString, shape);
        std::mt19937_64 random(42);
        for (size_t n : {1ul, 63ul, 64ul, 65ul, 1000ul, 70000ul}) {
            const std::vector<double> s = makeSamples(shape, n, random);
            const MinMaxPyramid pyramid(s);
            // Every start and end near the block edges, plus random ranges of every length.
            std::vector<std::pair<uint64_t, uint64_t>> ranges;
            for (uint64_t a : {0ul, 1ul, 62ul, 63ul, 64ul, 65ul, 127ul, 128ul, 255ul, 256ul, 1023ul, 1024ul})
                for (uint64_t b : {1ul, 2ul, 63ul, 64ul, 65ul, 128ul, 129ul, 1024ul, 1025ul, 4097ul, 65537ul, n})
                    if (a < b && b <= n)
                        ranges.emplace_back(a, b);
            std::uniform_int_distribution<uint64_t> pick(0, n - 1);
            for (int i = 0; i < 2000; ++i) {
                const uint64_t a = pick(random), b = pick(random);
                ranges.emplace_back(std::min(a, b), std::max(a, b) + 1);
            }
            for (const auto &[a, b] : ranges)
                if (!same(pyramid.extremes(s.data(), a, b), scanned(s, a, b)))
                    QFAIL(qPrintable(QStringLiteral("n %1, range [%2, %3)").arg(n).arg(a).arg(b)));
        }
    }

    // Long arrays are indexed on two threads that meet at a block of the level above the base:
    // ranges around the middle, where they meet, and the whole array.
    void agreesWhereTheThreadsMeet_data()
    {
        QTest::addColumn<QString>("shape");
        QTest::addColumn<int>("count");
        for (int count : {4'000'037, 4'194'624})
            for (const char *shape : {"random", "with gaps"})
                QTest::addRow("%s, %d", shape, count) << shape << count;
    }
    void agreesWhereTheThreadsMeet()
    {
        QFETCH(QString, shape);
        QFETCH(int, count);
        std::mt19937_64 random(3);
        const std::vector<double> s = makeSamples(shape, size_t(count), random);
        const MinMaxPyramid pyramid(s);
        const uint64_t n = s.size(), middle = n / 2;
        for (uint64_t before : {0ul, 1ul, 64ul, 129ul, 256ul, 1024ul, 5000ul, 70000ul, middle})
            for (uint64_t after : {1ul, 63ul, 128ul, 255ul, 1025ul, 4096ul, 70000ul, n - middle})
                if (!same(pyramid.extremes(s.data(), middle - before, middle + after), scanned(s, middle - before, middle + after)))
                    QFAIL(qPrintable(QStringLiteral("range [%1, %2)").arg(middle - before).arg(middle + after)));
    }

    void staysWithinAnEighthOfTheSamples()
    {
        const std::vector<double> s(1 << 20, 1.0);
        QVERIFY(MinMaxPyramid(s).memoryBytes() <= s.size() * sizeof(double) / 8);
    }

    // The summary a pyramid gathers while it builds its blocks, on two threads for long arrays,
    // against the same summary taken sample by sample.
    void pyramidSummaryEqualsASampleBySampleOne_data()
    {
        QTest::addColumn<QString>("shape");
        QTest::addColumn<int>("count");
        for (int count : {1000, 5'000'037}) {
            for (const char *shape : {"with gaps", "infinities", "only gaps", "only +inf"})
                QTest::addRow("%s, %d", shape, count) << shape << count;
        }
    }
    void pyramidSummaryEqualsASampleBySampleOne()
    {
        QFETCH(QString, shape);
        QFETCH(int, count);
        std::mt19937_64 random(7);
        const std::vector<double> s = makeSamples(shape, size_t(count), random);
        const SampleSummary expected = SampleSummary::of(s.data(), 0, s.size());
        const SampleSummary got = MinMaxPyramid(s).summary();
        QCOMPARE(got.min, expected.min);
        QCOMPARE(got.max, expected.max);
        QCOMPARE(got.finiteMin, expected.finiteMin);
        QCOMPARE(got.finiteMax, expected.finiteMax);
        QCOMPARE(got.count, expected.count);
        // Added in another order, so equal only to rounding.
        QVERIFY(got.sum == expected.sum || (std::isnan(got.sum) && std::isnan(expected.sum))
                || std::fabs(got.sum - expected.sum) <= 1e-9 * count);
    }

    void meanBelowAMillionthOfTheRangeIsZero_data()
    {
        QTest::addColumn<std::vector<double>>("samples");
        QTest::addColumn<double>("mean");
        const double gap = std::nan("");
        QTest::newRow("rounding noise of a symmetric signal") << std::vector<double>{10, -10, 3e-5} << 0.0;
        QTest::newRow("just above a millionth stays") << std::vector<double>{10, -10, 8e-5} << 8e-5 / 3;
        QTest::newRow("constant signal keeps its level") << std::vector<double>{2e-9, 2e-9} << 2e-9;
        QTest::newRow("gaps are no values") << std::vector<double>{gap, 1, 3, gap} << 2.0;
    }
    void meanBelowAMillionthOfTheRangeIsZero()
    {
        QFETCH(std::vector<double>, samples);
        QFETCH(double, mean);
        QCOMPARE(shownValues(SampleSummary::of(samples.data(), 0, samples.size())).mean, mean);
    }

    // Summed plainly, the 1 is lost in the rounding of 1e16 + 1 and the long mean drifts.
    void sumKeepsWhatRoundingLoses()
    {
        const std::vector<double> s{1e16, 1, -1e16};
        QCOMPARE(SampleSummary::of(s.data(), 0, s.size()).total(), 1.0);
    }
};

QTEST_APPLESS_MAIN(TstMinMaxPyramid)
#include "tst_minmaxpyramid.moc"
