#include "../window/messageboxanswerer.h"
#include "translators.h"
#include "viewerwindow.h"
#include "vorngraph.h"
#include "waveformwindow.h"

#include <QDropEvent>
#include <QMenuBar>
#include <QMimeData>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

class TstViewerWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void failedSaveIsReportedAndAskedAboutUntilItSucceeds();
    void savedDeletionLeavesNothingToAsk();
    void unreadableFileKeepsTheOpenCapture();
    void droppedCaptureOpensAndLeadsRecentFiles();
    void showsGermanTextsUnderAGermanLocale_data();
    void showsGermanTextsUnderAGermanLocale();

private:
    QString capture(const QString &name);
    QTemporaryDir m_dir;
};

void TstViewerWindow::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_dir.isValid());
    // Settings of this process only: the German run of this test may run at the same time.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_dir.path());
    if (QStandardPaths::findExecutable(QStringLiteral("sigrok-cli")).isEmpty())
        QSKIP("sigrok-cli is not installed (Debian package sigrok-cli); the viewer opens its captures");
}

void TstViewerWindow::init()
{
    QSettings().clear();
}

QString TstViewerWindow::capture(const QString &name)
{
    const QString path = m_dir.filePath(name);
    QFile::remove(path);
    if (QProcess::execute("sigrok-cli", {"-d", "demo", "--channels", "A0,D0", "--samples", "100", "-o", path}) != 0)
        return QString();
    return path;
}

void TstViewerWindow::failedSaveIsReportedAndAskedAboutUntilItSucceeds()
{
    const QString path = capture("vanishes.sr");
    ViewerWindow viewer;
    viewer.show();
    QVERIFY(viewer.openFile(path));
    VornGraph *graph = viewer.document()->graph();
    EnvelopeData envelope;
    envelope.upper.samples.writable() = {1.0, 1.0};
    envelope.lower.samples.writable() = {-1.0, -1.0};
    graph->setEnvelope(0, envelope);
    QVERIFY(QFile::remove(path));
    MessageBoxAnswerer answerer({QMessageBox::Cancel, QMessageBox::Yes, QMessageBox::Ok, QMessageBox::No});

    QVERIFY(!viewer.openFile(capture("other.sr"))); // cancelled
    QVERIFY(!viewer.close()); // saved, which failed
    QCOMPARE(answerer.asked, 3);
    QCOMPARE(answerer.title, "Saving failed");
    QVERIFY2(answerer.text.endsWith("file not found"), qPrintable(answerer.text));
    QVERIFY(viewer.isWindowModified());
    QVERIFY(viewer.close()); // asked again, not saved
    QCOMPARE(answerer.asked, 4);
}

void TstViewerWindow::savedDeletionLeavesNothingToAsk()
{
    const QString path = capture("deleted.sr");
    EnvelopeData envelope;
    envelope.upper.samples.writable() = {1.0, 1.0};
    envelope.lower.samples.writable() = {-1.0, -1.0};
    QVERIFY(saveEnvelope(path, "A0", envelope));
    ViewerWindow viewer;
    QVERIFY(viewer.openFile(path));
    viewer.document()->graph()->clearEnvelope(0);
    viewer.document()->saveAction()->trigger();
    MessageBoxAnswerer answerer({QMessageBox::Cancel});
    QVERIFY(viewer.close());
    QCOMPARE(answerer.asked, 0);
}

void TstViewerWindow::unreadableFileKeepsTheOpenCapture()
{
    const QString good = capture("good.sr");
    const QString bad = m_dir.filePath("bad.sr");
    QFile file(bad);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("plain text") > 0);
    file.close();
    ViewerWindow viewer;
    QVERIFY(viewer.openFile(good));
    WaveformWindow *document = viewer.document();
    MessageBoxAnswerer answerer({QMessageBox::Ok});
    QVERIFY(!viewer.openFile(bad));
    QCOMPARE(answerer.title, "Reading waveform file failed");
    QCOMPARE(viewer.document(), document);
    QCOMPARE(ViewerWindow::recentFiles(), QStringList{good});
}

void TstViewerWindow::droppedCaptureOpensAndLeadsRecentFiles()
{
    const QString first = capture("first.sr");
    const QString dropped = capture("dropped.sr");
    ViewerWindow viewer;
    QVERIFY(viewer.openFile(first));
    viewer.show();
    QMimeData mime;
    mime.setUrls({QUrl::fromLocalFile(m_dir.filePath("notes.txt")), QUrl::fromLocalFile(dropped)});
    // Qt delivers the drop to the widget that accepted the drag when it entered.
    QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&viewer, &enter);
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&viewer, &drop);
    QCOMPARE(viewer.windowTitle(), "dropped.sr[*] - VornView");
    QCOMPARE(ViewerWindow::recentFiles(), (QStringList{dropped, first}));
    QTest::keyClick(viewer.document(), Qt::Key_Return); // confirms a value, closes nothing
    QVERIFY(viewer.document());
}

void TstViewerWindow::showsGermanTextsUnderAGermanLocale_data()
{
    QTest::addColumn<int>("menu");
    QTest::addColumn<int>("action");
    QTest::addColumn<QString>("text");
    QTest::newRow("the window's File menu") << 0 << -1 << "Datei";
    QTest::newRow("the viewer's Open") << 0 << 0 << "Öffnen…";
    QTest::newRow("the window's Save") << 0 << 3 << "Speichern";
    QTest::newRow("the window's View menu") << 2 << -1 << "Ansicht";
    QTest::newRow("the viewer's Help menu") << 3 << -1 << "Hilfe";
}

// Run by CTest with LANG=de_DE.UTF-8 as its own test.
void TstViewerWindow::showsGermanTextsUnderAGermanLocale()
{
    if (QLocale().language() != QLocale::German)
        QSKIP("runs under a German locale");
    installTranslators(*QCoreApplication::instance());
    QFETCH(int, menu);
    QFETCH(int, action);
    QFETCH(QString, text);
    ViewerWindow viewer;
    QVERIFY(viewer.openFile(capture("german.sr")));
    QAction *menuAction = viewer.document()->menuBar()->actions().value(menu);
    QVERIFY(menuAction);
    QCOMPARE(action < 0 ? menuAction->text() : menuAction->menu()->actions().value(action)->text(), text);
    // Qt's own texts come along, as in every message box the window asks.
    QCOMPARE(QCoreApplication::translate("QPlatformTheme", "&Yes"), "&Ja");
}

QTEST_MAIN(TstViewerWindow)
#include "tst_viewerwindow.moc"
