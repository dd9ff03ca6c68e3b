#include "vornwaveform.h"

#include <QTest>

#include <cstdlib>
#include <string>

class TstScale125 : public QObject
{
    Q_OBJECT

private slots:
    // The 1-2-5 series from 1e-15 to 1e15 as decimal texts read by strtod, which gives the double
    // nearest to the text. Exact steps also mean that any walk up and back down returns exactly.
    void stepsHitTheNearestDoubleOfEachDecimalValue()
    {
        std::vector<double> series;
        for (int exponent = -15; exponent <= 15; ++exponent)
            for (const char *mantissa : {"1", "2", "5"})
                series.push_back(std::strtod((mantissa + ("e" + std::to_string(exponent))).c_str(), nullptr));
        for (size_t i = 0; i + 1 < series.size(); ++i) {
            QCOMPARE(Scale125::nextUp(series[i]), series[i + 1]);
            QCOMPARE(Scale125::nextDown(series[i + 1]), series[i]);
        }
    }

    void stepsFromValuesOffTheSeries_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<double>("up");
        QTest::addColumn<double>("down");
        QTest::newRow("between 2 and 5") << 3.0 << 5.0 << 2.0;
        QTest::newRow("just above 1") << 1.0000001 << 2.0 << 1.0;
        QTest::newRow("just below 10") << 9.999999 << 10.0 << 5.0;
        QTest::newRow("below a picosecond") << 7e-13 << 1e-12 << 5e-13;
        QTest::newRow("zero") << 0.0 << 0.0 << 0.0;
        QTest::newRow("negative") << -3.0 << 0.0 << 0.0;
    }
    void stepsFromValuesOffTheSeries()
    {
        QFETCH(double, value);
        QFETCH(double, up);
        QFETCH(double, down);
        QCOMPARE(Scale125::nextUp(value), up);
        QCOMPARE(Scale125::nextDown(value), down);
    }
};

QTEST_APPLESS_MAIN(TstScale125)
#include "tst_scale125.moc"
