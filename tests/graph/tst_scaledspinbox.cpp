#include "scaledspinbox.h"

#include <QSignalSpy>
#include <QTest>

class TstScaledSpinBox : public QObject
{
    Q_OBJECT

private slots:
    void readsAndValidatesTypedText_data();
    void readsAndValidatesTypedText();
    void stepsThroughOneTwoFive_data();
    void stepsThroughOneTwoFive();
    void linearBoxStepsByItsStep();
};

void TstScaledSpinBox::readsAndValidatesTypedText_data()
{
    QTest::addColumn<QString>("unit");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("state");
    QTest::addColumn<double>("value"); // the box stood at 1 and keeps that when the text does not parse

    const double none = 1.0;
    const int ok = QValidator::Acceptable, typing = QValidator::Intermediate, bad = QValidator::Invalid;
    QTest::newRow("prefix and unit") << "s" << "2 ms" << ok << 0.002;
    QTest::newRow("no space") << "s" << "2ms" << ok << 0.002;
    QTest::newRow("mega is upper case") << "s" << "2 Ms" << ok << 2e6;
    QTest::newRow("prefix without unit") << "s" << "2 m" << ok << 0.002;
    QTest::newRow("bare number") << "s" << "2" << ok << 2.0;
    QTest::newRow("trimmed") << "s" << "  5 ks  " << ok << 5000.0;
    QTest::newRow("negative") << "V" << "-20 mV" << ok << -0.02;
    QTest::newRow("greek mu parses") << "s" << QString::fromUtf8("2 \u03bcs") << ok << 2e-6;
    QTest::newRow("ascii u parses") << "s" << "2 us" << ok << 2e-6;
    QTest::newRow("pico") << "s" << "1 ps" << ok << 1e-12;
    QTest::newRow("tera lower case") << "s" << "3 ts" << ok << 3e12;
    QTest::newRow("comma typed, not read") << "s" << "2,5 ms" << typing << none;
    QTest::newRow("femto typed, not read") << "s" << "2 fs" << typing << none;
    QTest::newRow("micro sign typed, not read") << "s" << QString::fromUtf8("2 \u00b5s") << typing << none;
    QTest::newRow("unit letters on the way") << "Hz" << "5 kH" << typing << none;
    QTest::newRow("empty") << "s" << "" << typing << none;
    QTest::newRow("foreign letter") << "s" << "2 x" << bad << none;
    QTest::newRow("other unit") << "V" << "2 ms" << bad << none;
    QTest::newRow("empty unit, plain") << "" << "5" << ok << 5.0;
    QTest::newRow("empty unit, kilo") << "" << "5k" << ok << 5000.0;
}

void TstScaledSpinBox::readsAndValidatesTypedText()
{
    QFETCH(QString, unit);
    QFETCH(QString, text);
    QFETCH(int, state);
    QFETCH(double, value);

    ScaledSpinBox box(unit);
    box.setValue(1.0);
    QString input = text;
    int pos = input.size();
    QCOMPARE(int(box.validate(input, pos)), state);
    QCOMPARE(pos, int(text.size()));
    QCOMPARE(box.valueFromText(text), value);
}

void TstScaledSpinBox::stepsThroughOneTwoFive_data()
{
    QTest::addColumn<double>("from");
    QTest::addColumn<int>("steps");
    QTest::addColumn<double>("to");
    QTest::newRow("three up") << 1.0 << 3 << 10.0;
    QTest::newRow("one down") << 1.0 << -1 << 0.5;
    QTest::newRow("two down from 2 m") << 0.002 << -2 << 0.0005;
    QTest::newRow("none") << 0.2 << 0 << 0.2;
}

void TstScaledSpinBox::stepsThroughOneTwoFive()
{
    QFETCH(double, from);
    QFETCH(int, steps);
    QFETCH(double, to);
    ScaledSpinBox box(QStringLiteral("V"));
    box.setValue(from);
    box.stepBy(steps);
    QCOMPARE(box.value(), to);
}

void TstScaledSpinBox::linearBoxStepsByItsStep()
{
    LinearSpinBox box(QStringLiteral("V"));
    box.setValue(0.2);
    QCOMPARE(box.value(), 0.2);
    box.setStep(0.5);
    QCOMPARE(box.value(), 0.2);
    QSignalSpy spy(&box, &QDoubleSpinBox::valueChanged);
    box.stepBy(1);
    QCOMPARE(box.value(), 0.7);
    box.stepBy(-3);
    QCOMPARE(box.value(), -0.8);
    QCOMPARE(spy.count(), 2);
}

QTEST_MAIN(TstScaledSpinBox)
#include "tst_scaledspinbox.moc"
