#include "vorngraph.h"

#include "scaledspinbox.h"

#include <QCategoryAxis>
#include <QChart>
#include <QLabel>
#include <QLineSeries>
#include <QStackedWidget>
#include <QTest>
#include <QValueAxis>

#include <cmath>
#include <memory>

namespace {

WaveformData makeWaveform(const QString &name, std::vector<double> samples, double interval = 1e-3,
                          double start = 0.0, const QString &unit = QStringLiteral("V"))
{
    WaveformData w;
    w.name = name;
    w.unit = unit;
    w.samples.writable() = std::move(samples);
    w.sampleInterval = interval;
    w.startTime = start;
    return w;
}

// 1000 samples of one sine period between -1 and 1, 1 ms apart: 0 s to 0.999 s.
WaveformData sine(const QString &name = QStringLiteral("sine"))
{
    std::vector<double> v(1000);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = std::sin(2 * M_PI * double(i) / 1000.0);
    v[250] = 1.0;
    v[750] = -1.0;
    return makeWaveform(name, v);
}

} // namespace

class TstVornGraph : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_graph.reset(); }

    void showsErrorPageForTooShortInterval_data();
    void showsErrorPageForTooShortInterval();
    void coloursSeriesFromThePalette();
    void fitsEachWaveformIntoTenDivisions();
    void laysOutSquareDivisionsAndLabels_data();
    void laysOutSquareDivisionsAndLabels();
    void keepsDivisionsSquareWhenLabelsTurnUpright();
    void fillsSeriesWithReducedVisibleRange();
    void copesWithEmptyAndFlatWaveforms();
    void showsASingleSample();
    void ignoresAGridTooFineForItsPosition();
    void rebuildsOnASecondDisplay();
    void waitsForBeingShownBeforeLayingOut();
    void divisionControlMovesOneStep_data();
    void divisionControlMovesOneStep();
    void timeDivisionControlMovesOneStep();
    void offsetControlsMoveTheView();
    void referenceLinesFollowTheView();

private:
    VornGraph *shownGraph(const QVector<WaveformData> &waveforms, QSizeF plotSize = QSizeF(1000, 400));
    static QStringList labels(QCategoryAxis *axis) { return axis->categoriesLabels(); }

    std::unique_ptr<VornGraph> m_graph;
};

void TstVornGraph::waitsForBeingShownBeforeLayingOut()
{
    m_graph = std::make_unique<VornGraph>();
    m_graph->addWaveform(sine());
    m_graph->resize(1000, 600);
    m_graph->displayGraph();
    // Hidden, it has no plot area to lay out; a retry would come back on every event loop pass.
    QCoreApplication::processEvents();
    QVERIFY(!m_graph->m_squareDivisionsPending);
    m_graph->show();
    QTRY_VERIFY(m_graph->m_divisionPixels > 0.0);
}

VornGraph *TstVornGraph::shownGraph(const QVector<WaveformData> &waveforms, QSizeF plotSize)
{
    m_graph = std::make_unique<VornGraph>();
    VornGraph *g = m_graph.get();
    g->resize(int(plotSize.width()) + 500, int(plotSize.height()) + 200);
    g->m_chart->setPlotArea(QRectF(QPointF(60, 20), plotSize));
    for (const WaveformData &w : waveforms)
        g->addWaveform(w);
    g->displayGraph();
    g->show();
    if (!QTest::qWaitForWindowExposed(g))
        return nullptr;
    // The layout retries itself until the plot area has its final size.
    if (!QTest::qWaitFor([&] { return g->m_divisionPixels > 0 && g->m_chart->plotArea().size() == plotSize; }))
        return nullptr;
    g->updateSquareDivisions();
    return g;
}

void TstVornGraph::showsErrorPageForTooShortInterval_data()
{
    QTest::addColumn<double>("interval");
    QTest::addColumn<QString>("message"); // empty when accepted

    QTest::newRow("one picosecond accepted") << 1e-12 << QString();
    QTest::newRow("just below refused") << 9.99e-13 << "Invalid sample interval in 'bad': 9.99e-13 s\n(minimum: 1 ps)";
    QTest::newRow("zero refused") << 0.0 << "Invalid sample interval in 'bad': 0.00e+00 s\n(minimum: 1 ps)";
    QTest::newRow("negative refused") << -2e-6 << "Invalid sample interval in 'bad': -2.00e-06 s\n(minimum: 1 ps)";
}

void TstVornGraph::showsErrorPageForTooShortInterval()
{
    QFETCH(double, interval);
    QFETCH(QString, message);
    VornGraph g;
    g.addWaveform(sine(QStringLiteral("good")));
    g.addWaveform(makeWaveform(QStringLiteral("bad"), {1, 2, 3}, interval));
    // Only the first bad waveform is named.
    if (!message.isEmpty())
        g.addWaveform(makeWaveform(QStringLiteral("worse"), {1, 2, 3}, -1.0));
    g.displayGraph();

    QCOMPARE(g.m_stackedWidget->currentIndex(), message.isEmpty() ? 0 : 1);
    QCOMPARE(g.m_errorLabel->text(), message);
    QCOMPARE(g.m_series.size(), message.isEmpty() ? 2 : 0);
}

void TstVornGraph::coloursSeriesFromThePalette()
{
    VornGraph g;
    g.setUseOpenGL(true);
    for (int i = 0; i < 17; ++i)
        g.addWaveform(sine());
    g.displayGraph();
    QCOMPARE(g.m_series[7]->color(), QColor(192, 192, 192));
    QCOMPARE(g.m_series[16]->color(), QColor(255, 224, 0));
    // No OpenGL context can be made offscreen, so no series may ask for one.
    QVERIFY(!g.m_series[0]->useOpenGL());
}

void TstVornGraph::fitsEachWaveformIntoTenDivisions()
{
    VornGraph g;
    g.addWaveform(sine());
    g.addWaveform(makeWaveform(QStringLiteral("offset"), {3.12, 3.9, 3.7}));
    g.displayGraph();

    // -1 .. 1: 0.5 per division around 0; 3.12 .. 3.9: 0.1 per division around 3.5.
    const double sizes[] = {0.5, 0.1};
    const double centres[] = {0.0, 3.5};
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(g.m_divisionSizes[i], sizes[i]);
        QCOMPARE(g.m_yAxes[i]->min(), centres[i] - 5 * sizes[i]);
        QCOMPARE(g.m_yAxes[i]->max(), centres[i] + 5 * sizes[i]);
        QCOMPARE(g.m_yAxes[i]->tickAnchor(), centres[i]);
        QCOMPARE(g.m_yAxes[i]->tickInterval(), sizes[i]);
        QCOMPARE(g.m_yAxes[i]->tickType(), QValueAxis::TicksDynamic);
    }
    QVERIFY(g.m_yAxes[0]->isGridLineVisible());
    QVERIFY(!g.m_yAxes[1]->isGridLineVisible());
}

void TstVornGraph::laysOutSquareDivisionsAndLabels_data()
{
    QTest::addColumn<QSizeF>("plot");
    QTest::addColumn<double>("min");
    QTest::addColumn<double>("max");
    QTest::addColumn<int>("angle");
    QTest::addColumn<QStringList>("someLabels");
    QTest::addColumn<int>("labelCount");

    // 0 .. 0.999 s centred on -offset = 0.5 s after snapping to 50 ms per division.
    QTest::newRow("1000x400: 25 divisions, upright labels")
        << QSizeF(1000, 400) << -0.125 << 1.125 << -90
        << QStringList{"-100 ms", "-50 ms", "0 s", "500 ms", "1.1 s"} << 25;
    QTest::newRow("1000x500: 20 divisions, horizontal labels")
        << QSizeF(1000, 500) << 0.0 << 1.0 << 0
        << QStringList{"0 s", "50 ms", "950 ms", "1 s"} << 21;
}

void TstVornGraph::laysOutSquareDivisionsAndLabels()
{
    QFETCH(QSizeF, plot);
    QFETCH(double, min);
    QFETCH(double, max);
    QFETCH(int, angle);
    QFETCH(QStringList, someLabels);
    QFETCH(int, labelCount);

    VornGraph *g = shownGraph({sine()}, plot);
    QVERIFY(g);
    QCOMPARE(g->m_divisionPixels, plot.height() / 10);
    QCOMPARE(g->m_timePerDivision, 0.05);
    QCOMPARE(g->m_axisX->min(), min);
    QCOMPARE(g->m_axisX->max(), max);
    QCOMPARE(g->m_axisX->tickAnchor(), 0.5);
    QCOMPARE(g->m_axisX->tickInterval(), 0.05);
    QCOMPARE(g->m_axisXLabels->labelsAngle(), angle);

    const QStringList time = labels(g->m_axisXLabels);
    QCOMPARE(time.size(), labelCount);
    for (const QString &label : someLabels)
        QVERIFY2(time.contains(label), qPrintable(time.join(QLatin1Char('|'))));
    QCOMPARE(g->m_axisXLabels->min(), min);
    QCOMPARE(g->m_axisXLabels->max(), max);

    const QStringList value = labels(g->m_axisYLabels);
    QCOMPARE(value.size(), 11);
    QCOMPARE(value.first(), QStringLiteral("-2.5 V"));
    QCOMPARE(value[5], QStringLiteral("0 V"));
    QCOMPARE(value.last(), QStringLiteral("2.5 V"));
    QCOMPARE(g->m_axisYLabels->labelsColor(), QColor(255, 224, 0));
    QCOMPARE(g->m_axisYLabels->labelsAngle(), 0);
}

void TstVornGraph::keepsDivisionsSquareWhenLabelsTurnUpright()
{
    m_graph = std::make_unique<VornGraph>();
    VornGraph *g = m_graph.get();
    g->addWaveform(sine());
    g->resize(1600, 420);
    g->displayGraph();
    g->show();
    QVERIFY(QTest::qWaitForWindowExposed(g));
    // Upright labels lower the plot after the first layout; once that has happened the
    // divisions must follow.
    QTest::qWait(200);
    QTRY_VERIFY(g->m_axisXLabels->labelsAngle() == -90 && qFuzzyCompare(
        (g->m_axisX->max() - g->m_axisX->min()) / g->m_timePerDivision,
        g->m_chart->plotArea().width() / (g->m_chart->plotArea().height() / 10)));
}

void TstVornGraph::fillsSeriesWithReducedVisibleRange()
{
    std::vector<double> many(20000);
    for (std::size_t i = 0; i < many.size(); ++i)
        many[i] = double(i % 7);
    VornGraph *g = shownGraph({makeWaveform(QStringLiteral("long"), many, 1e-4), sine()});
    QVERIFY(g);
    QCOMPARE(g->m_series[0]->count(), VornGraph::MAX_DISPLAY_POINTS);
    QCOMPARE(g->m_series[1]->count(), 1000);

    // Scrolled far past the data: only the first and last sample remain.
    g->m_timeOffset = -100.0;
    g->updateXAxis(g->m_timePerDivision);
    QCOMPARE(g->m_series[1]->count(), 2);
    QCOMPARE(g->m_series[1]->at(1), QPointF(0.999, -std::sin(2 * M_PI / 1000.0)));
}

void TstVornGraph::copesWithEmptyAndFlatWaveforms()
{
    VornGraph *g = shownGraph({makeWaveform(QStringLiteral("empty"), {}), sine(),
                               makeWaveform(QStringLiteral("flat"), {3.0, 3.0, 3.0}),
                               makeWaveform(QStringLiteral("zero"), {0.0, 0.0})});
    QVERIFY(g);
    QCOMPARE(g->m_globalXMin, 0.0);
    QCOMPARE(g->m_globalXMax, 0.999);
    QCOMPARE(g->m_series[0]->count(), 0);
    QCOMPARE(g->m_series[1]->count(), 1000);
    // A flat trace sits in the middle of a division that can be stepped.
    QVERIFY(g->m_divisionSizes[2] > 0.0);
    QCOMPARE(g->m_offsets[2], -3.0);
    QCOMPARE((g->m_yAxes[2]->min() + g->m_yAxes[2]->max()) / 2, 3.0);
    QVERIFY(g->m_yAxes[3]->max() > g->m_yAxes[3]->min());
    QCOMPARE(labels(g->m_axisYLabels).size(), 11);
}

void TstVornGraph::showsASingleSample()
{
    VornGraph *g = shownGraph({makeWaveform(QStringLiteral("one"), {2.0}, 1e-3, 5.0)});
    QVERIFY(g);
    QCOMPARE(g->m_globalXMin, 5.0);
    QCOMPARE(g->m_globalXMax, 5.0);
    QVERIFY(g->m_axisX->min() < 5.0 && g->m_axisX->max() > 5.0);
    QCOMPARE(g->m_series[0]->count(), 1);
    QVERIFY(labels(g->m_axisXLabels).contains(QStringLiteral("5 s")));
}

void TstVornGraph::ignoresAGridTooFineForItsPosition()
{
    VornGraph *g = shownGraph({sine()});
    QVERIFY(g);
    const QStringList before = labels(g->m_axisXLabels);
    // A picosecond per division a million seconds from zero: the doubles there are coarser than
    // the grid, and Qt's tick loop would never end.
    g->m_timeOffset = -1e6;
    g->m_timePerDivision = 1e-12;
    g->updateXAxis(1e-12);
    QTest::qWait(50);
    QCOMPARE(g->m_axisX->tickInterval(), 0.05);
    QCOMPARE(labels(g->m_axisXLabels), before);
}

void TstVornGraph::rebuildsOnASecondDisplay()
{
    VornGraph *g = shownGraph({sine(), sine()});
    QVERIFY(g);
    const double timePerDivision = g->m_timePerDivision;
    g->addWaveform(sine());
    g->displayGraph();
    QTRY_VERIFY(!labels(g->m_axisXLabels).isEmpty());
    QCOMPARE(g->m_series.size(), 3);
    QCOMPARE(g->m_yAxes.size(), 3);
    QCOMPARE(g->m_divisionSizes.size(), 3);
    QCOMPARE(g->m_timePerDivision, timePerDivision);
    // Three waveforms, the centre cross, the time-zero line and three zero lines.
    QCOMPARE(g->m_chart->series().size(), 3 + 3 + 3);
    QCOMPARE(g->m_chart->axes().size(), 3 + 3);
}

void TstVornGraph::divisionControlMovesOneStep_data()
{
    QTest::addColumn<double>("typed");
    QTest::addColumn<double>("accepted");
    QTest::newRow("far up is one step") << 0.007 << 0.002;
    QTest::newRow("a little down is one step") << 0.0003 << 0.0005;
    QTest::newRow("a giant value is one step") << 1e9 << 0.002;
}

void TstVornGraph::divisionControlMovesOneStep()
{
    QFETCH(double, typed);
    QFETCH(double, accepted);
    VornGraph *g = shownGraph({makeWaveform(QStringLiteral("mV"), {0.0, 0.01})});
    QVERIFY(g);
    QCOMPARE(g->m_divisionSizes[0], 0.002);
    g->m_offsetSpinBoxes.append(g->createWaveformOffsetSpinBox(0));
    QDoubleSpinBox *box = g->createDivisionSpinBox(0, 0.001, QStringLiteral("V"));

    box->setValue(typed);
    QCOMPARE(box->value(), accepted);
    QCOMPARE(box->property("lastValue").toDouble(), accepted);
    QCOMPARE(g->m_divisionSizes[0], accepted);
    const double centre = -g->m_offsets[0];
    QCOMPARE(g->m_yAxes[0]->max() - centre, 5 * accepted);
    QCOMPARE(g->m_yAxes[0]->tickInterval(), accepted);
    QCOMPARE(qobject_cast<LinearSpinBox *>(g->m_offsetSpinBoxes[0])->step(), accepted);
    QCOMPARE(labels(g->m_axisYLabels).size(), 11);
}

void TstVornGraph::timeDivisionControlMovesOneStep()
{
    VornGraph *g = shownGraph({sine()});
    QVERIFY(g);
    g->m_timeOffsetSpinBox = g->createTimeOffsetSpinBox();
    QDoubleSpinBox *box = g->createTimeDivisionSpinBox();
    QCOMPARE(box->property("lastValue").toDouble(), 0.05);

    box->setValue(3.0);
    QCOMPARE(g->m_timePerDivision, 0.1);
    QCOMPARE(box->value(), 0.1);
    QCOMPARE(g->m_axisX->tickInterval(), 0.1);
    QCOMPARE(qobject_cast<LinearSpinBox *>(g->m_timeOffsetSpinBox)->step(), 0.1);
    box->setValue(1e-12);
    QCOMPARE(g->m_timePerDivision, 0.05);
    QVERIFY(labels(g->m_axisXLabels).contains(QStringLiteral("500 ms")));
}

void TstVornGraph::offsetControlsMoveTheView()
{
    VornGraph *g = shownGraph({sine()});
    QVERIFY(g);
    QDoubleSpinBox *time = g->createTimeOffsetSpinBox();
    QCOMPARE(time->value(), -0.5);
    time->setValue(-0.7);
    QCOMPARE((g->m_axisX->min() + g->m_axisX->max()) / 2, 0.7);
    QCOMPARE(g->m_axisX->tickAnchor(), 0.7);

    QDoubleSpinBox *offset = g->createWaveformOffsetSpinBox(0);
    static_cast<LinearSpinBox *>(offset)->stepBy(1);
    QCOMPARE(g->m_offsets[0], 0.5);
    QCOMPARE(g->m_yAxes[0]->min(), -3.0);
    QCOMPARE(labels(g->m_axisYLabels).first(), QStringLiteral("-3 V"));
}

void TstVornGraph::referenceLinesFollowTheView()
{
    VornGraph *g = shownGraph({sine(), makeWaveform(QStringLiteral("positive"), {3.12, 3.9}), sine()});
    QVERIFY(g);
    QCOMPARE(g->m_centerLineV->pen().style(), Qt::DashLine);
    QCOMPARE(g->m_centerLineV->at(0).x(), 0.5);
    QCOMPARE(g->m_centerLineH->at(0).y(), 0.0);
    QLineSeries *zero = g->m_timeZeroLine;
    QVERIFY(zero && zero->isVisible());

    g->onTimeOffsetSpinBoxChanged(-5.0);
    QVERIFY(!zero->isVisible());
    g->onTimeOffsetSpinBoxChanged(-0.5);
    QCOMPARE(g->m_timeZeroLine, zero);
    QVERIFY(zero->isVisible());

    // Waveform 1 never reaches 0; a hidden waveform loses its line.
    QCOMPARE(g->m_zeroLines.size(), 2);
    QCOMPARE(g->m_zeroLines[1]->pen().color(), QColor(255, 0, 255, 64));
    g->m_series[0]->setVisible(false);
    g->updateZeroLines();
    QCOMPARE(g->m_zeroLines.size(), 1);
}

QTEST_MAIN(TstVornGraph)
#include "tst_vorngraph.moc"
