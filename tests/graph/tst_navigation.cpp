#include "graphharness.h"

#include "bandlabelitem.h"
#include "navigation.h"

#include <QCategoryAxis>
#include <QDoubleSpinBox>
#include <QEnterEvent>
#include <QGraphicsLineItem>
#include <QLabel>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTreeWidget>

#include <numeric>

namespace {

// "a": 1001 samples 1 ms apart whose value is their index in volts, so the value at t is t / 1 ms.
WaveformData ramp()
{
    std::vector<double> v(1001);
    std::iota(v.begin(), v.end(), 0.0);
    return makeWaveform(QStringLiteral("a"), std::move(v));
}

void wheel(QWidget *target, QPoint at, int delta, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QWheelEvent event(QPointF(at), QPointF(target->mapToGlobal(at)), QPoint(), QPoint(0, delta), Qt::NoButton,
                      modifiers, Qt::NoScrollPhase, false);
    QApplication::sendEvent(target, &event);
}

struct LineCounter : QObject
{
    int added = 0;
    bool eventFilter(QObject *, QEvent *e) override { return (added += e->type() == QEvent::ChildAdded) < 0; }
};

struct KeyCounter : QObject
{
    int presses = 0;
    bool eventFilter(QObject *, QEvent *event) override { return (presses += event->type() == QEvent::KeyPress) < 0; }
};

} // namespace

class TstNavigation : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_harness = std::make_unique<GraphHarness>();
        QVERIFY(m_harness->show({ramp(), sineWave(QStringLiteral("b"), 2.0)}));
    }
    void cleanup() { m_harness.reset(); }

    void wheelAndKeysStepTheView_data()
    {
        QTest::addColumn<int>("key"); // 0: the wheel
        QTest::addColumn<int>("delta");
        QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
        // 1-2-5 steps of the time base, divisions panned towards later times, 1-2-5 steps of the
        // selected waveform's scale, divisions its offset moves
        QTest::addColumn<QList<double>>("steps");
        const Qt::KeyboardModifiers none;
        QTest::newRow("wheel away zooms in at the pointer") << 0 << 120 << none << QList<double>{-1, 0, 0, 0};
        QTest::newRow("two notches out") << 0 << -240 << none << QList<double>{2, 0, 0, 0};
        QTest::newRow("half notches add up") << 0 << 60 << none << QList<double>{0, 0, 0, 0};
        QTest::newRow("shift pans") << 0 << -120 << Qt::KeyboardModifiers(Qt::ShiftModifier) << QList<double>{0, 1, 0, 0};
        QTest::newRow("ctrl scales") << 0 << 120 << Qt::KeyboardModifiers(Qt::ControlModifier) << QList<double>{0, 0, -1, 0};
        QTest::newRow("right") << int(Qt::Key_Right) << 0 << none << QList<double>{0, 1, 0, 0};
        QTest::newRow("left") << int(Qt::Key_Left) << 0 << none << QList<double>{0, -1, 0, 0};
        QTest::newRow("plus zooms in at the centre") << int(Qt::Key_Plus) << 0 << none << QList<double>{-1, 0, 0, 0};
        QTest::newRow("minus") << int(Qt::Key_Minus) << 0 << none << QList<double>{1, 0, 0, 0};
        QTest::newRow("up") << int(Qt::Key_Up) << 0 << none << QList<double>{0, 0, 0, 1};
        QTest::newRow("down") << int(Qt::Key_Down) << 0 << none << QList<double>{0, 0, 0, -1};
    }
    void wheelAndKeysStepTheView()
    {
        QFETCH(int, key);
        QFETCH(int, delta);
        QFETCH(Qt::KeyboardModifiers, modifiers);
        QFETCH(QList<double>, steps);
        const double timeSteps = steps[0], panned = steps[1], sizeSteps = steps[2], offsetDivisions = steps[3];
        VornGraph *g = graph();
        QSignalSpy boxChanged(g->m_timeDivisionSpinBox, &QDoubleSpinBox::valueChanged);
        // Off the grid's round times, where a tenth of a division is several pixels away.
        const QPoint at = m_harness->viewPos(0, 0.3137, 0.0);
        const double before = g->timePerDivision(), pointed = timeAt(at.x()), centre = -g->timeOffset();
        const double size = g->divisionSize(0), offset = g->offset(0);
        if (key)
            QTest::keyClick(m_harness->view(), Qt::Key(key));
        else
            wheel(m_harness->viewport(), at, delta, modifiers);

        double expected = before;
        for (int k = 0; k < std::abs(int(timeSteps)); ++k)
            expected = timeSteps > 0 ? Scale125::nextUp(expected) : Scale125::nextDown(expected);
        // The waveform's offset keeps its place on the screen when its scale steps.
        const double newSize = sizeSteps < 0 ? Scale125::nextDown(size) : size;
        QCOMPARE(QList<double>({g->timePerDivision(), g->m_timeDivisionSpinBox->value(),
                                g->m_timeDivisionSpinBox->property("lastValue").toDouble(), double(boxChanged.count()),
                                g->divisionSize(0), g->offset(0) / newSize, g->m_offsetSpinBoxes[0]->value()}),
                 QList<double>({expected, expected, expected, 0, newSize, offset / size + offsetDivisions, g->offset(0)}));
        // The wheel zooms around the time under the pointer, which stays within half a pixel; the
        // keys zoom around the centre, and pans keep the offset on a tenth of a division.
        const double tenth = g->timePerDivision() / 10;
        if (!key && timeSteps != 0) {
            const double halfPixel = g->timePerDivision() / g->m_divisionPixels / 2;
            QVERIFY2(std::fabs(timeAt(at.x()) - pointed) <= halfPixel + 1e-12,
                     qPrintable(QString::number((timeAt(at.x()) - pointed) / halfPixel / 2) + " px"));
        } else {
            QCOMPARE(-g->timeOffset(), centre + panned * before);
            QVERIFY(std::fabs(g->timeOffset() / tenth - std::round(g->timeOffset() / tenth)) < 1e-9);
        }

        // Home: the shortest 1-2-5 time per division whose screen holds the whole second, centred.
        QTest::keyClick(m_harness->view(), Qt::Key_Home);
        const double divisions = g->m_chart->plotArea().width() / g->m_divisionPixels;
        QCOMPARE(QList<double>({-g->timeOffset(), double(g->timePerDivision() * divisions >= 1.0),
                                double(Scale125::nextDown(g->timePerDivision()) * divisions < 1.0)}),
                 QList<double>({0.5, 1, 1}));
    }

    // While an edit runs its mode owns the mouse: the envelope test selects and drags through it.
    void dragPansTheTimeBase()
    {
        VornGraph *g = graph();
        const QPoint from = m_harness->viewPos(0, 0.5, 0.0);
        const double offset = g->timeOffset();
        m_harness->drag(from, from + QPoint(100, 30));
        const double tenths = std::round(100 / g->m_divisionPixels * 10);
        QVERIFY(std::fabs(g->timeOffset() - (offset + tenths * g->timePerDivision() / 10)) < 1e-12);
        // The tree's time rows, held back while the drag moved, show where it let go.
        QCOMPARE(g->m_timeOffsetSpinBox->value(), g->timeOffset());
        QCOMPARE(g->m_timeRangeMinusItem->text(1), ValueFormatter::formatWithUnit(g->m_axisX->min(), "s"));
    }

    void cursorsAndHoverReadValues()
    {
        VornGraph *g = graph();
        g->setWaveformVisible(1, false);
        QTest::keyClick(m_harness->view(), Qt::Key_C);
        QVERIFY(g->cursorsVisible());
        // Never placed before, the two start apart, at a quarter and three quarters of the view.
        const double min = g->m_axisX->min(), span = g->m_axisX->max() - min;
        QCOMPARE(QList<double>({g->cursorTime(0), g->cursorTime(1)}), QList<double>({min + span / 4, min + span * 3 / 4}));
        // Drag the first cursor onto 100 ms, click the second onto 300 ms.
        m_harness->drag(g->m_chartView->mapFromScene(g->m_cursorLines[0]->line().p1()), m_harness->viewPos(0, 0.1, 0.0));
        g->setCursorTimes(0.1, 0.4);
        m_harness->click(m_harness->viewPos(0, 0.3, 0.0));
        QVERIFY(std::fabs(g->cursorTime(1) - 0.3) < 0.002);
        g->setCursorTimes(0.1, 0.3);
        QCOMPARE(g->cursorReadout(), QStringLiteral("t1 = 100 ms   t2 = 300 ms   Δt = 200 ms   1/Δt = 5 Hz   a: 100 V → 300 V (Δ 200 V)"));
        g->setCursorTimes(0.3, 0.1);
        QVERIFY2(g->cursorReadout().startsWith(QStringLiteral("t1 = 300 ms   t2 = 100 ms   Δt = -200 ms   1/Δt = -5 Hz")),
                 qPrintable(g->cursorReadout()));

        m_harness->send(QEvent::MouseMove, m_harness->viewPos(0, 0.5, 0.0), Qt::NoButton, Qt::NoButton);
        // The pointer's time to the millisecond the samples lie apart, no finer.
        const double t = timeAt(m_harness->viewPos(0, 0.5, 0.0).x());
        QCOMPARE(QStringList({g->hoverReadout(), g->m_hoverLabel->text()}),
                 QStringList(2, QStringLiteral("t = %1 ms   a: %2").arg(std::round(t * 1000))
                                    .arg(ValueFormatter::formatWithUnit(std::round(t * 1000), "V"))));
        // The readout can be selected and copied once the pointer is over it.
        QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), QPointF(5, 5));
        QApplication::sendEvent(g->m_hoverLabel, &enter);
        QVERIFY(g->m_hoverLabel->textInteractionFlags() & Qt::TextSelectableByMouse);
    }

    // Deep in a long capture two cursors one sample apart read two times, Δt keeps four digits
    // however the times round, and values are read to the scale's resolution.
    void readoutsTellNeighbouringSamplesApart()
    {
        m_harness = std::make_unique<GraphHarness>();
        std::vector<double> samples(100, 1.0);
        samples[2] = 2e-13; // float noise of a zero: below a pixel of the scale, so it reads 0 V
        QVERIFY(m_harness->show({makeWaveform(QStringLiteral("late"), samples, 1e-6, 78.7699)}));
        VornGraph *g = graph();
        g->setCursorsVisible(true);
        g->setCursorTimes(78.769901, 78.769902);
        QCOMPARE(g->cursorReadout(), QStringLiteral("t1 = 78.769901 s   t2 = 78.769902 s   Δt = 1 μs   1/Δt = 1 MHz   "
                                                    "late: 1 V → 0 V (Δ -1 V)"));
        g->setCursorTimes(78.769901, 78.7699133333);
        QVERIFY2(g->cursorReadout().contains(QStringLiteral("Δt = 12.33 μs")), qPrintable(g->cursorReadout()));
    }

    // Each band carries its own waveform's name, scale and edge values; a logic lane only its name.
    void stackedBandsLabelThemselves()
    {
        WaveformData probe = makeWaveform(QStringLiteral("d"), {0, 1, 1, 0});
        probe.unit.clear();
        m_harness = std::make_unique<GraphHarness>();
        QVERIFY(m_harness->show({ramp(), probe, sineWave(QStringLiteral("s"), 2.0)}));
        VornGraph *g = graph();
        g->setStacked(true);
        const QVector<BandLabelItem::Band> bands = g->m_bandLabels->bands();
        QCOMPARE(bands.size(), 3);
        const QList<double> extents[] = {{0, 1000}, {}, {-2, 2}};
        for (int i = 0; i < 3; ++i) {
            const BandLabelItem::Band &band = bands[i];
            QCOMPARE(band.name, g->waveformName(i));
            QCOMPARE(band.selected, i == 0);
            QCOMPARE(band.scale.isEmpty(), extents[i].isEmpty());
            if (extents[i].isEmpty())
                continue;
            QCOMPARE(band.scale, ValueFormatter::formatWithUnit(g->divisionSize(i), "V") + "/div");
            const double top = parseScaledValue(band.topValue, "V"), bottom = parseScaledValue(band.bottomValue, "V");
            QVERIFY2(bottom <= extents[i][0] && top >= extents[i][1] && top - bottom < 4 * (extents[i][1] - extents[i][0]),
                     qPrintable(band.bottomValue + " to " + band.topValue));
        }
        // Analog bands from the top, the logic lane below them and thinner.
        QVERIFY(bands[0].bottom <= bands[2].top && bands[2].bottom <= bands[1].top);
        QVERIFY(bands[1].bottom - bands[1].top < bands[2].bottom - bands[2].top);
        // The left edge reads the selected waveform beside its own band only, a probe plainly.
        for (int i : {0, 1}) {
            g->m_infoTree->setCurrentItem(g->m_waveformItems[i]);
            const QStringList labels = g->m_axisYLabels->categoriesLabels();
            QVERIFY(!labels.isEmpty());
            for (const QString &label : labels) {
                const double value = parseScaledValue(label, i == 0 ? "V" : "");
                const double y = g->m_chart->mapToPosition({0.0, value}, g->m_series[i]).y();
                QVERIFY2(y >= bands[i].top - 1 && y <= bands[i].bottom + 1, qPrintable(label));
                QVERIFY2(i == 0 || !label.contains(' '), qPrintable(label));
            }
        }
    }

    // Divisions too narrow for horizontal labels turn them upright; on request they stay across,
    // on every other grid line counted from zero.
    void narrowDivisionsKeepTimeLabelsAcrossOnRequest()
    {
        VornGraph *g = graph();
        g->resize(1600, 420);
        QTRY_VERIFY(g->m_divisionPixels > 25 && g->m_divisionPixels < VornGraph::MIN_HORIZONTAL_LABEL_PIXEL);
        const int every = g->m_axisXLabels->categoriesLabels().size();
        QCOMPARE(g->m_axisXLabels->labelsAngle(), -90);
        g->setHorizontalTimeLabels(true);
        const QStringList labels = g->m_axisXLabels->categoriesLabels();
        QCOMPARE(g->m_axisXLabels->labelsAngle(), 0);
        QVERIFY(std::abs(2 * int(labels.size()) - every) <= 1);
        for (const QString &label : labels)
            QCOMPARE(std::llround(parseScaledValue(label, "s") / g->timePerDivision()) % 2, 0LL);
    }

    void stackingGivesEachWaveformItsBandQuietly()
    {
        // Analog bands of 4.5 divisions from the top, then logic lanes of half a division.
        QStringList bands;
        for (const WaveformScale &s : stackedScales({{-1, 1, false}, {0, 1, true}, {0, 10, false}, {0, 1, true}}, 10))
            bands << QStringLiteral("%1 from %2 in %3").arg(s.divisionSize).arg(s.offset).arg(s.bandHeight);
        QCOMPARE(bands, QStringList({"1 from 3 in 4.5", "2.5 from -11.125 in 0.5", "5 from -15 in 4.5", "2.5 from -12.375 in 0.5"}));
        QCOMPARE(QList<double>({fittingDivisionSize(20, 10), fittingDivisionSize(21, 10)}), QList<double>({2.0, 5.0}));

        // A logic probe is unitless and holds 0 and 1; a trace in volts between 0 and 1 is analog.
        WaveformData probe = makeWaveform(QStringLiteral("d"), {0, 1, 1, 0});
        probe.unit.clear();
        m_harness = std::make_unique<GraphHarness>();
        QVERIFY(m_harness->show({ramp(), probe, makeWaveform(QStringLiteral("s"), {0, 0.5, 1})}));
        VornGraph *g = graph();
        QSignalSpy offsetChanged(g->m_offsetSpinBoxes[1], &QDoubleSpinBox::valueChanged);
        QSignalSpy stacked(g, &VornGraph::stackedChanged);
        // The zero lines are built at most once for the whole layout, not once per waveform.
        LineCounter lines;
        g->m_zeroLines.value(0)->parent()->installEventFilter(&lines);
        g->setStacked(true);
        QVERIFY(lines.added <= g->m_zeroLines.size());
        QStringList shown, expected;
        for (const WaveformScale &s : stackedScales({{0, 1000, false}, {0, 1, true}, {0, 1, false}}, 10))
            expected << QStringLiteral("%1 %1 %1 from %2 to %3").arg(s.divisionSize).arg(s.offset).arg(5 * s.divisionSize - s.offset);
        for (int i = 0; i < 3; ++i)
            shown << QStringLiteral("%1 %2 %3 from %4 to %5").arg(g->divisionSize(i)).arg(g->divisionSpinBox(i)->value())
                         .arg(g->divisionSpinBox(i)->property("lastValue").toDouble()).arg(g->m_offsetSpinBoxes[i]->value())
                         .arg(g->m_yAxes[i]->max());
        QCOMPARE(shown, expected);
        QCOMPARE(QList<int>({int(offsetChanged.count()), int(stacked.count())}), QList<int>({0, 1}));
        g->setStacked(false);
        QCOMPARE(QList<double>({g->divisionSize(0), g->offset(0)}), QList<double>({200.0, -600.0}));
    }

    void treeBoxesTakeTypedValuesOnConfirm()
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
        QCOMPARE(QList<double>({g->timePerDivision(), double(counter.presses)}), QList<double>({Scale125::nextDown(before), 0}));
        // Back to the time base of the last layout: the axis must still follow.
        QTest::keyClick(m_harness->view(), Qt::Key_Minus);
        QCOMPARE(g->m_axisX->max() - g->m_axisX->min(), g->m_chart->plotArea().width() / g->m_divisionPixels * before);

        // Over a box the user is not in, the wheel scrolls the tree.
        g->m_chartView->setFocus();
        g->m_infoTree->resize(g->m_infoTree->width(), 150);
        QScrollBar *bar = g->m_infoTree->verticalScrollBar();
        bar->setValue(bar->maximum());
        QDoubleSpinBox *offset = g->m_offsetSpinBoxes[0];
        const double value = offset->value();
        wheel(offset, QPoint(5, 5), 120);
        QCOMPARE(offset->value(), value);
        QVERIFY(bar->value() < bar->maximum());
    }

private:
    VornGraph *graph() const { return m_harness->graph.get(); }
    double timeAt(int x) const { return graph()->timeAtViewX(x); }

    std::unique_ptr<GraphHarness> m_harness;
};

QTEST_MAIN(TstNavigation)
#include "tst_navigation.moc"
