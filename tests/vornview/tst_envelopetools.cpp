// The viewer's envelope history: every change is one step, undo gives back the exact curves, and
// the title's mark follows the history; bad captures change nothing.
#include "envelopetools.h"
#include "viewerwindow.h"
#include "vorngraph.h"
#include "waveformwindow.h"
#include "zipfixture.h"

#include <QAction>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUndoStack>
#include <QtTest>

class TstEnvelopeTools : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_dir.path());
    }

    // New, applied, widened, made from captures, deleted: undone one by one back to the opened
    // capture, then redone.
    void undoRestoresTheExactCurvesAndTheMarkFollows()
    {
        const QString path = m_dir.filePath("history.sr");
        QVERIFY(writeZip(path, sampleCapture()));
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(path));
        VornGraph *graph = viewer.document()->graph();
        auto *tools = viewer.document()->findChild<EnvelopeTools *>();
        QVERIFY(tools);
        // With the number of captures drawn behind the trace, which Make From's step holds too.
        const auto shown = [graph] {
            return (graph->hasEnvelope(0) ? described(graph->envelope(0)) : QByteArray()) + '+'
                + QByteArray::number(graph->backgroundCaptureCount(0));
        };

        QByteArrayList states{shown()};
        graph->setEnvelope(0, envelopeOf(1));
        states << shown();
        graph->setEnvelope(0, envelopeOf(2));
        states << shown();
        QVERIFY(tools->widen(0, 1e-7, 0.25, 0.05));
        states << shown();
        QVERIFY(states.last() != states.at(2));
        QVERIFY(tools->makeFromCaptures(0, {path, path}));
        states << shown();
        graph->clearEnvelope(0);
        states << shown();
        QCOMPARE(tools->undoAction()->text(), "Undo Delete Envelope");
        QVERIFY(viewer.isWindowModified());

        for (int i = states.size() - 2; i >= 0; --i) {
            tools->undoAction()->trigger();
            QCOMPARE(shown(), states.at(i));
        }
        QVERIFY(!viewer.isWindowModified());
        for (int i = 1; i < states.size(); ++i) {
            tools->redoAction()->trigger();
            QCOMPARE(shown(), states.at(i));
        }
        tools->undoAction()->trigger();
        viewer.document()->saveAction()->trigger();
        QVERIFY(!viewer.isWindowModified());
        tools->undoAction()->trigger(); // before the save: modified again
        QVERIFY(viewer.isWindowModified());
    }

    void unreadableCapturesChangeNothing_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("reason");
        QTest::newRow("missing") << "none.sr" << "none.sr: ";
        QTest::newRow("other channels") << "other.sr" << "no waveform named A0";
    }
    void unreadableCapturesChangeNothing()
    {
        QFETCH(QString, file);
        QFETCH(QString, reason);
        const QString path = m_dir.filePath("base.sr");
        QVERIFY(writeZip(path, sampleCapture()));
        QVERIFY(saveEnvelope(path, "A0", envelopeOf(1)));
        auto other = sampleCapture();
        other[1].data.replace("analog4=A0", "analog4=B0");
        QVERIFY(writeZip(m_dir.filePath("other.sr"), other));
        const QByteArray before = readFile(path);
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(path));
        auto *tools = viewer.document()->findChild<EnvelopeTools *>();
        QString error;
        QVERIFY(!tools->makeFromCaptures(0, {path, m_dir.filePath(file)}, &error));
        QVERIFY2(error.contains(reason), qPrintable(error));
        QCOMPARE(described(viewer.document()->graph()->envelope(0)), described(envelopeOf(1)));
        QCOMPARE(tools->undoStack()->count(), 0);
        QCOMPARE(readFile(path), before);
    }

private:
    QTemporaryDir m_dir;
};

QTEST_MAIN(TstEnvelopeTools)
#include "tst_envelopetools.moc"
