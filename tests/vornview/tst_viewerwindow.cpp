#include "../window/messageboxanswerer.h"
#include "translators.h"
#include "viewerwindow.h"
#include "vorngraph.h"
#include "waveformwindow.h"
#include "zipfixture.h"

#include <QDropEvent>
#include <QMenuBar>
#include <QMimeData>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

class TstViewerWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_dir.isValid());
        // Settings of this process only: the German run of this test may run at the same time.
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_dir.path());
    }
    void init() { QSettings().clear(); }

    void failedSaveIsReportedAndAskedAboutUntilItSucceeds()
    {
        const QString path = capture("vanishes.sr");
        ViewerWindow viewer;
        viewer.show();
        QVERIFY(viewer.openFile(path));
        viewer.document()->graph()->setEnvelope(0, envelopeOf(1));
        QVERIFY(QFile::remove(path));
        MessageBoxAnswerer answerer({QMessageBox::Cancel, QMessageBox::Yes, QMessageBox::Ok, QMessageBox::No});
        QVERIFY(!viewer.openFile(capture("other.sr"))); // cancelled
        QVERIFY(!viewer.close()); // saved, which failed
        QCOMPARE(answerer.title + '|' + QString::number(answerer.asked), "Saving failed|3");
        QVERIFY2(answerer.text.endsWith("file not found"), qPrintable(answerer.text));
        QVERIFY(viewer.isWindowModified());
        QVERIFY(viewer.close()); // asked again, not saved
        QCOMPARE(answerer.asked, 4);
    }

    void savedDeletionLeavesNothingToAsk()
    {
        const QString path = capture("deleted.sr");
        QVERIFY(saveEnvelope(path, "A0", envelopeOf(1)));
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(path));
        viewer.document()->graph()->clearEnvelope(0);
        viewer.document()->saveAction()->trigger();
        MessageBoxAnswerer answerer({QMessageBox::Cancel});
        QVERIFY(viewer.close());
        QCOMPARE(answerer.asked, 0);
    }

    void unreadableFileKeepsTheOpenCapture()
    {
        const QString good = capture("good.sr"), bad = m_dir.filePath("bad.sr");
        QVERIFY(writeFile(bad, "plain text"));
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(good));
        WaveformWindow *document = viewer.document();
        MessageBoxAnswerer answerer({QMessageBox::Ok});
        QVERIFY(!viewer.openFile(bad));
        QCOMPARE(answerer.title, "Reading waveform file failed");
        QCOMPARE(viewer.document(), document);
        QCOMPARE(ViewerWindow::recentFiles(), QStringList{good});
    }

    void droppedCaptureOpensAndLeadsRecentFiles()
    {
        const QString first = capture("first.sr"), dropped = capture("dropped.sr");
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

    // Run by CTest with LANG=de_DE.UTF-8 as its own test: the window's and the viewer's menus, and
    // Qt's own texts, as in every message box the window asks.
    void showsGermanTextsUnderAGermanLocale()
    {
        if (QLocale().language() != QLocale::German)
            QSKIP("runs under a German locale");
        installTranslators(*QCoreApplication::instance());
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(capture("german.sr")));
        const QList<QAction *> menus = viewer.document()->menuBar()->actions();
        QCOMPARE(QStringList({menus.value(0)->text(), menus.value(0)->menu()->actions().value(0)->text(),
                              menus.value(0)->menu()->actions().value(3)->text(), menus.value(3)->text(),
                              menus.value(4)->text(), QCoreApplication::translate("QPlatformTheme", "&Yes")}),
                 QStringList({"Datei", "Öffnen…", "Speichern", "Ansicht", "Hilfe", "&Ja"}));
    }

private:
    QString capture(const QString &name)
    {
        const QString path = m_dir.filePath(name);
        return writeZip(path, sampleCapture()) ? path : QString();
    }

    QTemporaryDir m_dir;
};

QTEST_MAIN(TstViewerWindow)
#include "tst_viewerwindow.moc"
