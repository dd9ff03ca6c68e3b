#include "../window/messageboxanswerer.h"
#include "envelopetools.h"
#include "exportactions.h"
#include "translators.h"
#include "viewerwindow.h"
#include "vorngraph.h"
#include "waveformwindow.h"
#include "zipfixture.h"

#include <algorithm>

#include <QAction>
#include <QDockWidget>
#include <QChartView>
#include <QLineSeries>
#include <QDropEvent>
#include <QFileInfo>
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
        QVERIFY2(answerer.text.contains("since it was read; nothing was written"), qPrintable(answerer.text));
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
        viewer.document()->fileMenu()->actions().value(3)->trigger(); // File ▸ Save
        MessageBoxAnswerer answerer({QMessageBox::Cancel});
        QVERIFY(viewer.close());
        QCOMPARE(answerer.asked, 0);
    }

    // After a refused save (see above): Save As keeps the edits and what another program wrote
    // in a copy, Reload drops the edits for the file as it is now; the file itself stays theirs.
    void aCaptureChangedOnDiskIsLeftBySaveAsOrReload_data()
    {
        QTest::addColumn<bool>("reload");
        QTest::newRow("save as") << false;
        QTest::newRow("reload") << true;
    }
    void aCaptureChangedOnDiskIsLeftBySaveAsOrReload()
    {
        QFETCH(bool, reload);
        const QString path = capture("replaced.sr");
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(path));
        viewer.document()->graph()->setEnvelope(0, envelopeOf(2));
        QVERIFY(saveEnvelope(path, "A1", envelopeOf(3))); // another program
        const QByteArray theirs = readFile(path);
        MessageBoxAnswerer answerer({QMessageBox::Yes});
        if (reload)
            viewer.document()->fileMenu()->actions().value(5)->trigger(); // File ▸ Reload
        else
            QVERIFY(viewer.saveAs(m_dir.filePath("copy"))); // no suffix: it gets .sr
        QVERIFY(reload || QFileInfo::exists(m_dir.filePath("copy.sr")));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // the capture left behind goes
        VornGraph *graph = viewer.document()->graph();
        QAction *undo = viewer.document()->findChild<EnvelopeTools *>()->undoAction();
        QCOMPARE(QList<bool>({graph->hasEnvelope(0), graph->hasEnvelope(1), viewer.isWindowModified(), readFile(path) == theirs,
                              undo->isEnabled()}),
                 QList<bool>({!reload, true, false, true, false}));
        QCOMPARE(answerer.asked, int(reload));
        // The history is the new capture's own: its first step marks the title, undone it clears it.
        graph->setEnvelope(1, envelopeOf(1));
        QVERIFY(viewer.isWindowModified());
        undo->trigger();
        QCOMPARE(described(graph->envelope(1)), described(envelopeOf(3)));
        QVERIFY(!viewer.isWindowModified());
    }

    // Apply of a region that holds no sample, or of a click without a drag, keeps what was there.
    // A capture opened while the violations dock of the last one shows fits the window as it
    // does in a fresh viewer: the dock's room is not taken for the chart's.
    void captureOpenedAfterACheckFitsLikeAnyOther()
    {
        const QString path = capture("fits.sr");
        ViewerWindow fresh, checked;
        for (ViewerWindow *viewer : {&fresh, &checked}) {
            viewer->resize(1200, 800);
            viewer->show();
            QVERIFY(QTest::qWaitForWindowExposed(viewer));
        }
        QVERIFY(checked.openFile(path));
        checked.findChild<QDockWidget *>()->show(); // as Check Against leaves it
        QTRY_VERIFY(checked.document()->graph()->timePerDivision() > 0);
        QVERIFY(checked.openFile(path) && fresh.openFile(path));
        const auto timeBase = [](ViewerWindow &viewer) {
            const VornGraph *graph = viewer.document()->graph();
            return QList<double>({graph->timePerDivision(), graph->timeOffset()});
        };
        QTRY_VERIFY(timeBase(checked)[0] > 0 && timeBase(fresh)[0] > 0);
        QTest::qWait(50);
        QCOMPARE(timeBase(checked), timeBase(fresh));
    }

    void envelopesCheckingNoSampleAreNotKept_data()
    {
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("interval");
        QTest::addColumn<bool>("kept");
        QTest::newRow("over the samples") << 0.0 << 1e-3 << true;
        QTest::newRow("a click, no time spanned") << 1e-3 << 0.0 << false;
        QTest::newRow("after the last sample") << 1.0 << 1e-3 << false;
    }
    void envelopesCheckingNoSampleAreNotKept()
    {
        QFETCH(double, start);
        QFETCH(double, interval);
        QFETCH(bool, kept);
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(capture("applied.sr")));
        VornGraph *graph = viewer.document()->graph();
        EnvelopeData applied = envelopeOf(2);
        for (WaveformData *curve : {&applied.upper, &applied.lower})
            std::tie(curve->startTime, curve->sampleInterval) = std::make_pair(start, interval);
        MessageBoxAnswerer answerer({QMessageBox::Ok});
        // What the graph does when the editor's Apply hands it an envelope.
        emit graph->envelopeEditingStarted(0);
        graph->setEnvelope(0, applied);
        emit graph->envelopeEditingFinished(0, applied);
        QTRY_COMPARE(answerer.title, kept ? "" : "Envelope Not Applied");
        // Refused, it leaves no step that undo or redo would bring back.
        const EnvelopeTools *tools = viewer.document()->findChild<EnvelopeTools *>();
        QCOMPARE(QList<bool>({graph->hasEnvelope(0), viewer.isWindowModified(), tools->undoAction()->isEnabled()}),
                 QList<bool>(3, kept));
        QVERIFY(!tools->redoAction()->isEnabled());
    }

    // A capture that cannot be read, or whose reading is cancelled, leaves the one open as it was,
    // unsaved envelope and all; a failure is reported with the file's name, a cancel not at all.
    void failedOrCancelledOpeningKeepsTheOpenCapture_data()
    {
        QTest::addColumn<bool>("cancel");
        QTest::addColumn<int>("asked");
        QTest::addColumn<QString>("lastBox"); // its title and the start of its text
        QTest::newRow("unreadable") << false << 2 << "Reading waveform file failed|Could not read bad.sr: ";
        QTest::newRow("cancelled") << true << 1 << "Unsaved Changes|Envelope curves have been changed.";
    }
    void failedOrCancelledOpeningKeepsTheOpenCapture()
    {
        QFETCH(bool, cancel);
        QFETCH(int, asked);
        QFETCH(QString, lastBox);
        const QString good = capture("good.sr"), bad = m_dir.filePath("bad.sr");
        QVERIFY(writeFile(bad, "plain text"));
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(good));
        WaveformWindow *document = viewer.document();
        document->graph()->setEnvelope(0, envelopeOf(1));
        if (cancel)
            connect(&viewer, &ViewerWindow::openingStarted, &viewer, &ViewerWindow::cancelOpening);
        MessageBoxAnswerer answerer({QMessageBox::No, QMessageBox::Ok}); // leave the edit, then the error
        QVERIFY(!viewer.openFile(cancel ? capture("other.sr") : bad));
        QVERIFY2((answerer.title + '|' + answerer.text).startsWith(lastBox), qPrintable(answerer.text));
        QCOMPARE(answerer.asked, asked);
        QCOMPARE(viewer.document(), document);
        QVERIFY(document->graph()->hasEnvelope(0) && document->hasUnsavedChanges());
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
        const QList<QAction *> menus = viewer.document()->menuBar()->actions();
        const auto view = std::find_if(menus.begin(), menus.end(), [](QAction *a) { return a->text() == "View"; });
        QVERIFY(view != menus.end());
        (*view)->menu()->actions().value(3)->trigger(); // View ▸ Cursors
        QVERIFY(viewer.document()->graph()->cursorsVisible());
    }

    // The chart exported as SVG at the size asked holds a trace of every waveform in its colour,
    // as PNG it has that size; the report of the window's failing check holds both its pictures.
    void exportsTheChartAndTheReportOfItsCheck()
    {
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(capture("export.sr")));
        viewer.resize(1200, 700);
        viewer.show();
        VornGraph *graph = viewer.document()->graph();
        auto *view = graph->findChild<QChartView *>();
        QVERIFY(QTest::qWaitFor([view] { return view->chart()->plotArea().width() > 100; }));
        EnvelopeData tight; // A0 (0.5, -1.25, 3, 7) leaves it at its last two samples
        for (WaveformData *curve : {&tight.upper, &tight.lower}) {
            curve->sampleInterval = 3e-3;
            curve->samples.writable().assign(2, curve == &tight.upper ? 1.0 : -2.0);
        }
        graph->setEnvelope(0, tight);

        QVERIFY(exportChartImage(view, m_dir.filePath("chart.png"), QSize(640, 320)));
        QCOMPARE(QImage(m_dir.filePath("chart.png")).size(), QSize(640, 320));
        QVERIFY(exportChartImage(view, m_dir.filePath("chart.svg"), QSize(900, 400)));
        QFile svg(m_dir.filePath("chart.svg"));
        QVERIFY(svg.open(QIODevice::ReadOnly));
        QXmlStreamReader xml(&svg);
        QStringList strokes{QString()}; // of the groups around the element read
        QSet<QString> traced;
        QString viewBox;
        while (!xml.atEnd()) {
            const QXmlStreamReader::TokenType token = xml.readNext();
            const QString stroke = xml.attributes().value(QLatin1String("stroke")).toString();
            if (token == QXmlStreamReader::StartElement && xml.name() == QLatin1String("svg"))
                viewBox = xml.attributes().value(QLatin1String("viewBox")).toString();
            else if (token == QXmlStreamReader::StartElement && xml.name() == QLatin1String("g"))
                strokes << (stroke.isEmpty() ? strokes.last() : stroke);
            else if (token == QXmlStreamReader::EndElement && xml.name() == QLatin1String("g"))
                strokes.removeLast();
            else if (token == QXmlStreamReader::StartElement && xml.name() == QLatin1String("polyline"))
                traced << strokes.last();
        }
        QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
        QCOMPARE(viewBox, "0 0 900 400");
        // Each waveform's series holds its samples as they are (too few to reduce) and lends the
        // trace its colour.
        for (int i = 0; i < graph->waveformCount(); ++i) {
            QList<QPointF> expected;
            const WaveformData w = graph->waveformData(i);
            for (size_t k = 0; k < w.samples->size(); ++k)
                expected << QPointF(w.startTime + double(k) * w.sampleInterval, (*w.samples)[k]);
            int matched = 0;
            for (QAbstractSeries *series : view->chart()->series()) {
                auto *line = qobject_cast<QLineSeries *>(series);
                if (line && line->points() == expected && ++matched)
                    QVERIFY2(traced.contains(line->color().name()), qPrintable(w.name));
            }
            QVERIFY2(matched, qPrintable(w.name));
        }

        auto *exporter = viewer.document()->findChild<ExportActions *>();
        QVERIFY(exporter && exporter->exportReport(m_dir.filePath("report.html")));
        QFile report(m_dir.filePath("report.html"));
        QVERIFY(report.open(QIODevice::ReadOnly));
        QXmlStreamReader html(&report);
        int pictures = 0;
        while (!html.atEnd())
            pictures += html.readNext() == QXmlStreamReader::StartElement && html.name() == QLatin1String("img");
        QVERIFY2(!html.hasError(), qPrintable(html.errorString()));
        QCOMPARE(pictures, 2);
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
                              menus.value(4)->text(), menus.value(5)->text(),
                              QCoreApplication::translate("QPlatformTheme", "&Yes")}),
                 QStringList({"Datei", "Öffnen…", "Speichern", "Ansicht", "Erfassen", "Hilfe", "&Ja"}));
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
