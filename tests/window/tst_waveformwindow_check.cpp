// The envelope check in the window: summary, marks on the chart and violation navigation, on a
// capture made by the real sigrok-cli.

#include "vorngraph.h"
#include "waveformwindow.h"

#include <QChart>
#include <QChartView>
#include <QGraphicsPathItem>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QValueAxis>

#include <memory>

namespace {

constexpr double DT = 5e-6; // the demo driver's default 200 kHz
constexpr int SAMPLES = 20000;

// A constant band of +-level over the whole capture.
EnvelopeData band(double level)
{
    EnvelopeData e;
    for (auto [curve, value] : {std::make_pair(&e.upper, level), std::make_pair(&e.lower, -level)}) {
        curve->sampleInterval = (SAMPLES - 1) * DT;
        curve->samples.writable() = {value, value};
    }
    return e;
}

} // namespace

class TstWaveformWindowCheck : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void summaryAndMarksFollowEveryEnvelope();
    void keysCentreOnTheRunsOfViolations_data();
    void keysCentreOnTheRunsOfViolations();

private:
    QGraphicsPathItem *marks() const;
    double centre() const;

    QTemporaryDir m_dir;
    QString m_path;
    std::unique_ptr<WaveformWindow> m_window;
};

// The demo's A1 is a sine of 10 V over 20 samples: 9.51, 10, 9.51 V at samples 4 to 6, so a band
// of +-9.4 V is left by runs of three samples starting at 4, 14, 24, ...
void TstWaveformWindowCheck::initTestCase()
{
    const QString sigrok = QStandardPaths::findExecutable(QStringLiteral("sigrok-cli"));
    if (sigrok.isEmpty())
        QSKIP("sigrok-cli is not installed (Debian package sigrok-cli)");
    m_path = m_dir.filePath(QStringLiteral("demo.sr"));
    const QString &path = m_path;
    QCOMPARE(QProcess::execute(sigrok, {"-d", "demo", "--channels", "A0,A1", "--samples", QString::number(SAMPLES),
                                        "-o", path}),
             0);
    QVERIFY(saveEnvelope(path, QStringLiteral("A1"), band(9.4)));
    m_window = std::make_unique<WaveformWindow>(path, QStringLiteral("check"));
    m_window->show();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
}

QGraphicsPathItem *TstWaveformWindowCheck::marks() const
{
    for (QGraphicsItem *item : m_window->graph()->findChild<QChartView *>()->scene()->items()) {
        if (auto *path = dynamic_cast<QGraphicsPathItem *>(item); path && item->zValue() == 996.0)
            return path;
    }
    return nullptr;
}

double TstWaveformWindowCheck::centre() const
{
    for (QAbstractAxis *axis : m_window->graph()->findChild<QChartView *>()->chart()->axes(Qt::Horizontal)) {
        if (axis->type() == QAbstractAxis::AxisTypeValue) {
            const auto *value = static_cast<QValueAxis *>(axis);
            return (value->min() + value->max()) / 2;
        }
    }
    return -1;
}

// Loading checked A1; setting an envelope, as Apply does, checks again.
void TstWaveformWindowCheck::summaryAndMarksFollowEveryEnvelope()
{
    QCOMPARE(m_window->envelopeCheckSummary(), QStringLiteral("A1: fail, 6000 violations, first at 20 μs"));
    QVERIFY(marks() && !marks()->path().isEmpty());
    // The 20000 visible samples fall into 2500 buckets of 8, each marked on its first and last
    // violating sample: per 40 samples {4,5,6} {14,15} {16} {24,25,26} {34,35,36}, so 9 marks of
    // 5 path elements per 5 buckets.
    QCOMPARE(marks()->path().elementCount(), 2500 / 5 * 9 * 5);

    m_window->graph()->setEnvelope(1, band(10.5));
    QCOMPARE(m_window->envelopeCheckSummary(), QStringLiteral("A1: pass"));
    QVERIFY(marks()->path().isEmpty());
    m_window->graph()->setEnvelope(1, band(9.4));
}

// A window opens centred on the capture's middle, between samples 9999 and 10000: the runs
// around it start at samples 9994, 10004 and 10014.
void TstWaveformWindowCheck::keysCentreOnTheRunsOfViolations_data()
{
    QTest::addColumn<QList<int>>("keys"); // +1 F3, -1 Shift+F3
    QTest::addColumn<double>("centre");
    QTest::newRow("next") << QList<int>{1} << 10004 * DT;
    QTest::newRow("previous") << QList<int>{-1} << 9994 * DT;
    QTest::newRow("over a whole run") << QList<int>{1, 1} << 10014 * DT;
    QTest::newRow("and back") << QList<int>{1, 1, -1} << 10004 * DT;
}

void TstWaveformWindowCheck::keysCentreOnTheRunsOfViolations()
{
    QFETCH(QList<int>, keys);
    QFETCH(double, centre);
    m_window = std::make_unique<WaveformWindow>(m_path, QStringLiteral("check"));
    m_window->show();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    for (int key : keys)
        QTest::keyClick(m_window.get(), Qt::Key_F3, key < 0 ? Qt::ShiftModifier : Qt::NoModifier);
    QCOMPARE(this->centre(), centre);
}

QTEST_MAIN(TstWaveformWindowCheck)
#include "tst_waveformwindow_check.moc"
