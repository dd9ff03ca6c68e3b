#include "graphharness.h"

#include "axislabelitem.h"
#include "scaledspinbox.h"

#include <QCategoryAxis>
#include <QLabel>
#include <QLineSeries>
#include <QOpenGLContext>
#include <QPainter>
#include <QStackedWidget>
#include <QTreeWidget>

#include <random>

namespace {

// 1000 samples of one sine period between -1 and 1, 1 ms apart: 0 s to 0.999 s.
WaveformData sine()
{
    std::vector<double> v(1000);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = std::sin(2 * M_PI * double(i) / 1000.0);
    v[250] = 1.0;
    v[750] = -1.0;
    return makeWaveform(QStringLiteral("sine"), v);
}

// "min..max, grid from anchor by interval"
QString span(QValueAxis *axis)
{
    return QStringLiteral("%1..%2, grid from %3 by %4")
        .arg(axis->min()).arg(axis->max()).arg(axis->tickAnchor()).arg(axis->tickInterval());
}

} // namespace

class TstVornGraph : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_graph.reset(); }

    void showsErrorPageForTooShortInterval_data()
    {
        QTest::addColumn<double>("interval");
        QTest::addColumn<QString>("message"); // empty when accepted
        QTest::newRow("one picosecond accepted") << 1e-12 << QString();
        QTest::newRow("just below refused") << 9.99e-13 << "Invalid sample interval in 'bad': 9.99e-13 s\n(minimum: 1 ps)";
        QTest::newRow("zero refused") << 0.0 << "Invalid sample interval in 'bad': 0.00e+00 s\n(minimum: 1 ps)";
    }
    void showsErrorPageForTooShortInterval()
    {
        QFETCH(double, interval);
        QFETCH(QString, message);
        VornGraph g;
        g.addWaveform(sine());
        g.addWaveform(makeWaveform(QStringLiteral("bad"), {1, 2, 3}, interval));
        // Only the first bad waveform is named.
        g.addWaveform(makeWaveform(QStringLiteral("worse"), {1, 2, 3}, message.isEmpty() ? 1.0 : -1.0));
        g.displayGraph();
        QCOMPARE(QStringLiteral("page %1, %2 series: %3").arg(g.m_stackedWidget->currentIndex()).arg(g.m_series.size())
                     .arg(g.m_errorLabel->text()),
                 message.isEmpty() ? "page 0, 3 series: " : "page 1, 0 series: " + message);
    }

    void fitsEachWaveformIntoTenDivisions()
    {
        VornGraph g;
        g.addWaveform(sine());
        g.addWaveform(makeWaveform(QStringLiteral("offset"), {3.12, 3.9, 3.7}));
        g.displayGraph();
        // -1 .. 1: 0.5 per division around 0; 3.12 .. 3.9: 0.1 per division around 3.5.
        QCOMPARE(QList<double>({g.m_divisionSizes[0], g.m_divisionSizes[1]}), QList<double>({0.5, 0.1}));
        QCOMPARE(QStringList({span(g.m_yAxes[0]), span(g.m_yAxes[1])}),
                 QStringList({"-2.5..2.5, grid from 0 by 0.5", "3..4, grid from 3.5 by 0.1"}));
    }

    // Only meaningful where a context can be made: the tst_vorngraph_opengl run under Xvfb
    // insists on one.
    void asksForOpenGLWhereSwitchedOnAndAvailable_data()
    {
        QTest::addColumn<bool>("switchedOn");
        QTest::newRow("on") << true;
        QTest::newRow("off") << false;
    }
    void asksForOpenGLWhereSwitchedOnAndAvailable()
    {
        QFETCH(bool, switchedOn);
        // The offscreen platform makes contexts where DISPLAY is set, but its OpenGL widgets crash.
        QOpenGLContext probe;
        const bool available = QGuiApplication::platformName() != QLatin1String("offscreen") && probe.create();
        if (qEnvironmentVariableIsSet("VORN_EXPECT_OPENGL"))
            QVERIFY(available);
        m_graph = std::make_unique<VornGraph>();
        m_graph->setUseOpenGL(switchedOn);
        m_graph->addWaveform(sine());
        m_graph->addWaveform(sine());
        m_graph->displayGraph();
        m_graph->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_graph.get()));
        QString asked;
        for (QLineSeries *series : qAsConst(m_graph->m_series))
            asked += series->useOpenGL() ? QLatin1Char('y') : QLatin1Char('n');
        QCOMPARE(asked, QString(switchedOn && available ? "yy" : "nn"));
        // The traces stay the graph's own: the chart's OpenGL widget never shows over them.
        const auto widgets = m_graph->m_chartView->findChildren<QWidget *>();
        QCOMPARE(std::count_if(widgets.begin(), widgets.end(),
                               [](QWidget *w) { return w->inherits("QOpenGLWidget") && w->isVisible(); }),
                 0);
    }

    void laysOutSquareDivisionsAndLabels_data()
    {
        QTest::addColumn<QSizeF>("plot");
        QTest::addColumn<QString>("layout"); // time labels: span, angle, count
        QTest::addColumn<QStringList>("someLabels");
        // 0 .. 0.999 s centred on -offset = 0.5 s after snapping to 50 ms per division.
        QTest::newRow("1000x400: 25 divisions, upright labels") << QSizeF(1000, 400) << "-0.125..1.125, -90, 25"
            << QStringList{"-100 ms", "-50 ms", "0 s", "500 ms", "1.1 s"};
        QTest::newRow("1000x500: 20 divisions, horizontal labels") << QSizeF(1000, 500) << "0..1, 0, 21"
            << QStringList{"0 s", "50 ms", "950 ms", "1 s"};
    }
    void laysOutSquareDivisionsAndLabels()
    {
        QFETCH(QSizeF, plot);
        QFETCH(QString, layout);
        QFETCH(QStringList, someLabels);
        VornGraph *g = shownGraph({sine()}, plot);
        QVERIFY(g);
        QCOMPARE(QList<double>({g->m_divisionPixels, g->m_timePerDivision}), QList<double>({plot.height() / 10, 0.05}));
        QCOMPARE(::span(g->m_axisX), layout.section(',', 0, 0) + ", grid from 0.5 by 0.05");
        const QStringList time = g->m_axisXLabels->categoriesLabels();
        QCOMPARE(QStringLiteral("%1..%2, %3, %4").arg(g->m_axisXLabels->min()).arg(g->m_axisXLabels->max())
                     .arg(g->m_axisXLabels->labelsAngle()).arg(time.size()), layout);
        for (const QString &label : someLabels)
            QVERIFY2(time.contains(label), qPrintable(time.join(QLatin1Char('|'))));
        const QStringList value = g->m_axisYLabels->categoriesLabels();
        QCOMPARE(QStringList({QString::number(value.size()), value.first(), value.value(5), value.last()}),
                 QStringList({"11", "-2.5 V", "0 V", "2.5 V"}));

        // After a zoom the label item draws what the label axes hold, where the traces put those values.
        g->m_timePerDivision = 0.02;
        g->updateXAxis(0.02);
        for (const auto &[orientation, axis] : {std::pair(Qt::Horizontal, g->m_axisXLabels), std::pair(Qt::Vertical, g->m_axisYLabels)}) {
            QStringList held, drawn;
            for (const QString &label : axis->categoriesLabels()) {
                if (axis->endValue(label) >= axis->min() && axis->endValue(label) <= axis->max())
                    held << label;
            }
            for (const AxisLabelItem::Placed &placed : g->m_axisLabels->placedLabels(orientation)) {
                drawn << placed.text;
                const double value = axis->endValue(placed.text);
                const QPointF at = g->m_chart->mapToPosition(orientation == Qt::Horizontal ? QPointF(value, 0.0) : QPointF(0.0, value),
                                                             g->m_series[0]);
                QVERIFY2(std::abs((orientation == Qt::Horizontal ? at.x() : at.y()) - placed.at) < 0.5, qPrintable(placed.text));
            }
            QVERIFY(held.size() > 5);
            QCOMPARE(drawn, held);
        }
    }

    void drawsAnyWaveformAnywhere()
    {
        std::vector<double> many;
        while (many.size() < 20000)
            many.push_back(double(many.size() % 7));
        VornGraph *g = shownGraph({makeWaveform(QStringLiteral("empty"), {}), sine(),
                                   makeWaveform(QStringLiteral("flat"), {3.0, 3.0, 3.0}),
                                   makeWaveform(QStringLiteral("zero"), {0.0, 0.0}),
                                   makeWaveform(QStringLiteral("long"), many, 5e-5)});
        QVERIFY(g);
        QCOMPARE(QList<double>({g->m_globalXMin, g->m_globalXMax}), QList<double>({0.0, 0.99995}));
        QList<int> drawn;
        for (QLineSeries *series : qAsConst(g->m_series))
            drawn << series->count();
        QCOMPARE(drawn, QList<int>({0, 1000, 3, 2, VornGraph::MAX_DISPLAY_POINTS}));
        // A flat trace sits in the middle of a division that can be stepped.
        QVERIFY(g->m_divisionSizes[2] > 0.0 && g->m_yAxes[3]->max() > g->m_yAxes[3]->min());
        QCOMPARE((g->m_yAxes[2]->min() + g->m_yAxes[2]->max()) / 2, 3.0);
        // Scrolled far past the data: only the first and last sample remain.
        g->m_timeOffset = -100.0;
        g->updateXAxis(g->m_timePerDivision);
        QCOMPARE(g->m_series[1]->points(), QList<QPointF>({{0.0, 0.0}, {0.999, -std::sin(2 * M_PI / 1000.0)}}));

        // A picosecond per division a million seconds from zero: the doubles there are coarser
        // than the grid, and Qt's tick loop would never end.
        const QStringList before = g->m_axisXLabels->categoriesLabels();
        g->m_timeOffset = -1e6;
        g->m_timePerDivision = 1e-12;
        g->updateXAxis(1e-12);
        QTest::qWait(50);
        QCOMPARE(g->m_axisX->tickInterval(), 0.05);
        QCOMPARE(g->m_axisXLabels->categoriesLabels(), before);

        g = shownGraph({makeWaveform(QStringLiteral("one"), {2.0}, 1e-3, 5.0)});
        QVERIFY(g && g->m_axisX->min() < 5.0 && g->m_axisX->max() > 5.0 && g->m_series[0]->count() == 1);
        QVERIFY(g->m_axisXLabels->categoriesLabels().contains(QStringLiteral("5 s")));
    }

    void divisionControlsMoveOneStep_data()
    {
        QTest::addColumn<int>("waveform"); // -1: the time base
        QTest::addColumn<double>("typed");
        QTest::addColumn<double>("accepted");
        QTest::addColumn<double>("again"); // the same typed a second time, one step from the first
        // The sine stands at 0.5 V and 50 ms a division.
        QTest::newRow("far up is one step") << 0 << 7.0 << 1.0 << 2.0;
        QTest::newRow("a little down is one step") << 0 << 0.3 << 0.2 << 0.5;
        QTest::newRow("time: far up") << -1 << 3.0 << 0.1 << 0.2;
        QTest::newRow("time: far down") << -1 << 1e-12 << 0.02 << 0.01;
    }
    void divisionControlsMoveOneStep()
    {
        QFETCH(int, waveform);
        QFETCH(double, typed);
        QFETCH(double, accepted);
        QFETCH(double, again);
        VornGraph *g = shownGraph({sine()});
        QVERIFY(g);
        const bool time = waveform < 0;
        auto *box = time ? g->m_timeDivisionSpinBox
                         : qobject_cast<QDoubleSpinBox *>(g->m_infoTree->itemWidget(g->m_waveformItems[0]->child(0), 1));
        QVERIFY(box);
        auto *offset = static_cast<LinearSpinBox *>(time ? g->m_timeOffsetSpinBox : g->m_offsetSpinBoxes[0]);
        box->setValue(typed);
        const QList<double> set{box->value(), time ? g->m_timePerDivision : g->m_divisionSizes[0],
                                (time ? g->m_axisX : g->m_yAxes[0])->tickInterval(), offset->step()};
        box->setValue(typed);
        QCOMPARE(set + QList<double>{box->value()}, QList<double>({accepted, accepted, accepted, accepted, again}));
    }

    void offsetsMoveTheView()
    {
        VornGraph *g = shownGraph({sine()});
        QVERIFY(g);
        QCOMPARE(g->m_timeOffsetSpinBox->value(), -0.5);
        g->m_timeOffsetSpinBox->setValue(-0.7);
        QCOMPARE(span(g->m_axisX).section(',', 1), " grid from 0.7 by 0.05");
        QCOMPARE((g->m_axisX->min() + g->m_axisX->max()) / 2, 0.7);

        static_cast<LinearSpinBox *>(g->m_offsetSpinBoxes[0])->stepBy(1);
        QCOMPARE(QStringLiteral("%1 from %2, %3").arg(g->m_offsets[0]).arg(g->m_yAxes[0]->min())
                     .arg(g->m_axisYLabels->categoriesLabels().first()), "0.5 from -3, -3 V");
    }

    // A zero line for each shown waveform whose range holds 0, on that waveform's axis and in its
    // colour at a quarter opacity, as waveforms are hidden, shown and moved.
    void zeroLinesFollowRangesAndVisibility()
    {
        VornGraph *g = shownGraph({sine(), makeWaveform(QStringLiteral("high"), {3.12, 3.9, 3.7}), sine()});
        QVERIFY(g);
        const auto owners = [g] {
            QList<int> found;
            for (QLineSeries *line : qAsConst(g->m_zeroLines)) {
                const QList<QAbstractAxis *> axes = line->attachedAxes();
                const int i = axes.size() == 2 ? g->m_yAxes.indexOf(axes.last()) : -1;
                QColor expected = g->getWaveformColor(i);
                expected.setAlpha(64);
                const bool drawn = g->m_chart->series().contains(line) && axes.first() == g->m_axisX
                    && line->pen().color() == expected && line->points().size() == 2 && line->points().first().y() == 0.0;
                found << (drawn ? i : -1);
            }
            return found;
        };
        QCOMPARE(owners(), QList<int>({0, 2}));
        g->setWaveformVisible(0, false);
        QCOMPARE(owners(), QList<int>({2}));
        g->m_offsetSpinBoxes[1]->setValue(0.0);
        QCOMPARE(owners(), QList<int>({1, 2}));
        g->setWaveformVisible(0, true);
        QCOMPARE(owners(), QList<int>({0, 1, 2}));
        g->setWaveformVisible(2, false);
        QCOMPARE(owners(), QList<int>({0, 1}));
    }

    void boxStepsThroughOneTwoFive()
    {
        ScaledSpinBox box(QStringLiteral("V"));
        box.setValue(1.0);
        box.stepBy(3);
        QCOMPARE(box.value(), 10.0);
        box.setValue(0.002);
        box.stepBy(-2);
        QCOMPARE(box.value(), 0.0005);
    }

    // A live host's new acquisition: the view, scales, cursors and envelope stay, the series stay
    // the same objects, and the check and the drawn points follow the new samples.
    void replacedSamplesKeepTheViewAndAreChecked_data()
    {
        QTest::addColumn<double>("amplitude");
        QTest::addColumn<int>("samples");
        QTest::addColumn<bool>("passes");
        QTest::newRow("same length, inside") << 0.9 << 1000 << true;
        QTest::newRow("same length, above") << 1.3 << 1000 << false;
        QTest::newRow("longer, inside") << 0.9 << 30000 << true;
        QTest::newRow("shorter leaves envelope uncovered") << 0.9 << 500 << false;
    }
    void replacedSamplesKeepTheViewAndAreChecked()
    {
        QFETCH(double, amplitude);
        QFETCH(int, samples);
        QFETCH(bool, passes);
        VornGraph *g = shownGraph({sine(), makeWaveform(QStringLiteral("other"), {0, 1, 0})});
        QVERIFY(g);
        EnvelopeData band{makeWaveform("sine [upper]", {1.2, 1.2}, 0.999), makeWaveform("sine [lower]", {-1.2, -1.2}, 0.999), {}};
        g->setEnvelope(0, band);
        g->zoomTime(2, 0.3);
        g->setCursorTimes(0.1, 0.2);
        const QList<QLineSeries *> series = g->m_series;
        const QList<double> view = {g->timePerDivision(), g->timeOffset(), g->divisionSize(0), g->cursorTime(1)};
        std::vector<double> v(static_cast<size_t>(samples));
        const double interval = 1.0 / std::max(samples, 1000);
        for (size_t i = 0; i < v.size(); ++i)
            v[i] = amplitude * std::sin(2 * M_PI * double(i) / double(samples));
        QVERIFY(!g->replaceWaveformSamples(0, makeWaveform(QStringLiteral("renamed"), v, interval)));
        QVERIFY(g->replaceWaveformSamples(0, makeWaveform(QStringLiteral("sine"), v, interval)));
        QCOMPARE(g->envelopeCheckResult(0).passed(), passes);
        QCOMPARE(g->m_series, series);
        QCOMPARE(QList<double>({g->timePerDivision(), g->timeOffset(), g->divisionSize(0), g->cursorTime(1)}), view);
        QVERIFY(g->hasEnvelope(0));
        double top = -2.0, visibleTop = -2.0;
        for (const QPointF &p : g->m_series[0]->points())
            top = std::max(top, p.y());
        for (size_t i = 0; i < v.size(); ++i) {
            if (i * interval >= g->m_axisX->min() && i * interval <= g->m_axisX->max())
                visibleTop = std::max(visibleTop, v[i]);
        }
        QVERIFY2(top >= visibleTop && top <= amplitude, qPrintable(QString::number(top)));
    }

    // An opaque trace is filled, a translucent one stroked: both must cover the same pixels, the
    // lone pixel a flat stretch leaves in each column and the clipped plot edges included.
    void opaqueTraceCoversWhatItsPenStrokes_data()
    {
        QTest::addColumn<QVector<double>>("samples");
        std::mt19937 random(5);
        std::normal_distribution<double> noise;
        QVector<double> noisy(20000), flat(5000, 0.25), steps(30), gap(3000), spiky(4000);
        for (double &v : noisy)
            v = noise(random);
        for (int i = 0; i < steps.size(); ++i)
            steps[i] = i % 3 ? -1.0 : 1.0 + 0.1 * i;
        for (int i = 0; i < gap.size(); ++i)
            gap[i] = i > 1000 && i < 1400 ? NAN : std::sin(i / 300.0);
        for (int i = 0; i < spiky.size(); ++i)
            spiky[i] = i % 997 == 0 ? 40.0 : 0.01 * noise(random);
        QTest::newRow("noise") << noisy;
        QTest::newRow("flat") << flat;
        QTest::newRow("steps wider than a column") << steps;
        QTest::newRow("gap") << gap;
        QTest::newRow("spikes") << spiky;
    }
    void opaqueTraceCoversWhatItsPenStrokes()
    {
        QFETCH(QVector<double>, samples);
        VornGraph *g = shownGraph({makeWaveform(QStringLiteral("w"), std::vector<double>(samples.begin(), samples.end()))},
                                  QSizeF(1000.5, 400.5));
        QVERIFY(g);
        // Half the time span outside the plot on the left, cut by the clip.
        g->zoomTime(-1, g->m_axisX->min());
        QLineSeries *series = g->m_series.first();
        const auto covered = [&](int alpha) {
            QColor colour(200, 40, 120, alpha);
            series->setColor(colour);
            series->setVisible(true);
            const QImage drawn = g->m_chartView->grab().toImage();
            series->setVisible(false);
            const QImage bare = g->m_chartView->grab().toImage();
            QVector<QPoint> pixels;
            for (int y = 0; y < drawn.height(); ++y)
                for (int x = 0; x < drawn.width(); ++x)
                    if (drawn.pixel(x, y) != bare.pixel(x, y))
                        pixels.append({x, y});
            return pixels;
        };
        const QVector<QPoint> filled = covered(255), stroked = covered(254);
        QVERIFY(!stroked.isEmpty());
        QCOMPARE(filled, stroked);
    }

    // Grid lines filled as rectangles are the pixels the pen strokes, also where a position sits
    // a rounding error below a pixel's edge and becomes the edge on the device.
    void gridLinesFillWhatTheirPenStrokes()
    {
        std::mt19937 random(9);
        std::uniform_real_distribution<double> at(2.0, 98.0);
        // Just below 64, which the device offset of 8 rounds up to 72.
        const double edge = std::nextafter(64.0, 0.0);
        QVector<QLineF> lines{{edge, 3.5, edge, 90.25}, {4.0, edge, 96.0, edge}};
        for (int k = 0; k < 40; ++k) {
            const double across = k % 4 ? at(random) : std::floor(at(random)) - 1e-13, from = at(random), to = at(random);
            lines.append(k % 2 ? QLineF(across, from, across, to) : QLineF(from, across, to, across));
        }
        for (const QPen &pen : {QPen(QColor(200, 40, 120), 0), QPen(QColor(200, 40, 120, 90), 1)}) {
            QImage filled(120, 120, QImage::Format_ARGB32_Premultiplied), stroked = filled;
            for (QImage *image : {&filled, &stroked}) {
                image->fill(Qt::white);
                QPainter painter(image);
                painter.translate(8, 8);
                if (image == &filled) {
                    AxisLabelItem::drawGridLines(&painter, lines, pen);
                } else {
                    painter.setPen(pen);
                    painter.drawLines(lines);
                }
            }
            QVERIFY(filled == stroked);
        }
    }

private:
    VornGraph *shownGraph(const QVector<WaveformData> &waveforms, QSizeF plotSize = QSizeF(1000, 400))
    {
        m_graph = std::make_unique<VornGraph>();
        VornGraph *g = m_graph.get();
        g->resize(int(plotSize.width()) + 500, int(plotSize.height()) + 200);
        g->m_chart->setPlotArea(QRectF(QPointF(60, 20), plotSize));
        for (const WaveformData &w : waveforms)
            g->addWaveform(w);
        g->displayGraph();
        g->show();
        // The layout retries itself until the plot area has its final size.
        if (!QTest::qWaitForWindowExposed(g)
            || !QTest::qWaitFor([&] { return g->m_divisionPixels > 0 && g->m_chart->plotArea().size() == plotSize; }))
            return nullptr;
        g->updateSquareDivisions();
        return g;
    }

    std::unique_ptr<VornGraph> m_graph;
};

QTEST_MAIN(TstVornGraph)
#include "tst_vorngraph.moc"
