// The Measurements dock of the viewer, read through its table as a user reads it.

#include "measurementsdock.h"
#include "viewerwindow.h"
#include "vorngraph.h"
#include "vornmeasure.h"
#include "waveformwindow.h"
#include "zipfixture.h"

#include <QDockWidget>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

#include <algorithm>
#include <cmath>

class TstMeasurementsDock : public QObject
{
    Q_OBJECT

private slots:
    void showsMeasurementsWithTheirLimits_data()
    {
        QTest::addColumn<double>("from"); // cursors; NaN: the visible span
        QTest::addColumn<double>("to");
        QTest::addColumn<QString>("measure");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("verdict"); // pass, fail, or empty without a limit
        const double all = std::nan("");
        QTest::newRow("whole/width within") << all << all << "pulse_width" << "10 ms" << "pass";
        QTest::newRow("whole/rise too slow") << all << all << "rise_time" << "16 μs" << "fail";
        QTest::newRow("cursors on the rise/no width") << 4e-3 << 6e-3 << "pulse_width" << "none" << "fail";
        QTest::newRow("cursors on the fall/fall time") << 14e-3 << 16e-3 << "fall_time" << "16 μs" << "";
    }
    void showsMeasurementsWithTheirLimits()
    {
        QFETCH(double, from);
        QFETCH(double, to);
        QFETCH(QString, measure);
        QFETCH(QString, value);
        QFETCH(QString, verdict);
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(m_path));
        auto *dock = viewer.findChild<QDockWidget *>("measurementsDock");
        QVERIFY(dock);
        auto *table = qobject_cast<QTreeWidget *>(dock->widget());
        VornGraph *graph = viewer.document()->graph();
        graph->showWholeCapture();
        if (!std::isnan(from)) {
            graph->setCursorsVisible(true);
            graph->setCursorTimes(from, to);
        }
        const auto row = [&]() -> QTreeWidgetItem * {
            QTreeWidgetItem *top = table->topLevelItem(0);
            for (int k = 0; top && k < top->childCount(); ++k) {
                if (top->child(k)->text(0) == measure)
                    return top->child(k);
            }
            return nullptr;
        };
        QTRY_VERIFY(row() && row()->text(1) == value);
        const QColor colour = row()->foreground(1).color();
        QCOMPARE(verdict.isEmpty() ? "" : colour.green() > colour.red() ? "pass" : "fail", verdict);
        QCOMPARE(row()->text(2).isEmpty(), verdict.isEmpty());
    }

    // Out of sight, the dock measures nothing as the view moves; back in sight, it shows the span
    // now between the cursors.
    void measuresOnlyWhileSeen_data()
    {
        QTest::addColumn<bool>("tabified"); // else closed
        QTest::newRow("closed") << false;
        QTest::newRow("tabified behind another dock") << true;
    }
    void measuresOnlyWhileSeen()
    {
        QFETCH(bool, tabified);
        ViewerWindow viewer;
        QDockWidget other("Other", &viewer);
        viewer.addDockWidget(Qt::RightDockWidgetArea, &other);
        QVERIFY(viewer.openFile(m_path));
        viewer.show();
        QVERIFY(QTest::qWaitForWindowExposed(&viewer));
        auto *dock = viewer.findChild<QDockWidget *>("measurementsDock");
        auto *table = qobject_cast<QTreeWidget *>(dock->widget());
        const auto item = [table] { return table->findItems("pulse_width", Qt::MatchExactly | Qt::MatchRecursive).value(0); };
        const auto width = [&] { return item() ? item()->text(1) : QString(); };
        VornGraph *graph = viewer.document()->graph();
        graph->showWholeCapture();
        QTRY_COMPARE(width(), "10 ms");
        const QTreeWidgetItem *shown = item();
        if (tabified) {
            viewer.tabifyDockWidget(dock, &other);
            other.raise();
        } else {
            dock->close();
        }
        QTRY_VERIFY(dock->visibleRegion().isEmpty());
        graph->setCursorsVisible(true);
        graph->setCursorTimes(4e-3, 6e-3);
        QTest::qWait(300);
        QCOMPARE(width(), "10 ms");
        if (tabified)
            dock->raise();
        else
            dock->show();
        QTRY_COMPARE(width(), "none");
        QCOMPARE(item(), shown); // the same rows, their texts changed in place
    }

    // A limit set in the dock reaches the file beside an envelope edit not yet saved, which the
    // next Save still writes; a file changed elsewhere meanwhile is left as it is.
    void limitsSetInTheDockReachTheFile()
    {
        const QString path = m_dir.filePath("limited.sr");
        QVERIFY(QFile::copy(m_path, path));
        ViewerWindow viewer;
        QVERIFY(viewer.openFile(path));
        auto *dock = viewer.findChild<MeasurementsDock *>();
        WaveformWindow *document = viewer.document();
        EnvelopeData band;
        for (WaveformData *curve : {&band.upper, &band.lower}) {
            curve->sampleInterval = 1e-3;
            curve->samples.writable().assign(20, curve == &band.upper ? 4.0 : -1.0);
        }
        document->graph()->setEnvelope(0, band);
        QVERIFY(document->hasUnsavedChanges());

        QTRY_VERIFY(dock->table()->topLevelItemCount() == 1);
        QVERIFY(dock->setLimit({"A1", Measure::RiseTime, std::nan(""), 30e-6}));
        QVERIFY(dock->removeLimit("A1", Measure::PulseWidth));
        QVERIFY(document->hasUnsavedChanges());
        QVERIFY2(document->saveChangedEnvelopes(), qPrintable(document->lastSaveError()));
        std::vector<MeasurementLimit> stored;
        QVERIFY(loadLimits(path, stored, nullptr));
        QCOMPARE(stored.size(), size_t(1));
        QCOMPARE(stored[0].max, 30e-6);
        const QTreeWidgetItem *rise = dock->table()->findItems("rise_time", Qt::MatchExactly | Qt::MatchRecursive).value(0);
        QVERIFY(rise && rise->foreground(1).color().green() > rise->foreground(1).color().red());
        QCOMPARE(WaveformWindow(path, "again").graph()->hasEnvelope(0), true);

        QVERIFY(saveLimits(path, {}, nullptr));
        QString error;
        QVERIFY(!dock->setLimit({"A1", Measure::Period, 1e-3, 2e-3}, &error));
        QVERIFY2(error.contains("changed or replaced on disk"), qPrintable(error));
        QVERIFY(loadLimits(path, stored, nullptr) && stored.empty());
    }

    void initTestCase()
    {
        m_path = m_dir.filePath("pulse.sr");
        QByteArray data;
        for (int i = 0; i < 20000; ++i) {
            const double t = i * 1e-6;
            const auto edge = [t](double centre) { return std::clamp((t - centre) / 20e-6 + 0.5, 0.0, 1.0); };
            const float v = static_cast<float>(3.3 * (edge(5e-3) - edge(15e-3)));
            data.append(reinterpret_cast<const char *>(&v), sizeof v);
        }
        QVERIFY(writeZip(m_path, {{"version", "2"},
                                  {"metadata", "[global]\nsigrok version=0.5.2\n\n[device 1]\ncapturefile=logic-1\n"
                                               "total probes=0\nsamplerate=1 MHz\ntotal analog=1\nanalog1=A1\nunitsize=1\n"},
                                  {"analog-1-1-1", data}}));
        QVERIFY(saveLimits(m_path, {{"A1", Measure::PulseWidth, 9.9e-3, 10.1e-3}, {"A1", Measure::RiseTime, std::nan(""), 10e-6}},
                           nullptr));
    }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

QTEST_MAIN(TstMeasurementsDock)
#include "tst_measurementsdock.moc"
