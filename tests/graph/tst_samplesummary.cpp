#include "samplesummary.h"

#include <QTest>

#include <cmath>
#include <limits>
#include <random>

class TstSampleSummary : public QObject
{
    Q_OBJECT

private slots:
    // The summary a pyramid gathers while it builds its blocks, on two threads for long arrays,
    // against the same summary taken sample by sample.
    void pyramidSummaryEqualsASampleBySampleOne_data()
    {
        QTest::addColumn<QString>("shape");
        QTest::addColumn<int>("count");
        for (int count : {1000, 5'000'037}) {
            for (const char *shape : {"gaps", "infinities", "only gaps", "only +inf"})
                QTest::addRow("%s, %d", shape, count) << shape << count;
        }
    }
    void pyramidSummaryEqualsASampleBySampleOne()
    {
        QFETCH(QString, shape);
        QFETCH(int, count);
        const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
        std::mt19937_64 random(7);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        std::vector<double> s(static_cast<size_t>(count));
        for (size_t i = 0; i < s.size(); ++i) {
            if (shape == "gaps")
                s[i] = i % 50 < 7 ? nan : uniform(random);
            else if (shape == "infinities")
                s[i] = i % 333 == 0 ? (i % 2 ? inf : -inf) : uniform(random);
            else
                s[i] = shape == "only gaps" || i % 3 ? nan : inf;
        }
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
};

QTEST_APPLESS_MAIN(TstSampleSummary)
#include "tst_samplesummary.moc"
