#include "messageboxanswerer.h"
#include "srcurvewriter.h"
#include "vorngraph.h"
#include "waveformwindow.h"
#include "zipfixture.h"

#include <QAction>
#include <QMenuBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

class TstWaveformWindow : public QObject
{
    Q_OBJECT

private slots:
    // A0, A1 analog and D0, D2 logic, with an envelope on A0.
    void init()
    {
        m_capture = m_dir.filePath(QStringLiteral("capture-%1.sr").arg(QTest::currentTestFunction()));
        QVERIFY(writeZip(m_capture, sampleCapture()) && saveEnvelope(m_capture, "A0", envelopeOf(20)));
    }

    void pairsEnvelopeCurvesWithTheirWaveforms()
    {
        // A lone upper curve, a pair for a waveform that is not there, and a curve whose suffix
        // differs in case, which makes it a waveform of its own.
        std::string error;
        const EnvelopeData e = envelopeOf(3);
        const auto data = [](const WaveformData &w, const char *name) {
            return vornsr::CurveData{name, "V", w.sampleInterval, w.startTime, w.samples->data(), w.samples->size()};
        };
        QVERIFY(vornsr::replaceCurves(m_capture.toStdString(), {},
                                      {data(e.upper, "A1 [upper]"), data(e.upper, "Ghost [upper]"),
                                       data(e.lower, "Ghost [lower]"), data(e.upper, "A1 [Upper]")}, error));
        WaveformWindow window(m_capture, "t");
        VornGraph *graph = window.graph();
        QStringList names;
        for (int i = 0; i < graph->waveformCount(); ++i)
            names << graph->waveformName(i) + (graph->hasEnvelope(i) ? " with envelope" : "");
        QCOMPARE(names, (QStringList{"A0 with envelope", "A1", "D0", "D2", "A1 [Upper]"}));
        QCOMPARE(described(graph->envelope(0)), described(envelopeOf(20)));
    }

    // Device channels named like limits are waveforms of their own: A0 is judged by the limits we
    // stored for it, and limits that cannot judge fail it with their reason.
    void judgesOnlyByStoredLimits_data()
    {
        QTest::addColumn<QByteArray>("posing"); // the suffix of two device channels beside A0
        QTest::addColumn<double>("upper");      // A0's stored upper limit; the lower one is -1
        QTest::addColumn<QString>("summary");
        QTest::newRow("channels named as limits") << QByteArray(" [upper]") << 1.5 << "A0: fail, 1 violations, first at 1 ms";
        QTest::newRow("infinite limit") << QByteArray(" x") << double(-INFINITY)
                                        << "A0: fail, its envelope cannot judge: the upper limit is infinite at 0 s";
    }
    void judgesOnlyByStoredLimits()
    {
        QFETCH(QByteArray, posing);
        QFETCH(double, upper);
        QFETCH(QString, summary);
        const QList<float> hot{0.0f, 204e3f, 0.0f}, wide{1e6f, 1e6f, 1e6f};
        const auto members = withCurves(analogCapture({{"A0", hot}, {"A0" + posing, wide}, {"A0 [lower]", {-1e6f, -1e6f, -1e6f}}}),
                                        {{"A0 [upper]", {upper, upper, upper}}, {"A0 [lower]", {-1, -1, -1}}});
        QVERIFY(writeZip(m_capture, members));
        WaveformWindow window(m_capture, "t");
        QStringList names;
        for (int i = 0; i < window.graph()->waveformCount(); ++i)
            names << window.graph()->waveformName(i);
        QCOMPARE(names, (QStringList{"A0", "A0" + posing.replace(" [upper]", " [upper] (channel)"), "A0 [lower] (channel)"}));
        QCOMPARE(window.envelopeCheckSummary(), summary);
    }

    // An envelope another program stored meanwhile, or a curve the window cannot show, stays;
    // a file replaced since it was read is not written at all.
    void savingChangedEnvelopesTouchesNothingElse_data()
    {
        QTest::addColumn<bool>("replaced");
        QTest::newRow("the file as it was read") << false;
        QTest::newRow("the file replaced meanwhile") << true;
    }
    void savingChangedEnvelopesTouchesNothingElse()
    {
        QFETCH(bool, replaced);
        const WaveformData lone = envelopeOf(3).upper; // an upper curve without a lower one
        std::string error;
        QVERIFY(vornsr::replaceCurves(m_capture.toStdString(), {},
                                      {{"A1 [upper]", "V", lone.sampleInterval, lone.startTime, lone.samples->data(), lone.samples->size()}},
                                      error));
        WaveformWindow window(m_capture, "t");
        window.graph()->setEnvelope(0, envelopeOf(5));
        if (replaced)
            QVERIFY(writeZip(m_capture, sampleCapture()));
        const QByteArray before = readFile(m_capture);
        QSignalSpy failed(&window, &WaveformWindow::saveFailed);
        QCOMPARE(QList<bool>({window.saveChangedEnvelopes(), !failed.isEmpty(), window.hasUnsavedChanges()}),
                 QList<bool>({!replaced, replaced, replaced}));
        QCOMPARE(readFile(m_capture) == before, replaced);
        if (replaced)
            return;
        QVERIFY(offeredNames(m_capture).contains("A1 [upper]"));
        WaveformWindow reopened(m_capture, "t");
        QCOMPARE(described(reopened.graph()->envelope(0)), described(envelopeOf(5)));
    }

    void asksBeforeClosingOnlyWithChanges_data()
    {
        QTest::addColumn<bool>("changed");
        QTest::addColumn<QMessageBox::StandardButton>("answer");
        QTest::addColumn<bool>("closes");
        QTest::addColumn<bool>("written");
        QTest::newRow("nothing changed: no question") << false << QMessageBox::Cancel << true << false;
        QTest::newRow("yes saves and closes") << true << QMessageBox::Yes << true << true;
        QTest::newRow("no closes without writing") << true << QMessageBox::No << true << false;
        QTest::newRow("cancel stays open") << true << QMessageBox::Cancel << false << false;
    }
    void asksBeforeClosingOnlyWithChanges()
    {
        QFETCH(bool, changed);
        QFETCH(QMessageBox::StandardButton, answer);
        QFETCH(bool, closes);
        QFETCH(bool, written);
        const QByteArray before = readFile(m_capture);
        WaveformWindow window(m_capture, "t");
        window.showNonModal();
        if (changed) {
            EnvelopeData moved = window.graph()->envelope(0);
            moved.upper.samples.writable()[0] = 21; // one upper sample moves
            window.graph()->setEnvelope(0, moved);
        }
        QSignalSpy closed(&window, &WaveformWindow::closed);
        MessageBoxAnswerer answerer({answer});
        QCOMPARE(QList<bool>({window.close(), closed.count() == 1, readFile(m_capture) != before}),
                 QList<bool>({closes, closes, written}));
        QCOMPARE(QStringList({answerer.title, answerer.text, QString::number(answerer.defaultButton)}).join('|'),
                 changed ? "Unsaved Changes|Envelope curves have been changed. Save changes?|" + QString::number(QMessageBox::Yes)
                         : "||0");
    }

    void cancelKeepsExecModalWaiting()
    {
        WaveformWindow window(m_capture, "t");
        window.graph()->clearEnvelope(0);
        MessageBoxAnswerer answerer({QMessageBox::Cancel, QMessageBox::No});
        bool openAfterCancel = false;
        QTimer::singleShot(50, &window, [&] { window.close(); openAfterCancel = window.isVisible(); });
        QTimer::singleShot(300, &window, [&] { window.close(); });
        window.execModal(); // returns only after the second close
        QCOMPARE(answerer.asked, 2);
        QVERIFY(openAfterCancel && !window.isVisible());
    }

    void savedEnvelopesOpenInANewWindow_data()
    {
        QTest::addColumn<bool>("deleteFirst"); // A0's envelope deleted, with confirmation, before saving
        QTest::addColumn<int>("asked");        // questions on closing after the save
        QTest::newRow("one added") << false << 0;
        // A deleted envelope stays in the snapshot that closing compares with.
        QTest::newRow("one added, one deleted") << true << 1;
    }
    void savedEnvelopesOpenInANewWindow()
    {
        QFETCH(bool, deleteFirst);
        QFETCH(int, asked);
        {
            WaveformWindow window(m_capture, "t");
            window.showNonModal();
            window.graph()->setEnvelope(2, envelopeOf(7)); // waveform 1 between them has none
            if (deleteFirst) {
                MessageBoxAnswerer answerer({QMessageBox::Yes});
                emit window.graph()->deleteEnvelopeRequested(0);
                QCOMPARE(answerer.title + '|' + answerer.text, "Delete Envelope|Do you really want to delete the envelope?");
                QVERIFY(answerer.defaultButton == QMessageBox::No && !window.graph()->hasEnvelope(0));
            }
            window.saveAction()->trigger();
            MessageBoxAnswerer answerer({QMessageBox::No});
            QVERIFY(window.close());
            QCOMPARE(answerer.asked, asked);
        }
        WaveformWindow reopened(m_capture, "t");
        QCOMPARE(reopened.graph()->hasEnvelope(0), !deleteFirst);
        QCOMPARE(described(reopened.graph()->envelope(2)), described(envelopeOf(7)));
    }

    void disabledEditingHidesSaveAndEnvelopeAndNeverAsks()
    {
        WaveformWindow window(m_capture, "t");
        // Hosts get exactly these menus; whatever an application adds is its own.
        QStringList menus;
        for (const QAction *menu : window.menuBar()->actions())
            for (const QAction *action : menu->menu()->actions())
                menus << menu->text() + '/' + action->text();
        QCOMPARE(menus, QStringList({"File/Save", "File/Close", "Envelope/Edit", "Envelope/Delete"}));
        window.setEnvelopeEditingEnabled(false);
        window.showNonModal();
        QVERIFY(!window.saveAction()->isVisible() && !window.menuBar()->actions().value(1)->isVisible());
        window.graph()->clearEnvelope(0);
        MessageBoxAnswerer answerer({QMessageBox::Cancel});
        emit window.graph()->deleteEnvelopeRequested(1);
        emit window.graph()->editEnvelopeRequested(1);
        QVERIFY(!window.isEnvelopeEditing() && window.close());
        QCOMPARE(answerer.asked, 0);
    }

    void returnClosesOnlyWhenNotEditing()
    {
        WaveformWindow window(m_capture, "t");
        window.showNonModal();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        window.startEnvelopeEditing(0);
        QTest::keyClick(&window, Qt::Key_Return);
        QVERIFY(window.isVisible());
        window.cancelEnvelopeEditing();
        QTest::keyClick(&window, Qt::Key_Enter);
        QVERIFY(!window.isVisible());
    }

private:
    QTemporaryDir m_dir;
    QString m_capture;
};

QTEST_MAIN(TstWaveformWindow)
#include "tst_waveformwindow.moc"
