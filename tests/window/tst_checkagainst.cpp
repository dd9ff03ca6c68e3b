// A capture checked against a golden one in the window: aligned, listed run by run, stepped
// through with wrap-around, and written only on Save.

#include "violationlist.h"
#include "vorngraph.h"
#include "waveformwindow.h"
#include "zipfixture.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

namespace {

// A 1 MHz capture of a 3.3 V pulse from rise to fall with 2 us edges, and glitches of 0.5 V:
// five samples from sample glitch on, three from 2000 samples later.
WaveformData pulse(int samples, double rise, double fall, int glitch = -1)
{
    WaveformData w;
    w.name = QStringLiteral("A1");
    w.sampleInterval = 1e-6;
    for (int i = 0; i < samples; ++i) {
        const double t = i * 1e-6;
        const bool high = (i >= glitch && i < glitch + 5) || (i >= glitch + 2000 && i < glitch + 2003);
        w.samples.writable().push_back(1.65 * (std::tanh((t - rise) / 2e-6) - std::tanh((t - fall) / 2e-6))
                                       + (glitch >= 0 && high ? 0.5 : 0.0));
    }
    return w;
}

bool writeCapture(const QString &path, const WaveformData &w)
{
    QByteArray data;
    for (double v : *w.samples) {
        const float f = static_cast<float>(v);
        data.append(reinterpret_cast<const char *>(&f), sizeof f);
    }
    return writeZip(path, {{"version", "2"},
                           {"metadata", "[global]\nsigrok version=0.5.2\n\n[device 1]\ncapturefile=logic-1\n"
                                        "total probes=0\nsamplerate=1 MHz\ntotal analog=1\nanalog1=A1\nunitsize=1\n", true},
                           {"analog-1-1-1", data, true}});
}

} // namespace

class TstCheckAgainst : public QObject
{
    Q_OBJECT

private slots:
    // The line's capture started 250 us before the golden one and has two glitches, at 8 and 10 ms
    // of the golden time base.
    void initTestCase()
    {
        m_golden = m_dir.filePath(QStringLiteral("golden.sr"));
        m_capture = m_dir.filePath(QStringLiteral("line.sr"));
        const WaveformData golden = pulse(20000, 5e-3, 12e-3);
        SourceHull hull;
        QVERIFY(hull.add(golden));
        QVERIFY(writeCapture(m_golden, golden));
        QVERIFY(saveEnvelope(m_golden, QStringLiteral("A1"), hull.build({})));
        QVERIFY(writeCapture(m_capture, pulse(21000, 5.25e-3, 12.25e-3, 8250)));
    }

    void alignsListsAndStepsThroughRuns()
    {
        const QByteArray before = readFile(m_capture);
        WaveformWindow window(m_capture, QStringLiteral("line"));
        window.resize(1000, 700);
        window.show();
        QString error;
        AlignmentOptions search;
        search.maxShift = 1e-3;
        QCOMPARE(window.checkAgainst(m_dir.filePath(QStringLiteral("missing.sr")), search, &error), QStringList());
        QVERIFY(!error.isEmpty() && !window.hasUnsavedChanges());

        ViolationList list(window.graph());
        QCOMPARE(window.checkAgainst(m_golden, search, &error), QStringList{QString::fromUtf8("A1: shift 250 μs")});
        QVERIFY(window.hasUnsavedChanges());
        QCOMPARE(readFile(m_capture), before);

        QCOMPARE(list.runCount(), 2);
        QCOMPARE(QStringList({QString::number(list.run(0).start * 1e6), QString::number(list.run(0).count),
                              QString::number(list.run(1).start * 1e6), QString::number(list.run(1).count)}),
                 QStringList({"8000", "5", "10000", "3"}));
        QVERIFY(std::fabs(list.run(0).worstExcess - 0.5) < 0.1);

        QSignalSpy messages(&list, &ViolationList::message);
        const auto landings = [&](bool forward, int steps) {
            QStringList seen;
            for (int i = 0; i < steps; ++i) {
                QVERIFY(forward ? list.showNextRun() : list.showPreviousRun());
                const ViolationRun r = list.run(list.currentRun());
                // Centred on the run (to the tenth of a division the time offset keeps), which fills
                // about a third of the screen.
                QVERIFY(std::fabs(window.graph()->timeOffset() + r.start + r.length / 2)
                        <= window.graph()->timePerDivision() * 0.05 + 1e-12);
                QVERIFY(window.graph()->timePerDivision() < r.length && window.graph()->timePerDivision() > r.length / 20);
                seen << QString::number(list.currentRun()) + ":" + messages.takeLast().at(0).toString();
            }
            QCOMPARE(seen, (forward ? QStringList{"0:violation 1 of 2", "1:violation 2 of 2", "0:wrapped to the first violation"}
                                    : QStringList{"1:wrapped to the last violation", "0:violation 1 of 2"}));
        };
        landings(true, 3);
        landings(false, 2);

        VornGraph empty;
        ViolationList none(&empty);
        QSignalSpy quiet(&none, &ViolationList::message);
        QVERIFY(!none.showNextRun());
        QCOMPARE(quiet.takeFirst().at(0).toString(), QStringLiteral("no violations"));
    }

private:
    QTemporaryDir m_dir;
    QString m_golden;
    QString m_capture;
};

QTEST_MAIN(TstCheckAgainst)
#include "tst_checkagainst.moc"
