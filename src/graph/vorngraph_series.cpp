#include "vorngraph.h"

#include "chartbatch.h"
#include "interactivechartview.h"
#include "minmaxpyramid.h"
#include "traceitem.h"

#include <QChart>
#include <QGuiApplication>
#include <QLineSeries>
#include <QOpenGLContext>
#include <QPen>
#include <QThreadPool>
#include <QValueAxis>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>

namespace {

// Below this many visible samples in all, one thread reduces every waveform sooner than two do.
constexpr double SHARED_REDUCTION_SAMPLES = 4e6;

// Runs work(0) ... work(count - 1), each once, on the calling thread and on one pool thread, both
// taking the next index as they finish one. The caller never waits for the pool thread to start:
// what that has not taken yet, the caller does itself, so a busy machine costs nothing extra.
void runOnTwoThreads(int count, const std::function<void(int)> &work)
{
    struct Shared
    {
        std::atomic<int> next{0};
        int count = 0;
        std::function<void(int)> work;
        std::mutex mutex;
        std::condition_variable allDone;
        int done = 0;
    };
    auto shared = std::make_shared<Shared>();
    shared->count = count;
    shared->work = work;
    const auto takeTurns = [](Shared &s) {
        int finished = 0;
        for (int i = s.next.fetch_add(1); i < s.count; i = s.next.fetch_add(1)) {
            s.work(i);
            ++finished;
        }
        if (finished > 0) {
            const std::lock_guard<std::mutex> lock(s.mutex);
            s.done += finished;
            s.allDone.notify_all();
        }
    };
    // The pool thread holds the shared state, so it may start after this returns and find nothing.
    QThreadPool::globalInstance()->start([shared, takeTurns] { takeTurns(*shared); });
    takeTurns(*shared);
    std::unique_lock<std::mutex> lock(shared->mutex);
    shared->allDone.wait(lock, [&] { return shared->done == count; });
}

SampleTimeBase timeBaseOf(const WaveformData &w)
{
    return SampleTimeBase{w.sampleInterval, w.startTime};
}

} // namespace

// The series joins the chart with all the others in attachWaveformSeries: one at a time, each
// would cost as much as all before it.
void VornGraph::createSeriesForWaveform(const WaveformData &w)
{
    createWaveformSeries();
    QValueAxis *axisY = createWaveformAxis();

    const SampleSummary summary = summaryOf(w);
    const bool finite = summary.finiteMin <= summary.finiteMax;
    const double min = finite ? summary.finiteMin : 0.0, max = finite ? summary.finiteMax : 0.0;
    double size = calculateDivisionSizeY(min, max);
    double offset = -(max + min) * 0.5;
    if (size > 0.0) {
        offset = std::round(offset / size) * size;
    } else {
        // A flat trace has no extent to fit: centre it and give it a division it can be seen in.
        const double level = std::fabs(offset);
        size = level > 0.0 ? Scale125::nextUp(level / Y_DIVISIONS) : 1.0;
    }
    m_divisionSizes.append(size);
    m_offsets.append(offset);

    applyDivisionGrid(axisY, -offset, size * Y_DIVISIONS * 0.5, size);
}

QLineSeries *VornGraph::createWaveformSeries()
{
    // The chart owns the series once attachWaveformSeries has added it.
    auto *series = new QLineSeries(this);
    if (m_useOpenGL)
        series->setUseOpenGL(openGLAvailable());
    series->setColor(getWaveformColor(m_series.size()));
    QPen pen = series->pen();
    pen.setWidthF(1.0);
    pen.setCosmetic(true);
    series->setPen(pen);
    series->setOpacity(0.0);
    connect(series, &QAbstractSeries::visibleChanged, this, [this] { m_traces->update(); });
    m_series.append(series);
    m_waveformVisible.append(true);
    return series;
}

void VornGraph::attachWaveformSeries()
{
    addSeriesTogether(m_chart, QList<QAbstractSeries *>(m_series.begin(), m_series.end()));
    for (int i = 0; i < m_series.size() && i < m_yAxes.size(); ++i) {
        QLineSeries *series = m_series[i];
        // m_traces draws the points; the chart would stroke an outline of the whole path on every
        // replacement and paint it again. It still maps values through the series' axes.
        QObject::disconnect(series, &QXYSeries::pointsReplaced, nullptr, nullptr);
        series->attachAxis(m_axisX);
        series->attachAxis(m_yAxes[i]);
    }
    // The chart's OpenGL widget appears with the first series that asks for it.
    if (!m_series.isEmpty() && m_series.first()->useOpenGL())
        hideChartOpenGLWidget();
    if (!m_layoutPassFilter)
        m_layoutPassFilter = wrapLayoutPasses(m_chart, [this] { holdPointsForLayout(); }, [this] { returnPointsAfterLayout(); });
}

// A layout pass that moves the plot area makes the chart's items stroke every point of every
// waveform, which the graph reduces anew for the new area anyway: the waveform series hold
// nothing during a pass, and get their points back where the plot area stayed.
void VornGraph::holdPointsForLayout()
{
    m_heldPlotArea = m_chart->plotArea();
    m_heldPoints.resize(m_series.size());
    for (int i = 0; i < m_series.size(); ++i) {
        m_heldPoints[i] = m_series[i]->points();
        if (!m_heldPoints[i].isEmpty())
            m_series[i]->replace(QList<QPointF>());
    }
}

void VornGraph::returnPointsAfterLayout()
{
    const auto laidOut = m_laidOut;
    if (m_chart->plotArea() != m_heldPlotArea)
        updateSquareDivisions();
    // Where no new layout refilled them (the same one, or a plot area too small to draw in yet),
    // the series get back what they held: they never stay empty for a pass they sat out.
    if (m_laidOut == laidOut) {
        for (int i = 0; i < m_series.size() && i < m_heldPoints.size(); ++i) {
            if (m_series[i]->count() == 0 && !m_heldPoints[i].isEmpty())
                m_series[i]->replace(m_heldPoints[i]);
        }
    }
    m_heldPoints.clear();
}

// A series forced to OpenGL crashes where no context can be made, so it asks only where one can.
// The offscreen platform makes contexts through GLX whenever DISPLAY is set, yet the chart's
// OpenGL widget crashes there all the same: tests and screenshots never ask. One probe per graph:
// a context takes milliseconds to make, which thousands of waveforms would pay each.
bool VornGraph::openGLAvailable()
{
    if (m_openGLProbe < 0) {
        QOpenGLContext context;
        m_openGLProbe = QGuiApplication::platformName() != QLatin1String("offscreen") && context.create() ? 1 : 0;
    }
    return m_openGLProbe == 1;
}

// m_traces draws every trace in the scene, under the envelopes, marks and the editor's handles;
// the chart's OpenGL widget would paint the series once more over all of them.
void VornGraph::hideChartOpenGLWidget()
{
    const QList<QWidget *> children = m_chartView->viewport()->findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
    for (QWidget *child : children) {
        if (child->inherits("QOpenGLWidget"))
            child->hide();
    }
}

void VornGraph::updateTraces()
{
    QVector<TraceItem::Trace> traces;
    for (int i = 0; i < m_series.size() && i < m_yAxes.size(); ++i)
        traces.append(TraceItem::Trace{m_series[i], m_axisX, m_yAxes[i]});
    m_traces->setTraces(traces);
    QVector<TraceItem::Envelope> envelopes;
    for (int i = 0; i < m_envelopeUpperSeries.size() && i < m_yAxes.size(); ++i) {
        const QList<QLineSeries *> &upper = m_envelopeUpperSeries.at(i);
        for (int k = 0; k < upper.size(); ++k)
            envelopes.append({upper.at(k), m_envelopeLowerSeries.at(i).value(k), m_envelopeAreaSeries.at(i).value(k),
                              m_axisX, m_yAxes.at(i)});
    }
    m_traces->setEnvelopes(envelopes);
    m_traces->setPlotArea(m_chart->plotArea());
}

QValueAxis *VornGraph::createWaveformAxis()
{
    auto *axis = new QValueAxis;
    axis->setTickCount(9);
    // Only the first waveform draws the horizontal grid.
    axis->setGridLineVisible(m_yAxes.isEmpty());
    axis->setLineVisible(false);
    axis->setLabelsVisible(false);
    // Hidden labels are formatted and measured all the same; without a conversion they are empty.
    axis->setLabelFormat(QStringLiteral("-"));
    // An axis that draws nothing still costs a label layout on every view change, unless hidden.
    // The first one is added shown, so that it takes the theme's grid pen, then hidden: our
    // label item draws its grid.
    axis->setVisible(m_yAxes.isEmpty());
    addHiddenAxis(m_chart, axis, Qt::AlignLeft);
    axis->setVisible(false);
    m_yAxes.append(axis);
    return axis;
}

void VornGraph::calculateGlobalXRange()
{
    m_globalXMin = std::numeric_limits<double>::max();
    m_globalXMax = -std::numeric_limits<double>::max();
    for (const WaveformData &w : qAsConst(m_waveforms)) {
        // A waveform without samples has no last sample to end the range.
        if (w.samples->empty())
            continue;
        m_globalXMin = std::min(m_globalXMin, w.startTime);
        m_globalXMax = std::max(m_globalXMax, timeBaseOf(w).timeOf(w.samples->size() - 1));
    }
}

VornGraph::VisibleRange VornGraph::calculateVisibleIndices(const WaveformData &w, double xMin, double xMax)
{
    return ::calculateVisibleIndices(w.samples->size(), timeBaseOf(w), xMin, xMax);
}

QVector<QPointF> VornGraph::downsampleVisibleRange(const WaveformData &w, std::uint64_t startIndex,
                                                   std::uint64_t endIndex, int maxPoints)
{
    return ::downsampleVisibleRange(*w.samples, timeBaseOf(w), startIndex, endIndex, maxPoints, pyramidFor(w));
}

void VornGraph::buildPyramids()
{
    m_pyramids.resize(static_cast<size_t>(m_waveforms.size()));
    for (qsizetype i = 0; i < m_waveforms.size(); ++i) {
        const std::vector<double> &samples = *m_waveforms.at(i).samples;
        std::shared_ptr<const MinMaxPyramid> &pyramid = m_pyramids[static_cast<size_t>(i)];
        // Short waveforms are scanned faster than a pyramid is built.
        if (samples.size() <= static_cast<size_t>(4 * MAX_DISPLAY_POINTS))
            pyramid.reset();
        else if (!pyramid || pyramid->sampleCount() != samples.size())
            // A step asks once per waveform; a helper thread per ask would wait for the other
            // core, which the display server needs at that moment.
            pyramid = std::make_shared<const MinMaxPyramid>(samples, false);
    }
}

SampleSummary VornGraph::summaryOf(const WaveformData &w) const
{
    const MinMaxPyramid *pyramid = pyramidFor(w);
    return pyramid && pyramid->sampleCount() == w.samples->size() ? pyramid->summary() : SampleSummary::of(w.samples->data(), 0, w.samples->size());
}

const MinMaxPyramid *VornGraph::pyramidFor(const WaveformData &w) const
{
    // Asked once per waveform on every view change: the index follows from the address.
    const std::less<const WaveformData *> before;
    const WaveformData *first = m_waveforms.constData();
    if (m_waveforms.isEmpty() || before(&w, first) || !before(&w, first + m_waveforms.size()))
        return nullptr;
    const auto i = static_cast<size_t>(&w - first);
    return i < m_pyramids.size() ? m_pyramids[i].get() : nullptr;
}

QVector<double> VornGraph::calculateTimeValues(const WaveformData &w) const
{
    const SampleTimeBase time = timeBaseOf(w);
    const std::uint64_t count = w.samples->size();
    QVector<double> times;
    times.reserve(static_cast<qsizetype>(count));
    for (std::uint64_t i = 0; i < count; ++i)
        times.append(time.timeOf(i));
    return times;
}

void VornGraph::updateSeriesForViewport()
{
    if (!m_axisX || m_series.isEmpty() || m_waveforms.isEmpty())
        return;
    const double xMin = m_axisX->min();
    const double xMax = m_axisX->max();
    const int count = int(std::min(m_waveforms.size(), m_series.size()));
    QVector<QList<QPointF>> points(count);
    double visibleSamples = 0.0;
    for (int i = 0; i < count; ++i) {
        const VisibleRange range = calculateVisibleIndices(m_waveforms.at(i), xMin, xMax);
        visibleSamples += range.empty ? 0.0 : double(range.endIndex - range.startIndex + 1);
    }
    // Each waveform's reduction reads only its own samples and index.
    const auto reduce = [&](int i) { points[i] = viewportPoints(m_waveforms.at(i), xMin, xMax); };
    if (count > 1 && visibleSamples >= SHARED_REDUCTION_SAMPLES) {
        runOnTwoThreads(count, reduce);
    } else {
        for (int i = 0; i < count; ++i)
            reduce(i);
    }
    for (int i = 0; i < count; ++i)
        m_series[i]->replace(points[i]);
    restoreEnvelopePoints();
    updateEnvelopeSeriesForViewport();
    updateBackgroundForViewport();
    m_traces->update();
}

QList<QPointF> VornGraph::viewportPoints(const WaveformData &w, double xMin, double xMax)
{
    const std::vector<double> &samples = *w.samples;
    const VisibleRange range = calculateVisibleIndices(w, xMin, xMax);
    if (!range.empty)
        return downsampleVisibleRange(w, range.startIndex, range.endIndex, MAX_DISPLAY_POINTS);
    if (samples.empty())
        return {};
    // Off-screen: a line from the first to the last sample keeps the series' extent and draws
    // nothing inside the plot.
    const SampleTimeBase time = timeBaseOf(w);
    return {QPointF(time.start, samples.front()), QPointF(time.timeOf(samples.size() - 1), samples.back())};
}
