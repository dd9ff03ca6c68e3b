#include "vorngraph.h"

#include "envelopeeditorcontroller.h"

#include "chartbatch.h"

#include "envelopeeditoroverlay.h"
#include "interactivechartview.h"
#include "traceitem.h"
#include "axislabelitem.h"
#include "bandlabelitem.h"
#include "waveformitemdelegate.h"

#include <QChart>
#include <QGraphicsItemGroup>
#include <QGraphicsTextItem>
#include <QHBoxLayout>
#include <QLabel>
#include <QLegend>
#include <QLineSeries>
#include <QPainter>
#include <QSplitter>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QValueAxis>

const int VornGraph::Y_DIVISIONS = 10;
const int VornGraph::MAX_DISPLAY_POINTS = 5000;
const double VornGraph::MIN_HORIZONTAL_LABEL_PIXEL = 50.0;

namespace {

const QColor WAVEFORM_PALETTE[16] = {
    {255, 224, 0},   {0, 255, 255},  {255, 0, 255}, {0, 255, 0},   {255, 64, 64},  {64, 128, 255},
    {255, 128, 0},   {192, 192, 192}, {192, 160, 0}, {0, 192, 192}, {192, 0, 192},  {0, 192, 0},
    {192, 64, 64},   {64, 96, 192},  {192, 96, 0},  {255, 255, 255},
};

constexpr double MIN_SAMPLE_INTERVAL = 1e-12;
constexpr double GRID_Z = 2.0; // Qt Charts' own grid level
// Above the grid and the axes, below every series of the chart.
constexpr double TRACE_Z = 3.5;
const QColor CHART_BACKGROUND(32, 33, 42); // the dark theme's gradient, in one colour
// Above every series, below the cursors and the editor's items.
constexpr double BAND_LABEL_Z = 6.0;

} // namespace

VornGraph::VornGraph(QWidget *parent)
    : QWidget(parent)
{
    createChart();
}

VornGraph::~VornGraph()
{
    // The markers are not QObjects: they must leave the scene while the scene still exists.
    if (m_envelopeEditor)
        m_envelopeEditor->removePointMarkers();
    releaseLegendItems();
    releaseForClosing();
}

// The chart takes its legend markers out of their group one series at a time, measuring all the
// rest of the group each time: with thousands of waveforms closing took longer than opening.
// Taken out beforehand, last first, nothing is left to measure.
void VornGraph::releaseLegendItems()
{
    if (!m_chart)
        return;
    for (QGraphicsItem *child : m_chart->legend()->childItems()) {
        if (auto *group = dynamic_cast<QGraphicsItemGroup *>(child)) {
            const QList<QGraphicsItem *> items = group->childItems();
            for (auto item = items.rbegin(); item != items.rend(); ++item)
                (*item)->setParentItem(group->parentItem());
        }
    }
}

void VornGraph::createChart()
{
    m_splitter = new QSplitter(Qt::Horizontal, this);
    createInfoTree();
    m_splitter->addWidget(m_infoTree);

    createFrameWidgets();
    m_splitter->addWidget(m_stackedWidget);
    m_splitter->setSizes({250, 600});
    m_splitter->setStretchFactor(0, 0);
    m_splitter->setStretchFactor(1, 1);

    createEnvelopeEditor();

    auto *layout = new QHBoxLayout(this);
    layout->addWidget(m_splitter);
}

void VornGraph::createInfoTree()
{
    m_infoTree = new QTreeWidget;
    m_infoTree->setColumnCount(2);
    m_infoTree->setHeaderLabels({tr("Name"), tr("Value")});
    m_infoTree->setItemDelegateForColumn(0, new WaveformItemDelegate(m_infoTree));
    m_infoTree->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_infoTree, &QTreeWidget::itemChanged, this, &VornGraph::onWaveformVisibilityChanged);
    connect(m_infoTree, &QWidget::customContextMenuRequested, this, &VornGraph::onTreeContextMenu);
    connect(m_infoTree, &QTreeWidget::itemSelectionChanged, this, &VornGraph::onTreeSelectionChanged);
}

void VornGraph::createEnvelopeEditor()
{
    using Controller = EnvelopeEditorController;
    m_envelopeEditor = new Controller(this);
    m_envelopeEditor->setChartView(m_chartView);
    connect(m_envelopeEditor, &Controller::editingFinished, this, &VornGraph::onEnvelopeEditingFinished);
    connect(m_envelopeEditor, &Controller::editingCancelled, this, &VornGraph::onEnvelopeEditingCancelled);
    // The host hears of a new state before the panel and the tree show it.
    connect(m_envelopeEditor, &Controller::stateChanged, this, &VornGraph::envelopeEditorStateChanged);
    connect(m_envelopeEditor, &Controller::stateChanged, this, &VornGraph::onEditorStateChanged);
}

void VornGraph::createFrameWidgets()
{
    m_chart = new QChart;
    m_chart->setTheme(QChart::ChartThemeDark);
    // The chart has no title, yet every layout pass, one a step, sets its empty text item's
    // contents as HTML and repaints it; hidden, the layout leaves it out.
    for (QGraphicsItem *child : m_chart->childItems()) {
        if (auto *title = qgraphicsitem_cast<QGraphicsTextItem *>(child); title && m_chart->title().isEmpty())
            title->hide();
    }
    // Every step repaints the plot: its background is filled once, by the view in one plain colour,
    // rather than by the viewport, then again by the chart as a rounded gradient polygon.
    m_chart->setBackgroundVisible(false);
    m_chart->setAnimationOptions(QChart::NoAnimation);
    // Labels turned upright make the bottom axis taller and the plot lower, without a resize of
    // the widget: lay the divisions out again whenever the plot area moves. The plot area also
    // settles only after a resize event, and the editor's markers follow from there.
    connect(m_chart, &QChart::plotAreaChanged, this, [this](const QRectF &plot) { m_axisLabels->setPlotArea(plot); });
    connect(m_chart, &QChart::plotAreaChanged, this, &VornGraph::updateSquareDivisions);
    // The view takes the chart over and deletes it with itself.
    m_chartView = new InteractiveChartView(m_chart);
    m_chartView->setRenderHint(QPainter::Antialiasing, false);
    m_chartView->setBackgroundBrush(CHART_BACKGROUND);
    m_chartView->viewport()->setAutoFillBackground(false);
    m_chartView->viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    // The chart owns the item; it sits below the series, so reference lines and envelopes stay on top.
    m_traces = new TraceItem(m_chart);
    m_traces->setZValue(TRACE_Z);
    m_bandLabels = new BandLabelItem(m_chart);
    m_bandLabels->setZValue(BAND_LABEL_Z);
    m_axisLabels = new AxisLabelItem(m_chart);
    // With the grid, under every series; its labels lie outside the plot.
    m_axisLabels->setZValue(GRID_Z);
    m_chartMargins = m_chart->margins();

    m_errorLabel = new QLabel;
    m_errorLabel->setAlignment(Qt::AlignCenter);
    m_errorLabel->setStyleSheet(QStringLiteral("QLabel { color: red; font-size: 14px; background-color: #1e1e1e; }"));

    m_stackedWidget = new QStackedWidget;
    m_stackedWidget->addWidget(createChartPage());
    m_stackedWidget->addWidget(m_errorLabel);
}

int VornGraph::addWaveform(const WaveformData &waveform)
{
    m_waveforms.append(waveform);
    return m_waveforms.size() - 1;
}

void VornGraph::displayGraph()
{
    if (m_waveforms.isEmpty() || showErrorForInvalidInterval())
        return;
    m_stackedWidget->setCurrentIndex(0);
    clearGraph();

    buildPyramids();
    calculateGlobalXRange();
    m_timeOffset = -(m_globalXMin + m_globalXMax) / 2;
    setupAxisX();
    for (const WaveformData &w : qAsConst(m_waveforms))
        createSeriesForWaveform(w);
    attachWaveformSeries();
    m_axisLabels->setGridAxes(m_axisX, m_yAxes.value(0));
    for (int i = 0; i < m_waveforms.size(); ++i)
        createEnvelopeSeries(i);
    updateTraces();

    updateInfoTree();
    updateRangeDisplay();
    updateYAxisLabels();
    updateSquareDivisions();
}

bool VornGraph::showErrorForInvalidInterval()
{
    for (const WaveformData &w : qAsConst(m_waveforms)) {
        // Written as a negated test so that a NaN interval is refused too.
        if (!(w.sampleInterval >= MIN_SAMPLE_INTERVAL)) {
            m_errorLabel->setText(tr("Invalid sample interval in '%1': %2 s\n(minimum: 1 ps)")
                                      .arg(w.name)
                                      .arg(w.sampleInterval, 0, 'e', 2));
            m_stackedWidget->setCurrentIndex(1);
            return true;
        }
    }
    return false;
}

// A second displayGraph() starts again from an empty chart rather than stacking a second set of
// series and axes on the first.
void VornGraph::clearGraph()
{
    // A running edit holds the series that are about to go.
    if (m_envelopeEditor && m_envelopeEditor->isEditing())
        cancelEnvelopeEditing();
    m_traces->setTraces({});
    m_traces->setEnvelopes({});
    m_envelopePointsAside.clear();
    m_bands.clear();
    // Deletes the envelope series too: every one of them was added to the chart.
    removeAllTogether(m_chart);
    m_envelopeUpperSeries.clear();
    m_envelopeLowerSeries.clear();
    m_envelopeAreaSeries.clear();
    m_envelopeRuns.clear();
    m_backgroundSeries.clear();
    m_backgroundPoints.clear();
    m_series.clear();
    m_yAxes.clear();
    m_waveformVisible.clear();
    m_zeroLines.clear();
    m_zeroLineOwners.clear();
    m_divisionSizes.clear();
    m_offsets.clear();
    m_offsetSpinBoxes.clear();
    m_centerLineV = m_centerLineH = m_timeZeroLine = nullptr;
    m_axisX = nullptr;
    m_axisXLabels = m_axisYLabels = nullptr;
}

int VornGraph::waveformCount() const
{
    return m_waveforms.size();
}

QString VornGraph::waveformName(int index) const
{
    if (index < 0 || index >= m_waveforms.size())
        return QString();
    return m_waveforms[index].name;
}

void VornGraph::setUseOpenGL(bool useOpenGL)
{
    m_useOpenGL = useOpenGL;
}

bool VornGraph::useOpenGL() const
{
    return m_useOpenGL;
}

QColor VornGraph::getWaveformColor(int index) const
{
    return WAVEFORM_PALETTE[index % 16];
}

void VornGraph::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    updateSquareDivisions();
}

void VornGraph::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    updateSquareDivisions();
    followPlotChanges();
}
