#include "messageboxanswerer.h"
#include "srcurvewriter.h"
#include "vorngraph.h"
#include "waveformwindow.h"

#include <QAction>
#include <QFile>
#include <QMenu>
#include <QMenuBar>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

namespace {

const double NaN = std::nan("");

WaveformData curve(std::vector<double> samples)
{
    WaveformData w;
    w.unit = QStringLiteral("V");
    w.sampleInterval = 1e-4;
    w.samples.writable() = std::move(samples);
    return w;
}

EnvelopeData envelopeOf(double level)
{
    EnvelopeData e;
    e.upper = curve({level, NaN, level + 1});
    e.lower = curve({-level, NaN, -level - 1});
    return e;
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QAction *menuAction(QWidget *window, const QString &menu, const QString &action = QString())
{
    for (QAction *top : window->findChild<QMenuBar *>()->actions()) {
        if (top->text() != menu)
            continue;
        if (action.isEmpty())
            return top;
        for (QAction *a : top->menu()->actions())
            if (a->text() == action)
                return a;
    }
    return nullptr;
}

} // namespace

class TstWaveformWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void pairsEnvelopeCurvesWithTheirWaveforms();
    void reportsUnreadableFiles_data();
    void reportsUnreadableFiles();
    void asksBeforeClosingOnlyWithChanges_data();
    void asksBeforeClosingOnlyWithChanges();
    void cancelKeepsExecModalWaiting();
    void savedEnvelopesOpenInANewWindow();
    void deletedEnvelopeIsAskedAboutAgainAfterSaving();
    void disabledEditingHidesSaveAndEnvelopeAndNeverAsks();
    void returnClosesOnlyWhenNotEditing();

private:
    QTemporaryDir m_dir;
    QString m_sigrok;
    QString m_capture; // A0, A1, A2 analog and D0 logic, with an envelope on A0
};

void TstWaveformWindow::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_sigrok = QStandardPaths::findExecutable(QStringLiteral("sigrok-cli"));
    if (m_sigrok.isEmpty())
        QSKIP("sigrok-cli is not installed (Debian package sigrok-cli); the window tests load its captures");
}

void TstWaveformWindow::init()
{
    m_capture = m_dir.filePath(QStringLiteral("capture-%1.sr").arg(QTest::currentTestFunction()));
    QFile::remove(m_capture);
    QCOMPARE(QProcess::execute(m_sigrok, {"-d", "demo", "--channels", "A0,A1,A2,D0", "--samples", "1000", "-o", m_capture}), 0);
    QVERIFY(saveEnvelope(m_capture, "A0", envelopeOf(20)));
}

void TstWaveformWindow::pairsEnvelopeCurvesWithTheirWaveforms()
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
                                   data(e.lower, "Ghost [lower]"), data(e.upper, "A2 [Upper]")},
                                  error));
    WaveformWindow window(m_capture, "t");
    VornGraph *graph = window.graph();
    QStringList names;
    for (int i = 0; i < graph->waveformCount(); ++i)
        names << graph->waveformName(i);
    QCOMPARE(names, (QStringList{"A0", "A1", "A2", "D0", "A2 [Upper]"}));
    QVERIFY(graph->hasEnvelope(0));
    const EnvelopeData &a0 = graph->envelope(0);
    QCOMPARE(a0.upper.samples->size(), size_t(3));
    QCOMPARE(a0.upper.samples->at(0), 20.0);
    QVERIFY(std::isnan(a0.upper.samples->at(1)));
    QCOMPARE(a0.lower.samples->at(2), -21.0);
    for (int i = 1; i < 5; ++i)
        QVERIFY2(!graph->hasEnvelope(i), qPrintable(names[i]));
}

void TstWaveformWindow::reportsUnreadableFiles_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    QTest::newRow("not a capture") << QByteArray("plain text") << "Could not read from waveform file: not a zip archive";
    QTest::newRow("missing") << QByteArray() << "Could not read from waveform file: file not found";
}

void TstWaveformWindow::reportsUnreadableFiles()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    const QString path = m_dir.filePath("unreadable.sr");
    QFile::remove(path);
    if (!content.isEmpty()) {
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(content);
    }
    MessageBoxAnswerer answerer({QMessageBox::Ok});
    WaveformWindow window(path, "t");
    QCOMPARE(answerer.asked, 1);
    QCOMPARE(answerer.title, QStringLiteral("Reading waveform file failed"));
    QCOMPARE(answerer.text, message);
    QCOMPARE(answerer.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
    QCOMPARE(window.graph()->waveformCount(), 0);
}

void TstWaveformWindow::asksBeforeClosingOnlyWithChanges_data()
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

void TstWaveformWindow::asksBeforeClosingOnlyWithChanges()
{
    QFETCH(bool, changed);
    QFETCH(QMessageBox::StandardButton, answer);
    QFETCH(bool, closes);
    QFETCH(bool, written);
    const QByteArray before = readAll(m_capture);
    WaveformWindow window(m_capture, "t");
    window.showNonModal();
    if (changed) {
        EnvelopeData moved = window.graph()->envelope(0);
        moved.upper.samples.writable()[0] = 21; // one upper sample moves
        window.graph()->setEnvelope(0, moved);
    }
    QSignalSpy closed(&window, &WaveformWindow::closed);
    MessageBoxAnswerer answerer({answer});
    QCOMPARE(window.close(), closes);
    QCOMPARE(answerer.asked, changed ? 1 : 0);
    QCOMPARE(closed.count(), closes ? 1 : 0);
    QCOMPARE(readAll(m_capture) != before, written);
    if (changed) {
        QCOMPARE(answerer.title, QStringLiteral("Unsaved Changes"));
        QCOMPARE(answerer.text, QStringLiteral("Envelope curves have been changed. Save changes?"));
        QCOMPARE(answerer.defaultButton, QMessageBox::Yes);
    }
}

void TstWaveformWindow::cancelKeepsExecModalWaiting()
{
    WaveformWindow window(m_capture, "t");
    window.graph()->clearEnvelope(0);
    MessageBoxAnswerer answerer({QMessageBox::Cancel, QMessageBox::No});
    bool openAfterCancel = false;
    QTimer::singleShot(50, &window, [&] { window.close(); openAfterCancel = window.isVisible(); });
    QTimer::singleShot(300, &window, [&] { window.close(); });
    window.execModal(); // returns only after the second close
    QCOMPARE(answerer.asked, 2);
    QVERIFY(openAfterCancel);
    QVERIFY(!window.isVisible());
}

void TstWaveformWindow::savedEnvelopesOpenInANewWindow()
{
    {
        WaveformWindow window(m_capture, "t");
        window.graph()->setEnvelope(2, envelopeOf(7));
        menuAction(&window, "File", "Save")->trigger();
        MessageBoxAnswerer answerer({QMessageBox::Cancel});
        QVERIFY(window.close());
        QCOMPARE(answerer.asked, 0);
    }
    WaveformWindow reopened(m_capture, "t");
    QVERIFY(reopened.graph()->hasEnvelope(0));
    QVERIFY(reopened.graph()->hasEnvelope(2));
    QCOMPARE(reopened.graph()->envelope(2).upper.samples->at(2), 8.0);
    QVERIFY(std::isnan(reopened.graph()->envelope(2).lower.samples->at(1)));
    QCOMPARE(reopened.graph()->envelope(2).upper.sampleInterval, 1e-4);
}

void TstWaveformWindow::deletedEnvelopeIsAskedAboutAgainAfterSaving()
{
    WaveformWindow window(m_capture, "t");
    window.showNonModal();
    {
        MessageBoxAnswerer answerer({QMessageBox::Yes});
        emit window.graph()->deleteEnvelopeRequested(0);
        QCOMPARE(answerer.title, QStringLiteral("Delete Envelope"));
        QCOMPARE(answerer.text, QStringLiteral("Do you really want to delete the envelope?"));
        QCOMPARE(answerer.defaultButton, QMessageBox::No);
    }
    QVERIFY(!window.graph()->hasEnvelope(0));
    menuAction(&window, "File", "Save")->trigger();
    MessageBoxAnswerer answerer({QMessageBox::No});
    QVERIFY(window.close());
    QCOMPARE(answerer.asked, 1); // the snapshot still holds the deleted envelope
    WaveformWindow reopened(m_capture, "t");
    QVERIFY(!reopened.graph()->hasEnvelope(0));
}

void TstWaveformWindow::disabledEditingHidesSaveAndEnvelopeAndNeverAsks()
{
    WaveformWindow window(m_capture, "t");
    window.setEnvelopeEditingEnabled(false);
    window.showNonModal();
    QVERIFY(!menuAction(&window, "File", "Save")->isVisible());
    QVERIFY(!menuAction(&window, "Envelope")->isVisible());
    window.graph()->clearEnvelope(0);
    MessageBoxAnswerer answerer({QMessageBox::Cancel});
    emit window.graph()->deleteEnvelopeRequested(1);
    emit window.graph()->editEnvelopeRequested(1);
    QVERIFY(!window.isEnvelopeEditing());
    QVERIFY(window.close());
    QCOMPARE(answerer.asked, 0);
}

void TstWaveformWindow::returnClosesOnlyWhenNotEditing()
{
    WaveformWindow window(m_capture, "t");
    window.showNonModal();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    window.startEnvelopeEditing(0);
    QVERIFY(window.isEnvelopeEditing());
    QTest::keyClick(&window, Qt::Key_Return);
    QVERIFY(window.isVisible());
    window.cancelEnvelopeEditing();
    QTest::keyClick(&window, Qt::Key_Enter);
    QVERIFY(!window.isVisible());
}

QTEST_MAIN(TstWaveformWindow)
#include "tst_waveformwindow.moc"
