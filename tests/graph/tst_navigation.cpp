#include "graphharness.h"

#include "envelopeeditoroverlay.h"
#include "navigation.h"

#include <QDoubleSpinBox>
#include <QGraphicsLineItem>
#include <QLabel>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTreeWidget>
#include <QValueAxis>
#include <QWheelEvent>

namespace {

// 1001 samples 1 ms apart whose value is their index in volts: the value at t is t / 1 ms.
WaveformData ramp(const QString &name)
{
    std::vector<double> v(1001);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = double(i);
    return makeWaveform(name, std::move(v));
}

class KeyCounter : public QObject
{
public:
    int presses = 0;
    bool eventFilter(QObject *, QEvent *event) override
    {
        presses += event->type() == QEvent::KeyPress;
        return false;
    }
};

} // namespace

class TstNavigation : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_harness.reset(); }

    void wheelStepsTheViewAtThePointer_data();
    void wheelStepsTheViewAtThePointer();
    void dragPansUnlessAnEditOwnsTheMouse();
    void keysMoveTheView_data();
    void keysMoveTheView();
    void cursorsAndHoverReadValues();
    void stackedScalesGiveEachWaveformItsBand();
    void stackingSetsTheBoxesQuietly();
    void treeBoxesTakeTypedValuesOnConfirm();

private:
    VornGraph *graph() const { return m_harness->graph.get(); }
    double timeAt(int x) const { return graph()->timeAtViewX(x); }
    void wheel(int delta, Qt::KeyboardModifiers modifiers, QPoint at);

    std::unique_ptr<GraphHarness> m_harness;
};

void TstNavigation::init()
{
    m_harness = std::make_unique<GraphHarness>();
    QVERIFY(m_harness->show({ramp(QStringLiteral("a")), sineWave(QStringLiteral("b"), 2.0)}));
}

void TstNavigation::wheel(int delta, Qt::KeyboardModifiers modifiers, QPoint at)
{
    QWidget *viewport = m_harness->viewport();
    QWheelEvent event(QPointF(at), QPointF(viewport->mapToGlobal(at)), QPoint(), QPoint(0, delta), Qt::NoButton,
                      modifiers, Qt::NoScrollPhase, false);
    QApplication::sendEvent(viewport, &event);
}

void TstNavigation::wheelStepsTheViewAtThePointer_data()
{
    QTest::addColumn<int>("delta");
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::addColumn<int>("timeSteps"); // 1-2-5 steps of the time base
    QTest::addColumn<double>("panned"); // divisions towards later times
    QTest::addColumn<int>("sizeSteps"); // 1-2-5 steps of the selected waveform
    QTest::newRow("away zooms in") << 120 << Qt::KeyboardModifiers() << -1 << 0.0 << 0;
    QTest::newRow("two notches out") << -240 << Qt::KeyboardModifiers() << 2 << 0.0 << 0;
    QTest::newRow("half notches add up") << 60 << Qt::KeyboardModifiers() << 0 << 0.0 << 0;
    QTest::newRow("shift pans") << -120 << Qt::KeyboardModifiers(Qt::ShiftModifier) << 0 << 1.0 << 0;
    QTest::newRow("ctrl scales") << 120 << Qt::KeyboardModifiers(Qt::ControlModifier) << 0 << 0.0 << -1;
}

void TstNavigation::wheelStepsTheViewAtThePointer()
{
    QFETCH(int, delta);
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QFETCH(int, timeSteps);
    QFETCH(double, panned);
    QFETCH(int, sizeSteps);
    VornGraph *g = graph();
    QSignalSpy boxChanged(g->m_timeDivisionSpinBox, &QDoubleSpinBox::valueChanged);
    const QPoint at = m_harness->viewPos(0, 0.3, 0.0);
    const double before = g->timePerDivision();
    const double pointed = timeAt(at.x());
    const double centre = -g->timeOffset();
    const double size = g->divisionSize(0);

    wheel(delta, modifiers, at);

    double expected = before;
    for (int k = 0; k < std::abs(timeSteps); ++k)
        expected = timeSteps > 0 ? Scale125::nextUp(expected) : Scale125::nextDown(expected);
    QCOMPARE(g->timePerDivision(), expected);
    QCOMPARE(g->m_timeDivisionSpinBox->value(), expected);
    QCOMPARE(g->m_timeDivisionSpinBox->property("lastValue").toDouble(), expected);
    QCOMPARE(boxChanged.count(), 0);
    if (panned != 0.0)
        QCOMPARE(-g->timeOffset(), centre + panned * before);
    else
        QVERIFY(std::fabs(timeAt(at.x()) - pointed) < 1e-9);
    QCOMPARE(g->divisionSize(0), sizeSteps < 0 ? Scale125::nextDown(size) : size);
}

void TstNavigation::dragPansUnlessAnEditOwnsTheMouse()
{
    VornGraph *g = graph();
    const QPoint from = m_harness->viewPos(0, 0.5, 0.0);
    const double offset = g->timeOffset();
    m_harness->drag(from, from + QPoint(100, 30));
    QVERIFY(std::fabs(g->timeOffset() - (offset + 100 / g->m_divisionPixels * g->timePerDivision())) < 1e-12);
    QCOMPARE(g->m_timeOffsetSpinBox->value(), g->timeOffset());

    g->startEnvelopeEditing(0);
    QCOMPARE(g->m_editorOverlay->title(), QStringLiteral("Envelope of a"));
    const double editing = g->timeOffset();
    m_harness->drag(from, from + QPoint(100, 0));
    QCOMPARE(g->timeOffset(), editing);
    g->cancelEnvelopeEditing();
}

void TstNavigation::keysMoveTheView_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("timeSteps");
    QTest::addColumn<double>("panned");
    QTest::addColumn<double>("offsetDivisions"); // of the selected waveform
    QTest::newRow("right") << int(Qt::Key_Right) << 0 << 1.0 << 0.0;
    QTest::newRow("left") << int(Qt::Key_Left) << 0 << -1.0 << 0.0;
    QTest::newRow("plus") << int(Qt::Key_Plus) << -1 << 0.0 << 0.0;
    QTest::newRow("minus") << int(Qt::Key_Minus) << 1 << 0.0 << 0.0;
    QTest::newRow("up") << int(Qt::Key_Up) << 0 << 0.0 << 1.0;
    QTest::newRow("down") << int(Qt::Key_Down) << 0 << 0.0 << -1.0;
}

void TstNavigation::keysMoveTheView()
{
    QFETCH(int, key);
    QFETCH(int, timeSteps);
    QFETCH(double, panned);
    QFETCH(double, offsetDivisions);
    VornGraph *g = graph();
    const double base = g->timePerDivision();
    const double centre = -g->timeOffset();
    const double offset = g->offset(0);
    QTest::keyClick(m_harness->view(), Qt::Key(key));
    QCOMPARE(g->timePerDivision(), timeSteps == 0 ? base : timeSteps > 0 ? Scale125::nextUp(base) : Scale125::nextDown(base));
    QCOMPARE(-g->timeOffset(), centre + panned * base);
    QCOMPARE(g->offset(0), offset + offsetDivisions * g->divisionSize(0));
    QCOMPARE(g->m_offsetSpinBoxes[0]->value(), g->offset(0));

    QTest::keyClick(m_harness->view(), Qt::Key_Home);
    QCOMPARE(g->timePerDivision(), g->calculateDivisionSizeX(g->m_chart->plotArea().width() / g->m_divisionPixels));
    QCOMPARE(-g->timeOffset(), 0.5);
}

void TstNavigation::cursorsAndHoverReadValues()
{
    VornGraph *g = graph();
    g->setWaveformVisible(1, false);
    QTest::keyClick(m_harness->view(), Qt::Key_C);
    QVERIFY(g->cursorsVisible());
    // Drag the first cursor onto 100 ms, click the second onto 300 ms.
    const QPoint first = g->m_chartView->mapFromScene(g->m_cursorLines[0]->line().p1());
    m_harness->drag(first, m_harness->viewPos(0, 0.1, 0.0));
    g->setCursorTimes(0.1, 0.4);
    m_harness->press(m_harness->viewPos(0, 0.3, 0.0));
    m_harness->release(m_harness->viewPos(0, 0.3, 0.0));
    QVERIFY(std::fabs(g->cursorTime(1) - 0.3) < 0.002);
    g->setCursorTimes(0.1, 0.3);
    QCOMPARE(g->cursorReadout(), QStringLiteral("t1 = 100 ms   t2 = 300 ms   Δt = 200 ms   1/Δt = 5 Hz   a: 100 V → 300 V (Δ 200 V)"));

    m_harness->send(QEvent::MouseMove, m_harness->viewPos(0, 0.5, 0.0), Qt::NoButton, Qt::NoButton);
    const double t = timeAt(m_harness->viewPos(0, 0.5, 0.0).x());
    QCOMPARE(g->hoverReadout(), QStringLiteral("t = %1   a: %2").arg(ValueFormatter::formatWithUnit(t, "s"),
                                                                    ValueFormatter::formatWithUnit(std::round(t * 1000), "V")));
    QCOMPARE(g->m_hoverLabel->text(), g->hoverReadout());
}

void TstNavigation::stackedScalesGiveEachWaveformItsBand()
{
    const QVector<WaveformScale> scales = stackedScales({{-1, 1, false}, {0, 1, true}, {0, 10, false}, {0, 1, true}}, 10);
    // Analog bands of four divisions from the top, then logic bands of one division.
    const double sizes[] = {1, 2, 5, 2};
    const double offsets[] = {3, -7.5, -10, -9.5};
    for (int i = 0; i < 4; ++i) {
        QCOMPARE(scales[i].divisionSize, sizes[i]);
        QCOMPARE(scales[i].offset, offsets[i]);
    }
    QCOMPARE(fittingDivisionSize(20, 10), 2.0);
    QCOMPARE(fittingDivisionSize(21, 10), 5.0);
}

void TstNavigation::stackingSetsTheBoxesQuietly()
{
    // A logic probe is unitless and holds 0 and 1; a trace in volts between 0 and 1 is analog.
    WaveformData probe = makeWaveform(QStringLiteral("d"), {0, 1, 1, 0});
    probe.unit.clear();
    m_harness = std::make_unique<GraphHarness>();
    QVERIFY(m_harness->show({ramp(QStringLiteral("a")), probe, makeWaveform(QStringLiteral("s"), {0, 0.5, 1})}));
    VornGraph *g = graph();
    QSignalSpy offsetChanged(g->m_offsetSpinBoxes[1], &QDoubleSpinBox::valueChanged);
    QSignalSpy stacked(g, &VornGraph::stackedChanged);
    g->setStacked(true);
    const QVector<WaveformScale> expected = stackedScales({{0, 1000, false}, {0, 1, true}, {0, 1, false}}, 10);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(g->divisionSize(i), expected[i].divisionSize);
        QCOMPARE(g->divisionSpinBox(i)->value(), expected[i].divisionSize);
        QCOMPARE(g->divisionSpinBox(i)->property("lastValue").toDouble(), expected[i].divisionSize);
        QCOMPARE(g->m_offsetSpinBoxes[i]->value(), expected[i].offset);
        QCOMPARE(g->m_yAxes[i]->max(), -expected[i].offset + 5 * expected[i].divisionSize);
    }
    QCOMPARE(offsetChanged.count(), 0);
    QCOMPARE(stacked.count(), 1);
    g->setStacked(false);
    QCOMPARE(g->divisionSize(0), 200.0);
    QCOMPARE(g->offset(0), -600.0);
}

void TstNavigation::treeBoxesTakeTypedValuesOnConfirm()
{
    VornGraph *g = graph();
    QDoubleSpinBox *box = g->m_timeDivisionSpinBox;
    const double before = g->timePerDivision();
    KeyCounter counter;
    g->installEventFilter(&counter);
    box->setFocus();
    box->selectAll();
    QTest::keyClicks(box, QStringLiteral("1 ms"));
    QCOMPARE(g->timePerDivision(), before);
    QTest::keyClick(box, Qt::Key_Return);
    QCOMPARE(g->timePerDivision(), Scale125::nextDown(before));
    QCOMPARE(counter.presses, 0);
    // Back to the time base of the last layout: the axis must still follow.
    QTest::keyClick(m_harness->view(), Qt::Key_Minus);
    const double span = g->m_chart->plotArea().width() / g->m_divisionPixels * before;
    QCOMPARE(g->m_axisX->max() - g->m_axisX->min(), span);

    // Over a box the user is not in, the wheel scrolls the tree.
    g->m_chartView->setFocus();
    g->m_infoTree->resize(g->m_infoTree->width(), 150);
    QScrollBar *bar = g->m_infoTree->verticalScrollBar();
    bar->setValue(bar->maximum());
    QDoubleSpinBox *offset = g->m_offsetSpinBoxes[0];
    const double value = offset->value();
    QWheelEvent event(QPointF(5, 5), QPointF(offset->mapToGlobal(QPoint(5, 5))), QPoint(), QPoint(0, 120),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(offset, &event);
    QCOMPARE(offset->value(), value);
    QVERIFY(bar->value() < bar->maximum());
}

QTEST_MAIN(TstNavigation)
#include "tst_navigation.moc"
