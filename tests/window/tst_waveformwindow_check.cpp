// The envelope check in the window: summary, marks on the chart and violation navigation, on a
// capture made by the real sigrok-cli.

#include "../interaction/charttestharness.h"
#include "vorngraph.h"
#include "waveformwindow.h"

#include <QChartView>
#include <QGraphicsPathItem>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

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
    // The demo's A1 is a sine of 10 V over 20 samples: 9.51, 10, 9.51 V at samples 4 to 6, so a
    // band of +-9.4 V is left by runs of three samples starting at 4, 14, 24, ...
    void initTestCase()
    {
        const QString sigrok = QStandardPaths::findExecutable(QStringLiteral("sigrok-cli"));
        if (sigrok.isEmpty())
            QSKIP("sigrok-cli is not installed (Debian package sigrok-cli)");
        m_path = m_dir.filePath(QStringLiteral("demo.sr"));
        QCOMPARE(QProcess::execute(sigrok, {"-d", "demo", "--channels", "A0,A1", "--samples", QString::number(SAMPLES),
                                            "-o", m_path}), 0);
        QVERIFY(saveEnvelope(m_path, QStringLiteral("A1"), band(9.4)));
    }

    // Loading checked A1; setting an envelope, as Apply does, checks again. The window opens
    // centred between samples 9999 and 10000: the runs around it start at samples 9994, 10004
    // and 10014, and F3 and Shift+F3 centre on the next and previous one.
    void summaryMarksAndKeysFollowEveryEnvelope()
    {
        WaveformWindow window(m_path, QStringLiteral("check"));
        window.show();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        const auto marks = [&window] {
            auto *marks = dynamic_cast<QGraphicsPathItem *>(
                itemsAtDepth(window.graph()->findChild<QChartView *>()->scene(), 996.0).value(0));
            return marks ? marks->path().elementCount() : -1;
        };
        // The 20000 visible samples fall into 2500 buckets of 8, each marked on its first and last
        // violating sample: per 40 samples {4,5,6} {14,15} {16} {24,25,26} {34,35,36}, so 9 marks of
        // 5 path elements per 5 buckets.
        QCOMPARE(window.envelopeCheckSummary() + " " + QString::number(marks()),
                 QStringLiteral("A1: fail, 6000 violations, first at 20 μs %1").arg(2500 / 5 * 9 * 5));
        QStringList centres;
        for (int key : {-1, 1, 1, -1}) {
            QTest::keyClick(&window, Qt::Key_F3, key < 0 ? Qt::ShiftModifier : Qt::NoModifier);
            centres << QString::number(-window.graph()->timeOffset() / DT);
        }
        QCOMPARE(centres, QStringList({"9994", "10004", "10014", "10004"}));
        window.graph()->setEnvelope(1, band(10.5));
        QCOMPARE(window.envelopeCheckSummary() + " " + QString::number(marks()), QStringLiteral("A1: pass 0"));
        // Limits that run on for as long again past the last sample fail without a violation.
        EnvelopeData longer = band(10.5);
        longer.upper.samples.writable().push_back(10.5);
        longer.lower.samples.writable().push_back(-10.5);
        window.graph()->setEnvelope(1, longer);
        QCOMPARE(window.envelopeCheckSummary(), QStringLiteral("A1: fail, 99.995 ms of the envelope without samples"));
    }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

QTEST_MAIN(TstWaveformWindowCheck)
#include "tst_waveformwindow_check.moc"
