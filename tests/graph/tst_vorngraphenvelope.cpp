// Envelope drawing and whole edits through the graph, driven with mouse events on its chart.
#include "graphharness.h"

#include "envelopeeditoroverlay.h"
#include "pointdragmode.h"
#include "scaledspinbox.h"

#include <QAreaSeries>
#include <QPointer>
#include <QGraphicsScene>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTreeWidget>
#include <QValueAxis>
#include <QtTest>

#include <limits>

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double TOGGLE_Z = 1002.0;

EnvelopeData makeEnvelope(std::vector<double> upper, std::vector<double> lower, double interval = 5e-3,
                          double start = 0.02)
{
    EnvelopeData envelope;
    envelope.upper = makeWaveform(QStringLiteral("ch [upper]"), std::move(upper), interval, start);
    envelope.lower = makeWaveform(QStringLiteral("ch [lower]"), std::move(lower), interval, start);
    return envelope;
}

EnvelopeData flatEnvelope(int samples)
{
    return makeEnvelope(std::vector<double>(size_t(samples), 0.8), std::vector<double>(size_t(samples), -0.8));
}

} // namespace

// Waveform 0 spans +-100 V, waveform 1 (the one edited) +-1 V: a value mapped through the wrong
// axis is off by a factor of a hundred.
class TstVornGraphEnvelope : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_h.reset(); }

    void drawsOneSegmentPerRunBetweenGaps_data();
    void drawsOneSegmentPerRunBetweenGaps();
    void ignoresIndicesOutsideTheWaveforms();
    void editOfANewEnvelopeDeliversWhatThePointsSay();
    void cancelShowsTheStoredEnvelopeAgain_data();
    void cancelShowsTheStoredEnvelopeAgain();
    void markersFollowTheAxes_data();
    void markersFollowTheAxes();
    void panelKeepsItsDraggedPlaceUntilTheNextEdit();
    void destroyingTheGraphMidEditLeavesNothingBehind_data();
    void destroyingTheGraphMidEditLeavesNothingBehind();

private:
    VornGraph *graph() const { return m_h->graph.get(); }
    EnvelopeEditorOverlay *overlay() const { return graph()->m_editorOverlay; }
    QList<QGraphicsItem *> toggles() const;
    QPoint upperHandle(int point) const;
    QPoint toggle(int point) const;
    QPointF toggleScenePos(int point) const;
    QPushButton *button(const QString &text) const;
    void selectRegion(double from, double to);
    void record();

    std::unique_ptr<GraphHarness> m_h;
    QStringList m_events;
};

void TstVornGraphEnvelope::init()
{
    m_h = std::make_unique<GraphHarness>();
    QVERIFY(m_h->show({sineWave(QStringLiteral("wide"), 100.0), sineWave(QStringLiteral("ch"), 1.0)}));
    m_events.clear();
}

QList<QGraphicsItem *> TstVornGraphEnvelope::toggles() const
{
    QList<QGraphicsItem *> found;
    for (QGraphicsItem *item : graph()->m_chart->scene()->items())
        if (item->zValue() == TOGGLE_Z)
            found << item;
    return found;
}

QPoint TstVornGraphEnvelope::upperHandle(int point) const
{
    const EnvelopePoint &p = graph()->m_envelopeEditor->points().at(point);
    return m_h->viewPos(1, p.time, p.upperValue);
}

QPoint TstVornGraphEnvelope::toggle(int point) const
{
    return graph()->m_chartView->mapFromScene(toggleScenePos(point));
}

QPointF TstVornGraphEnvelope::toggleScenePos(int point) const
{
    const EnvelopePoint &p = graph()->m_envelopeEditor->points().at(point);
    return graph()->m_chart->mapToPosition({p.time, (p.upperValue + p.lowerValue) / 2}, graph()->m_series[1]);
}

QPushButton *TstVornGraphEnvelope::button(const QString &text) const
{
    for (QPushButton *b : overlay()->findChildren<QPushButton *>())
        if (b->text() == text)
            return b;
    return nullptr;
}

void TstVornGraphEnvelope::selectRegion(double from, double to)
{
    m_h->drag(m_h->viewPos(1, from, 0.0), m_h->viewPos(1, to, 0.0));
}

void TstVornGraphEnvelope::record()
{
    VornGraph *g = graph();
    connect(g, &VornGraph::envelopeEditingStarted, this, [this](int i) { m_events << QString("started %1").arg(i); });
    connect(g, &VornGraph::envelopeEditingFinished, this, [this](int i) { m_events << QString("finished %1").arg(i); });
    connect(g, &VornGraph::envelopeEditingCancelled, this, [this] { m_events << "cancelled"; });
    connect(g, &VornGraph::envelopeEditorStateChanged, this, [this, g] {
        // The host hears of a new state before the tree follows it.
        m_events << QString("state %1, tree %2").arg(g->envelopeEditorState()).arg(g->m_infoTree->isEnabled());
    });
}

void TstVornGraphEnvelope::drawsOneSegmentPerRunBetweenGaps_data()
{
    QTest::addColumn<EnvelopeData>("envelope");
    QTest::addColumn<QList<int>>("segmentLengths");
    QTest::addColumn<QList<double>>("segmentStarts");

    const std::vector<double> up(10, 0.8), down(10, -0.8);
    std::vector<double> gapped = up;
    gapped[3] = gapped[4] = gapped[5] = NaN;
    QTest::newRow("gap at samples 3 to 5 of 10") << makeEnvelope(gapped, down) << QList<int>{3, 4} << QList<double>{0.02, 0.05};
    std::vector<double> ends = down;
    ends[0] = ends[9] = NaN;
    QTest::newRow("gaps at both ends, lower only") << makeEnvelope(up, ends) << QList<int>{8} << QList<double>{0.025};
    QTest::newRow("lower curve shorter") << makeEnvelope(up, {-1, -1, -1, -1, -1, -1, -1}) << QList<int>{7} << QList<double>{0.02};
    QTest::newRow("all gaps") << makeEnvelope({NaN, NaN}, {NaN, NaN}) << QList<int>{} << QList<double>{};
}

void TstVornGraphEnvelope::drawsOneSegmentPerRunBetweenGaps()
{
    QFETCH(EnvelopeData, envelope);
    QFETCH(QList<int>, segmentLengths);
    QFETCH(QList<double>, segmentStarts);
    VornGraph *g = graph();
    const int seriesBefore = g->m_chart->series().size();

    // Set twice: the second drawing replaces the first.
    g->setEnvelope(1, flatEnvelope(4));
    g->setEnvelope(1, envelope);
    const QList<QLineSeries *> upper = g->m_envelopeUpperSeries.at(1);
    const QList<QLineSeries *> lower = g->m_envelopeLowerSeries.at(1);
    const QList<QAreaSeries *> areas = g->m_envelopeAreaSeries.at(1);
    QCOMPARE(upper.size(), segmentLengths.size());
    QCOMPARE(lower.size(), segmentLengths.size());
    QCOMPARE(areas.size(), segmentLengths.size());
    QCOMPARE(g->m_chart->series().size(), seriesBefore + 3 * segmentLengths.size());

    const QColor colour(0, 255, 255);
    for (int k = 0; k < segmentLengths.size(); ++k) {
        QCOMPARE(upper[k]->count(), segmentLengths[k]);
        QCOMPARE(lower[k]->count(), segmentLengths[k]);
        QCOMPARE(upper[k]->at(0).x(), segmentStarts[k]);
        QCOMPARE(upper[k]->pen().style(), Qt::DashLine);
        QCOMPARE(upper[k]->pen().color(), colour.lighter(120));
        QCOMPARE(lower[k]->pen().style(), Qt::DotLine);
        QCOMPARE(lower[k]->pen().color(), colour.darker(120));
        QCOMPARE(areas[k]->upperSeries(), upper[k]);
        QCOMPARE(areas[k]->lowerSeries(), lower[k]);
        QCOMPARE(areas[k]->brush().color(), QColor(0, 255, 255, 25));
        QCOMPARE(areas[k]->pen().style(), Qt::NoPen);
        for (QAbstractSeries *s : {static_cast<QAbstractSeries *>(upper[k]), static_cast<QAbstractSeries *>(areas[k])})
            QVERIFY(s->attachedAxes().contains(g->m_yAxes[1]));
    }

    g->clearEnvelope(1);
    QVERIFY(!g->hasEnvelope(1));
    QVERIFY(g->m_envelopeAreaSeries.at(1).isEmpty());
    QCOMPARE(g->m_chart->series().size(), seriesBefore);
}

void TstVornGraphEnvelope::ignoresIndicesOutsideTheWaveforms()
{
    VornGraph *g = graph();
    QCOMPARE(&g->envelope(-1), &g->envelope(99));
    QVERIFY(g->envelope(-1).isEmpty());
    g->setEnvelope(2, flatEnvelope(3));
    g->setEnvelope(-1, flatEnvelope(3));
    QVERIFY(!g->hasEnvelope(2));
    QVERIFY(g->envelope(99).isEmpty());

    const int seriesBefore = g->m_chart->series().size();
    g->clearEnvelope(0);
    g->startEnvelopeEditing(2);
    QVERIFY(!g->isEnvelopeEditing());
    QCOMPARE(g->m_chart->series().size(), seriesBefore);
}

void TstVornGraphEnvelope::editOfANewEnvelopeDeliversWhatThePointsSay()
{
    VornGraph *g = graph();
    record();
    g->startEnvelopeEditing(1);
    QCOMPARE(m_events, QStringList({"state 1, tree 1", "started 1"}));
    QVERIFY(overlay()->isVisible());
    QVERIFY(!g->m_infoTree->isEnabled());
    QVERIFY(!g->canFinishEnvelopeEditing());

    selectRegion(0.0103, 0.0368);
    QCOMPARE(g->envelopeEditorState(), EnvelopeEditorController::EditingPoints);
    QCOMPARE(toggles().size(), 10);
    for (const EnvelopePoint &p : g->m_envelopeEditor->points())
        QCOMPARE(p.time, std::round(p.time * 1000) / 1000);
    QCOMPARE(g->m_envelopeEditor->points().first().time, 0.010);
    QCOMPARE(g->m_envelopeEditor->points().last().time, 0.037);

    // The panel's count regenerates the points over the same region.
    auto *count = overlay()->findChild<QSpinBox *>();
    count->selectAll();
    QTest::keyClicks(count, "6");
    QCOMPARE(toggles().size(), 6);
    QCOMPARE(g->m_envelopeEditor->points().last().time, 0.037);

    auto *mode = dynamic_cast<PointDragMode *>(g->m_chartView->interactionMode());
    QVERIFY(mode);
    QSignalSpy moved(mode, &PointDragMode::pointMoved);
    const QPoint to = upperHandle(2) + QPoint(0, -37);
    m_h->drag(upperHandle(2), to);
    QCOMPARE(moved.size(), 2);
    const double dragged = g->m_chartView->mapToChartValue(to, g->m_series[1]).y();
    QCOMPARE(moved.last().at(1).toDouble(), dragged);
    QVERIFY(dragged < 2.0);

    m_h->click(toggle(4));
    QVERIFY(!g->m_envelopeEditor->points().at(4).enabled);
    const QVector<EnvelopePoint> points = g->m_envelopeEditor->points();

    QSignalSpy finished(g, &VornGraph::envelopeEditingFinished);
    m_events.clear();
    QTest::mouseClick(button("Apply"), Qt::LeftButton);
    QCOMPARE(m_events, QStringList({"state 0, tree 0", "finished 1"}));
    QVERIFY(!overlay()->isVisible());
    QVERIFY(g->m_infoTree->isEnabled());
    QVERIFY(toggles().isEmpty());

    const EnvelopeData envelope = finished.first().at(1).value<EnvelopeData>();
    QCOMPARE(envelope.upper.startTime, 0.010);
    QCOMPARE(envelope.upper.sampleInterval, (0.037 - 0.010) / 5);
    QCOMPARE(envelope.upper.samples->size(), size_t(6));
    // Point 5 was left alone by the toggle of point 4.
    for (int i = 0; i < 6; ++i) {
        const bool gap = i >= 4;
        QCOMPARE(std::isnan(envelope.upper.samples->at(size_t(i))), gap);
        QCOMPARE(std::isnan(envelope.lower.samples->at(size_t(i))), gap);
        if (!gap)
            QCOMPARE(envelope.lower.samples->at(size_t(i)), points[i].lowerValue);
    }
    QCOMPARE(envelope.upper.samples->at(2), dragged);
    QVERIFY(g->envelope(1).upper.samples.sharesStorageWith(envelope.upper.samples));
    QCOMPARE(g->m_envelopeAreaSeries.at(1).size(), 1);
    QVERIFY(g->m_envelopeAreaSeries.at(1).first()->isVisible());
}

void TstVornGraphEnvelope::cancelShowsTheStoredEnvelopeAgain_data()
{
    QTest::addColumn<bool>("stored");
    QTest::addColumn<bool>("selectFirst");
    QTest::newRow("stored envelope, its points") << true << false;
    QTest::newRow("no envelope, while selecting") << false << false;
    QTest::newRow("no envelope, points placed") << false << true;
}

void TstVornGraphEnvelope::cancelShowsTheStoredEnvelopeAgain()
{
    QFETCH(bool, stored);
    QFETCH(bool, selectFirst);
    VornGraph *g = graph();
    if (stored)
        g->setEnvelope(1, flatEnvelope(8));
    const int seriesBefore = g->m_chart->series().size();
    record();
    g->startEnvelopeEditing(1);
    if (stored) {
        QCOMPARE(toggles().size(), 8);
        QVERIFY(!g->m_envelopeUpperSeries.at(1).first()->isVisible());
    }
    if (selectFirst)
        selectRegion(0.02, 0.05);
    m_events.clear();

    QTest::mouseClick(button("Cancel"), Qt::LeftButton);
    QCOMPARE(m_events, QStringList({"state 0, tree 0", "cancelled"}));
    QVERIFY(!overlay()->isVisible());
    QVERIFY(toggles().isEmpty());
    QCOMPARE(g->hasEnvelope(1), stored);
    QCOMPARE(g->m_chart->series().size(), seriesBefore);
    for (QAbstractSeries *s : g->m_envelopeUpperSeries.value(1))
        QVERIFY(s->isVisible());
    for (QAbstractSeries *s : g->m_envelopeAreaSeries.value(1))
        QVERIFY(s->isVisible());
}

void TstVornGraphEnvelope::markersFollowTheAxes_data()
{
    QTest::addColumn<QString>("change");
    QTest::newRow("graph resized") << "resize";
    QTest::newRow("time per division") << "time/div";
    QTest::newRow("waveform offset") << "offset";
}

void TstVornGraphEnvelope::markersFollowTheAxes()
{
    QFETCH(QString, change);
    VornGraph *g = graph();
    g->startEnvelopeEditing(1);
    selectRegion(0.02, 0.06);
    const QPoint before = toggle(3);
    if (change == "resize") {
        const QRectF plot = g->m_chart->plotArea();
        g->resize(1100, 700);
        QVERIFY(QTest::qWaitFor([&] { return g->m_chart->plotArea() != plot; }));
        QTest::qWait(50);
    } else if (change == "time/div") {
        static_cast<ScaledSpinBox *>(g->m_timeDivisionSpinBox)->stepBy(1);
    } else {
        static_cast<ScaledSpinBox *>(g->m_offsetSpinBoxes[1])->stepBy(2);
    }
    QVERIFY(toggle(3) != before);
    bool found = false;
    for (QGraphicsItem *item : toggles())
        found = found || QLineF(item->pos(), toggleScenePos(3)).length() < 0.01;
    QVERIFY2(found, qPrintable(change));
}

void TstVornGraphEnvelope::panelKeepsItsDraggedPlaceUntilTheNextEdit()
{
    VornGraph *g = graph();
    const auto home = [g] {
        return g->m_chartView->mapFromScene(g->m_chart->plotArea().topLeft()) + QPoint(8, 8);
    };
    g->startEnvelopeEditing(1);
    QCOMPARE(overlay()->pos(), home());

    // Dragged far beyond the bottom-right corner, the panel stops at it.
    const auto send = [this](QEvent::Type type, const QPoint &pos, Qt::MouseButton b, Qt::MouseButtons held) {
        QMouseEvent event(type, QPointF(pos), QPointF(overlay()->mapToGlobal(pos)), b, held, Qt::NoModifier);
        QApplication::sendEvent(overlay(), &event);
    };
    send(QEvent::MouseButtonPress, {10, 10}, Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseMove, {3000, 3000}, Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, {10, 10}, Qt::LeftButton, Qt::NoButton);
    QCOMPARE(overlay()->geometry().bottomRight(), g->m_chartView->rect().bottomRight());

    g->resize(1000, 600);
    QVERIFY(QTest::qWaitFor([g] { return g->m_chartView->width() < 900; }));
    QCOMPARE(overlay()->geometry().bottomRight(), g->m_chartView->rect().bottomRight());

    g->cancelEnvelopeEditing();
    g->startEnvelopeEditing(0);
    QCOMPARE(overlay()->pos(), home());
    QVERIFY(overlay()->isVisible());
}

void TstVornGraphEnvelope::destroyingTheGraphMidEditLeavesNothingBehind_data()
{
    QTest::addColumn<bool>("stored");
    QTest::addColumn<int>("stage");
    QTest::newRow("selecting a region") << false << 0;
    QTest::newRow("dragging a handle") << false << 2;
    QTest::newRow("points of a stored envelope") << true << 1;
}

// The address sanitizer build tells whether anything was left or freed twice.
void TstVornGraphEnvelope::destroyingTheGraphMidEditLeavesNothingBehind()
{
    QFETCH(bool, stored);
    QFETCH(int, stage);
    VornGraph *g = graph();
    if (stored)
        g->setEnvelope(1, flatEnvelope(5));
    g->startEnvelopeEditing(1);
    if (stage == 0)
        m_h->press(m_h->viewPos(1, 0.03, 0.0));
    else if (!stored)
        selectRegion(0.02, 0.05);
    if (stage == 2) {
        m_h->press(upperHandle(1));
        m_h->move(upperHandle(1) + QPoint(0, -20));
    }
    QVERIFY(g->isEnvelopeEditing());
    QPointer<QObject> controller = g->m_envelopeEditor;
    m_h->graph.reset();
    QVERIFY(controller.isNull());
}

QTEST_MAIN(TstVornGraphEnvelope)
#include "tst_vorngraphenvelope.moc"
