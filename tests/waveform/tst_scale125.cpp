#include "vornwaveform.h"

#include <QTest>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

// The 1-2-5 series from 1e-15 to 1e15 as decimal texts, each read by strtod, which gives the
// double nearest to the text.
std::vector<double> decimalSeries()
{
    std::vector<double> values;
    for (int exponent = -15; exponent <= 15; ++exponent) {
        for (const char *mantissa : {"1", "2", "5"}) {
            const std::string text = std::string(mantissa) + "e" + std::to_string(exponent);
            values.push_back(std::strtod(text.c_str(), nullptr));
        }
    }
    return values;
}

} // namespace

class TstScale125 : public QObject
{
    Q_OBJECT

private slots:
    void stepsHitTheNearestDoubleOfEachDecimalValue();
    void thirtyStepsReturnExactlyToOne();
    void stepsFromValuesOffTheSeries_data();
    void stepsFromValuesOffTheSeries();
};

void TstScale125::stepsHitTheNearestDoubleOfEachDecimalValue()
{
    const std::vector<double> series = decimalSeries();
    for (size_t i = 0; i + 1 < series.size(); ++i) {
        QCOMPARE(Scale125::nextUp(series[i]), series[i + 1]);
        QCOMPARE(Scale125::nextDown(series[i + 1]), series[i]);
    }
}

void TstScale125::thirtyStepsReturnExactlyToOne()
{
    // Up then down, and down then up: no rounding error may pile up on the way.
    for (int direction : {1, -1}) {
        double v = 1.0;
        for (int i = 0; i < 60; ++i)
            v = (i < 30) == (direction > 0) ? Scale125::nextUp(v) : Scale125::nextDown(v);
        QCOMPARE(v, 1.0);
    }
}

void TstScale125::stepsFromValuesOffTheSeries_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("up");
    QTest::addColumn<double>("down");
    QTest::newRow("between 2 and 5") << 3.0 << 5.0 << 2.0;
    QTest::newRow("just above 1") << 1.0000001 << 2.0 << 1.0;
    QTest::newRow("just below 10") << 9.999999 << 10.0 << 5.0;
    QTest::newRow("peak-to-peak 2 over ten divisions") << 0.2 << 0.5 << 0.1;
    QTest::newRow("below a picosecond") << 7e-13 << 1e-12 << 5e-13;
    QTest::newRow("zero") << 0.0 << 0.0 << 0.0;
    QTest::newRow("negative") << -3.0 << 0.0 << 0.0;
}

void TstScale125::stepsFromValuesOffTheSeries()
{
    QFETCH(double, value);
    QFETCH(double, up);
    QFETCH(double, down);
    QCOMPARE(Scale125::nextUp(value), up);
    QCOMPARE(Scale125::nextDown(value), down);
}

QTEST_APPLESS_MAIN(TstScale125)
#include "tst_scale125.moc"
