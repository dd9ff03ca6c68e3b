#include "scaledspinbox.h"

#include <QTest>

class TstScaledSpinBox : public QObject
{
    Q_OBJECT

private slots:
    void validatesTypedText_data()
    {
        QTest::addColumn<QString>("unit");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("state");
        QTest::addColumn<double>("value"); // the box stood at 1 and keeps that when the text does not parse

        const double kept = 1.0;
        const int ok = QValidator::Acceptable, typing = QValidator::Intermediate, bad = QValidator::Invalid;
        QTest::newRow("prefix and unit") << "s" << "2 ms" << ok << 0.002;
        QTest::newRow("empty unit, kilo") << "" << "5k" << ok << 5000.0;
        QTest::newRow("comma typed, not read") << "s" << "2,5 ms" << typing << kept;
        QTest::newRow("micro sign typed, not read") << "s" << QString::fromUtf8("2 \u00b5s") << typing << kept;
        QTest::newRow("unit letters on the way") << "Hz" << "5 kH" << typing << kept;
        QTest::newRow("empty") << "s" << "" << typing << kept;
        QTest::newRow("foreign letter") << "s" << "2 x" << bad << kept;
        QTest::newRow("other unit") << "V" << "2 ms" << bad << kept;
    }

    void validatesTypedText()
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
        QCOMPARE(box.valueFromText(text), value);
    }

    void stepsThroughOneTwoFive()
    {
        ScaledSpinBox box(QStringLiteral("V"));
        box.setValue(1.0);
        box.stepBy(3);
        QCOMPARE(box.value(), 10.0);
        box.setValue(0.002);
        box.stepBy(-2);
        QCOMPARE(box.value(), 0.0005);
    }
};

QTEST_MAIN(TstScaledSpinBox)
#include "tst_scaledspinbox.moc"
