#include "vornwaveform.h"

#include <QTest>

#include <cmath>
#include <cstdlib>
#include <string>

// The 1-2-5 steps of the scales, and the texts that show and read their values.
class TstValueFormatter : public QObject
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

    void formatsWithPrefixAndFewestDigits_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("unit");
        QTest::addColumn<QString>("text");
        QTest::newRow("milli") << 0.002 << "s" << "2 ms";
        QTest::newRow("kilo with decimals") << 1500.0 << "V" << "1.5 kV";
        QTest::newRow("zero") << 0.0 << "V" << "0 V";
        QTest::newRow("negative micro") << -20e-6 << "A" << QString::fromUtf8("-20 μA");
        QTest::newRow("no unit") << 2e-9 << "" << "2 n";
        QTest::newRow("no unit, no prefix") << 5.0 << "" << "5";
        QTest::newRow("tera") << 2e12 << "Hz" << "2 THz";
        QTest::newRow("below pico") << 1e-15 << "s" << "0.001 ps";
        QTest::newRow("six significant at most") << 1234.5678 << "V" << "1.23457 kV";
        QTest::newRow("rounding carries to the next prefix") << 0.9999996 << "V" << "1 V";
    }

    void formatsWithPrefixAndFewestDigits()
    {
        QFETCH(double, value);
        QFETCH(QString, unit);
        QFETCH(QString, text);
        QCOMPARE(ValueFormatter::formatWithUnit(value, unit), text);
    }

    // Every text of the 1-2-5 series in every prefix is also read back by the walk below; these
    // are the other ways a value is typed, and texts that must not parse.
    void parsesPrefixedText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("unit");
        QTest::addColumn<double>("value"); // NaN: does not parse
        const double nan = std::nan("");
        QTest::newRow("milli without blank") << "2ms" << "s" << 0.002;
        QTest::newRow("prefix without unit") << "2 m" << "s" << 0.002;
        QTest::newRow("bare number") << "2" << "s" << 2.0;
        QTest::newRow("trimmed") << "  5 ks  " << "s" << 5000.0;
        QTest::newRow("ascii u") << "2 us" << "s" << 2e-6;
        QTest::newRow("femto does not parse") << "2 fs" << "s" << nan;
        QTest::newRow("comma does not parse") << "2,5 ms" << "s" << nan;
        QTest::newRow("micro sign does not parse") << QString::fromUtf8("2 \u00b5s") << "s" << nan;
        QTest::newRow("other unit does not parse") << "2 ms" << "V" << nan;
    }

    void parsesPrefixedText()
    {
        QFETCH(QString, text);
        QFETCH(QString, unit);
        QFETCH(double, value);
        QCOMPARE(QString::number(parseScaledValue(text, unit), 'g', 17), QString::number(value, 'g', 17));
    }

    void commandLinesTakeTheMicroSignToo()
    {
        for (const char *text : {"2\u00b5s", "2 \u00b5s", "2 \u03bcs", "2 us"})
            QCOMPARE(parseCommandLineValue(QString::fromUtf8(text), "s"), 2e-6);
    }

    // "m" is a unit and a prefix letter at once.
    void seriesValuesSurviveFormatThenParse()
    {
        for (const QString unit : {"V", "", "m"}) {
            for (double v = 1e-12; v <= 1e12; v = Scale125::nextUp(v)) {
                for (double signedValue : {v, -v}) {
                    const QString text = ValueFormatter::formatWithUnit(signedValue, unit);
                    QVERIFY2(parseScaledValue(text, unit) == signedValue,
                             qPrintable(text + QStringLiteral(" from %1").arg(signedValue, 0, 'g', 17)));
                }
            }
        }
    }
};

QTEST_APPLESS_MAIN(TstValueFormatter)
#include "tst_valueformatter.moc"
