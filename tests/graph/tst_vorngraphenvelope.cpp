// Envelope drawing and whole edits through the graph, driven with mouse events on its chart.
#include "graphharness.h"

#include "envelopeeditoroverlay.h"
#include "scaledspinbox.h"

#include <QAreaSeries>
#include <QPointer>
#include <QPushButton>
#include <QSpinBox>
#include <QTreeWidget>
#include <QtTest>

namespace {

const double NaN = std::nan("");

// Flat at +-0.8 V over eight samples unless told.
EnvelopeData makeEnvelope(std::vector<double> upper = std::vector<double>(8, 0.8),
                          std::vector<double> lower = std::vector<double>(8, -0.8))
{
    EnvelopeData envelope;
    envelope.upper = makeWaveform(QStringLiteral("ch [upper]"), std::move(upper), 5e-3, 0.02);
    envelope.lower = makeWaveform(QStringLiteral("ch [lower]"), std::move(lower), 5e-3, 0.02);
    return envelope;
}

} // namespace

// Waveform 0 spans +-100 V, waveform 1 (the one edited) +-1 V: a value mapped through the wrong
// axis is off by a factor of a hundred.
class TstVornGraphEnvelope : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_h.reset(); }

    void init()
    {
        m_h = std::make_unique<GraphHarness>();
        QVERIFY(m_h->show({sineWave(QStringLiteral("wide"), 100.0), sineWave(QStringLiteral("ch"), 1.0)}));
        m_events.clear();
        VornGraph *g = graph();
        connect(g, &VornGraph::envelopeEditingStarted, this, [this](int i) { m_events << QString("started %1").arg(i); });
        connect(g, &VornGraph::envelopeEditingFinished, this, [this](int i) { m_events << QString("finished %1").arg(i); });
        connect(g, &VornGraph::envelopeEditingCancelled, this, [this] { m_events << "cancelled"; });
        connect(g, &VornGraph::envelopeEditorStateChanged, this, [this, g] {
            // The host hears of a new state before the tree follows it.
            m_events << QString("state %1, tree %2").arg(g->envelopeEditorState()).arg(g->m_infoTree->isEnabled());
        });
    }

    void drawsOneSegmentPerRunBetweenGaps_data()
    {
        QTest::addColumn<EnvelopeData>("envelope");
        QTest::addColumn<QStringList>("segments"); // upper and lower points, first time
        QTest::addColumn<bool>("reduced");

        const std::vector<double> up(10, 0.8), down(10, -0.8);
        std::vector<double> gapped = up;
        gapped[3] = gapped[4] = gapped[5] = NaN;
        std::vector<double> ends = down;
        ends[0] = ends[9] = NaN;
        // Reduced, an envelope short enough for the screen is drawn sample by sample all the same.
        for (const bool reduced : {false, true}) {
            const char *mode = reduced ? ", reduced" : "";
            QTest::addRow("gap at samples 3 to 5 of 10%s", mode) << makeEnvelope(gapped, down) << QStringList{"3 3 at 0.02", "4 4 at 0.05"} << reduced;
            QTest::addRow("gaps at both ends, lower only%s", mode) << makeEnvelope(up, ends) << QStringList{"8 8 at 0.025"} << reduced;
            QTest::addRow("lower curve shorter%s", mode) << makeEnvelope(up, {-1, -1, -1, -1, -1, -1, -1}) << QStringList{"7 7 at 0.02"} << reduced;
            QTest::addRow("all gaps%s", mode) << makeEnvelope({NaN, NaN}, {NaN, NaN}) << QStringList() << reduced;
        }
    }

    void drawsOneSegmentPerRunBetweenGaps()
    {
        QFETCH(EnvelopeData, envelope);
        QFETCH(QStringList, segments);
        QFETCH(bool, reduced);
        VornGraph *g = graph();
        g->setEnvelopeReduction(reduced);
        const int seriesBefore = g->m_chart->series().size();

        // Set twice: the second drawing replaces the first.
        g->setEnvelope(1, makeEnvelope());
        g->setEnvelope(1, envelope);
        const QList<QLineSeries *> upper = g->m_envelopeUpperSeries.at(1), lower = g->m_envelopeLowerSeries.at(1);
        const QList<QAreaSeries *> areas = g->m_envelopeAreaSeries.at(1);
        QCOMPARE(g->m_chart->series().size(), seriesBefore + 3 * segments.size());
        QStringList drawn;
        for (int k = 0; k < areas.size(); ++k) {
            drawn << QStringLiteral("%1 %2 at %3").arg(upper[k]->count()).arg(lower[k]->count()).arg(upper[k]->at(0).x());
            QVERIFY(areas[k]->upperSeries() == upper[k] && areas[k]->lowerSeries() == lower[k]
                    && areas[k]->attachedAxes().contains(g->m_yAxes[1]));
        }
        QCOMPARE(drawn, segments);

        g->clearEnvelope(1);
        // Indices outside the waveforms are ignored.
        g->setEnvelope(2, makeEnvelope());
        g->setEnvelope(-1, makeEnvelope());
        g->startEnvelopeEditing(2);
        QVERIFY(!g->hasEnvelope(1) && !g->isEnvelopeEditing() && g->envelope(-1).isEmpty()
                && g->envelope(2).isEmpty() && &g->envelope(-1) == &g->envelope(99));
        QCOMPARE(g->m_chart->series().size(), seriesBefore);
    }

    // Reduced, 20,000 samples become about a pair per pixel column, and follow the view.
    void reducedDrawingKeepsDenseEnvelopesSmall()
    {
        VornGraph *g = graph();
        g->setEnvelopeReduction(true);
        std::vector<double> up(20000), down(20000);
        for (size_t i = 0; i < up.size(); ++i) {
            up[i] = 0.5 + 0.3 * std::sin(double(i) / 50.0);
            down[i] = -up[i];
        }
        EnvelopeData dense = makeEnvelope(up, down);
        dense.upper.sampleInterval = dense.lower.sampleInterval = 5e-6;
        g->setEnvelope(1, dense);
        QLineSeries *upper = g->m_envelopeUpperSeries.at(1).at(0);
        const int columns = int(g->m_chart->plotArea().width());
        QVERIFY2(upper->count() > columns / 2 && upper->count() <= 2 * columns + 4, qPrintable(QString::number(upper->count())));
        g->zoomTime(-4, 0.05);
        // Only the visible part, and a sample on either side so that the lines reach the border.
        QVERIFY(upper->at(0).x() >= g->m_axisX->min() - 1e-5 && upper->at(upper->count() - 1).x() <= g->m_axisX->max() + 1e-5);
        QVERIFY(!upper->pointsVisible());

        // Straight pieces, as knots make them, are drawn through their corners alone.
        for (size_t i = 0; i < up.size(); ++i)
            up[i] = i < 10000 ? 0.2 + 0.6 * double(i) / 9999.0 : 0.8;
        dense = makeEnvelope(up, down);
        dense.upper.sampleInterval = dense.lower.sampleInterval = 5e-6;
        g->setEnvelope(1, dense);
        g->zoomTime(4, 0.05);
        upper = g->m_envelopeUpperSeries.at(1).at(0);
        QCOMPARE(upper->count(), 3);
        QCOMPARE(upper->at(1), QPointF(dense.upper.startTime + 9999 * 5e-6, 0.8));
    }

    // The band is painted from the series' points: a knot edit narrows it, an undo (the old
    // envelope set again) widens it back, in both styles.
    void drawnBandFollowsEditAndUndo_data()
    {
        QTest::addColumn<bool>("distinctAndReduced");
        QTest::newRow("plain") << false;
        QTest::newRow("distinct, reduced") << true;
    }

    void drawnBandFollowsEditAndUndo()
    {
        QFETCH(bool, distinctAndReduced);
        VornGraph *g = graph();
        g->setDistinctEnvelopeStyle(distinctAndReduced);
        g->setEnvelopeReduction(distinctAndReduced);
        g->setEnvelopeEditingByKnots(true);
        // Between the limits before the edit and above them after it; far above either.
        const QPoint between = m_h->viewPos(1, 0.04, 0.65), above = m_h->viewPos(1, 0.04, 0.95);
        const auto colours = [&] {
            const QImage picture = g->m_chartView->grab().toImage();
            return QList<QRgb>{picture.pixel(between), picture.pixel(above)};
        };
        const QList<QRgb> bare = colours();
        const EnvelopeData wide = makeEnvelope();
        g->setEnvelope(1, wide);
        const QList<QRgb> banded = colours();
        QVERIFY(banded[0] != bare[0]);
        QCOMPARE(banded[1], bare[1]);

        g->startEnvelopeEditing(1);
        QVector<EnvelopePoint> knots = g->m_envelopeEditor->points();
        for (EnvelopePoint &knot : knots) {
            knot.upperValue = 0.5;
            knot.lowerValue = -0.5;
        }
        g->m_envelopeEditor->setKnots(knots);
        g->finishEnvelopeEditing();
        QCOMPARE(g->envelope(1).upper.samples->front(), 0.5);
        QCOMPARE(colours(), bare);

        g->setEnvelope(1, wide);
        QCOMPARE(colours(), banded);
    }

    // A long capture behind a trace costs a bounded index and about a pair of points per column;
    // clearing takes its series out of the chart.
    void backgroundCapturesStayBoundedAndGo()
    {
        VornGraph *g = graph();
        const int seriesBefore = g->m_chart->series().size();
        std::vector<double> v(1'000'000);
        for (size_t i = 0; i < v.size(); ++i)
            v[i] = std::sin(double(i) / 1000.0);
        g->addBackgroundCapture(1, makeWaveform(QStringLiteral("ch"), v, 1e-7));
        g->addBackgroundCapture(1, makeWaveform(QStringLiteral("ch"), v, 1e-7, 1e-6));
        QCOMPARE(g->backgroundCaptureCount(1), 2);
        QVERIFY(g->m_backgroundPoints.at(1).at(0).size() <= 131072);
        const int columns = int(g->m_chart->plotArea().width());
        QVERIFY(g->m_backgroundSeries.at(1).at(1)->count() <= 2 * columns + 2);
        g->clearBackgroundCaptures(1);
        QCOMPARE(g->backgroundCaptureCount(1), 0);
        QCOMPARE(g->m_chart->series().size(), seriesBefore);
    }

    void editOfANewEnvelopeDeliversWhatThePointsSay()
    {
        VornGraph *g = graph();
        g->startEnvelopeEditing(1);
        QCOMPARE(m_events + QStringList({overlay()->title(), shown()}),
                 QStringList({"state 1, tree 1", "started 1", "Envelope of ch", "panel 1, tree 0, 0 switches"}));

        // Ten points on the 1 ms sample grid, from the first sample in the region to the last.
        selectRegion(0.0103, 0.0368);
        QCOMPARE(shown(), "panel 1, tree 0, 10 switches");
        for (const EnvelopePoint &p : g->m_envelopeEditor->points())
            QCOMPARE(p.time, std::round(p.time * 1000) / 1000);
        QCOMPARE(QList<double>({point(0).time, point(9).time}), QList<double>({0.010, 0.037}));

        // The panel's count regenerates the points over the same region.
        auto *count = overlay()->findChild<QSpinBox *>();
        count->selectAll();
        QTest::keyClicks(count, "6");
        QCOMPARE(QStringLiteral("%1 up to %2").arg(toggles().size()).arg(point(5).time), "6 up to 0.037");

        // The markers move with each axis: the handle and the switch are only hit where the axes
        // now put them.
        // The drag's value, read through the edited waveform's axis, is what Apply delivers below.
        static_cast<ScaledSpinBox *>(g->m_timeDivisionSpinBox)->stepBy(1);
        const QPoint to = upperHandle(2) + QPoint(0, -37);
        m_h->drag(upperHandle(2), to);
        const double dragged = g->m_chartView->mapToChartValue(to, g->m_series[1]).y();

        static_cast<ScaledSpinBox *>(g->m_offsetSpinBoxes[1])->stepBy(2);
        m_h->click(g->m_chartView->mapFromScene(toggleScenePos(4)));
        const QVector<EnvelopePoint> points = g->m_envelopeEditor->points();
        QSignalSpy finished(g, &VornGraph::envelopeEditingFinished);
        m_events.clear();
        click("Apply");
        QCOMPARE(m_events + QStringList(shown()), QStringList({"state 0, tree 0", "finished 1", "panel 0, tree 1, 0 switches"}));

        const EnvelopeData envelope = finished.first().at(1).value<EnvelopeData>();
        QCOMPARE(QStringList({envelope.upper.name, envelope.lower.name, envelope.lower.unit}),
                 QStringList({"ch [upper]", "ch [lower]", "V"}));
        QCOMPARE(QList<double>({envelope.upper.startTime, envelope.upper.sampleInterval,
                                double(envelope.upper.samples->size()), points[2].upperValue}),
                 QList<double>({0.010, (0.037 - 0.010) / 5, 6, dragged}));
        // Point 4 switched off leaves a gap from it to the end.
        QStringList delivered, expected;
        for (std::size_t i = 0; i < envelope.upper.samples->size(); ++i) {
            delivered << QStringLiteral("%1 %2").arg(envelope.upper.samples->at(i)).arg(envelope.lower.samples->at(i));
            expected << (i >= 4 ? "nan nan" : QStringLiteral("%1 %2").arg(points[i].upperValue).arg(points[i].lowerValue));
        }
        QCOMPARE(delivered, expected);
        QVERIFY(g->envelope(1).upper.samples.sharesStorageWith(envelope.upper.samples));
        QVERIFY(g->m_envelopeAreaSeries.at(1).size() == 1 && g->m_envelopeAreaSeries.at(1).first()->isVisible());
    }

    void editEndedMidwayLeavesTheStoredEnvelope_data()
    {
        // Whether an envelope is stored, how far the edit got, and whether the graph goes away
        // instead of a Cancel; the address sanitizer build tells whether anything was left or freed twice.
        QTest::addColumn<QString>("steps");
        for (const char *steps : {"stored points", "selecting", "points", "selecting destroy", "dragging destroy",
                                  "stored points destroy", "dragging display"})
            QTest::newRow(steps) << QString(steps);
    }

    void editEndedMidwayLeavesTheStoredEnvelope()
    {
        QFETCH(QString, steps);
        const bool stored = steps.contains("stored"), destroy = steps.contains("destroy");
        const QString stage = steps.section(' ', stored ? 1 : 0, stored ? 1 : 0);
        VornGraph *g = graph();
        if (stored)
            g->setEnvelope(1, makeEnvelope());
        const int seriesBefore = g->m_chart->series().size();
        g->startEnvelopeEditing(1);
        if (stored) {
            // The stored envelope gives the points and steps aside while they are edited.
            QCOMPARE(toggles().size(), 8);
            QVERIFY(!g->m_envelopeUpperSeries.at(1).first()->isVisible());
        } else if (stage != "selecting") {
            selectRegion(0.02, 0.05);
        }
        if (stage == "selecting" && destroy)
            m_h->press(m_h->viewPos(1, 0.03, 0.0));
        if (stage == "dragging") {
            m_h->press(upperHandle(1));
            m_h->move(upperHandle(1) + QPoint(0, -20));
        }

        if (steps.endsWith("display")) {
            // The series the edit holds go with a new display, which must end the edit first.
            const QPoint handle = upperHandle(1);
            const int axesBefore = g->m_chart->axes().size();
            g->displayGraph();
            QVERIFY(!g->isEnvelopeEditing());
            QCOMPARE(QList<int>({int(g->m_chart->series().size()), int(g->m_chart->axes().size())}),
                     QList<int>({seriesBefore, axesBefore}));
            m_h->move(handle + QPoint(0, -30));
            m_h->release(handle);
            QVERIFY(toggles().isEmpty());
            return;
        }
        if (destroy) {
            QPointer<QObject> controller = g->m_envelopeEditor;
            m_h->graph.reset();
            QVERIFY(controller.isNull());
            return;
        }
        m_events.clear();
        click("Cancel");
        QCOMPARE(m_events + QStringList(shown()), QStringList({"state 0, tree 0", "cancelled", "panel 0, tree 1, 0 switches"}));
        QCOMPARE(QList<int>({g->hasEnvelope(1), int(g->m_chart->series().size())}), QList<int>({stored, seriesBefore}));
        for (QAbstractSeries *s : g->m_chart->series())
            QVERIFY(s->isVisible());
    }

private:
    VornGraph *graph() const { return m_h->graph.get(); }
    EnvelopeEditorOverlay *overlay() const { return graph()->m_editorOverlay; }
    QString shown() const
    {
        return QStringLiteral("panel %1, tree %2, %3 switches")
            .arg(overlay()->isVisible()).arg(graph()->m_infoTree->isEnabled()).arg(toggles().size());
    }
    // The round on/off switches drawn above everything else.
    QList<QGraphicsItem *> toggles() const { return itemsAtDepth(graph()->m_chart->scene(), 1002.0); }
    QPoint upperHandle(int i) const { return m_h->viewPos(1, point(i).time, point(i).upperValue); }
    QPointF toggleScenePos(int i) const
    {
        return graph()->m_chart->mapToPosition({point(i).time, (point(i).upperValue + point(i).lowerValue) / 2},
                                               graph()->m_series[1]);
    }
    const EnvelopePoint &point(int i) const { return graph()->m_envelopeEditor->points().at(i); }
    void click(const QString &button) const
    {
        for (QPushButton *b : overlay()->findChildren<QPushButton *>())
            if (b->text() == button)
                QTest::mouseClick(b, Qt::LeftButton);
    }
    void selectRegion(double from, double to) { m_h->drag(m_h->viewPos(1, from, 0.0), m_h->viewPos(1, to, 0.0)); }

    std::unique_ptr<GraphHarness> m_h;
    QStringList m_events;
};

QTEST_MAIN(TstVornGraphEnvelope)
#include "tst_vorngraphenvelope.moc"
