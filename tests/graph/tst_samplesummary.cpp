#include "samplesummary.h"

#include <QTest>

#include <cmath>

class TstSampleSummary : public QObject
{
    Q_OBJECT

private slots:
    void meanBelowAMillionthOfTheRangeIsZero_data();
    void meanBelowAMillionthOfTheRangeIsZero();
};

void TstSampleSummary::meanBelowAMillionthOfTheRangeIsZero_data()
{
    QTest::addColumn<std::vector<double>>("samples");
    QTest::addColumn<double>("mean");
    const double gap = std::nan("");
    QTest::newRow("rounding noise of a symmetric signal") << std::vector<double>{10, -10, 3e-5} << 0.0;
    QTest::newRow("just above a millionth stays") << std::vector<double>{10, -10, 8e-5} << 8e-5 / 3;
    QTest::newRow("constant signal keeps its level") << std::vector<double>{2e-9, 2e-9} << 2e-9;
    QTest::newRow("gaps are no values") << std::vector<double>{gap, 1, 3, gap} << 2.0;
}

void TstSampleSummary::meanBelowAMillionthOfTheRangeIsZero()
{
    QFETCH(std::vector<double>, samples);
    QFETCH(double, mean);
    QCOMPARE(summariseSamples(samples).mean, mean);
}

QTEST_APPLESS_MAIN(TstSampleSummary)
#include "tst_samplesummary.moc"
