#include "vorngraph.h"

#include "interactivechartview.h"
#include "navigation.h"

#include <QChart>
#include <QEnterEvent>
#include <QGraphicsLineItem>
#include <QGraphicsScene>
#include <QLabel>
#include <QLineSeries>
#include <QPen>
#include <QVBoxLayout>
#include <QValueAxis>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr int CURSOR_GRAB_PIXELS = 5;
// Below the editor's graphics, above the chart's own items.
constexpr double CURSOR_Z = 990.0;
const QColor CURSOR_COLOURS[2] = {{255, 170, 0}, {0, 200, 255}};
constexpr int MIN_DELTA_DIGITS = 4; // a difference is read to this many digits at any zoom
constexpr int VALUE_DIGITS = 3;     // a sample value keeps at least these, whatever the scale

QString formatted(double value, const QString &unit)
{
    return std::isfinite(value) ? ValueFormatter::formatWithUnit(value, unit) : QStringLiteral("—");
}

// Selectable while the pointer is over it or it holds a selection: a selectable label keeps its
// text in a document that it lays out again on every new text, which is every step of a pan.
class StatusLabel : public QLabel
{
protected:
    void enterEvent(QEnterEvent *event) override
    {
        setTextInteractionFlags(Qt::TextSelectableByMouse);
        QLabel::enterEvent(event);
    }
    void leaveEvent(QEvent *event) override
    {
        QLabel::leaveEvent(event);
        if (!hasSelectedText())
            setTextInteractionFlags(Qt::NoTextInteraction);
    }
};

QLabel *statusLabel()
{
    auto *label = new StatusLabel;
    label->setTextFormat(Qt::PlainText);
    // A new text must not resize the chart: that would cost a layout on every step.
    label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    label->setContentsMargins(6, 2, 6, 2);
    return label;
}

// The status lines under the chart, each at the height of one line, laid out here rather than by a
// layout: a label's new text asks its parent's layout for a new layout, which on every step relaid
// out the whole chart page.
class StatusLines : public QWidget
{
public:
    void addLine(QLabel *label)
    {
        label->setParent(this);
        m_lines.append(label);
        int height = 0;
        for (const QLabel *line : qAsConst(m_lines))
            height += line->sizeHint().height();
        setFixedHeight(height);
    }

protected:
    void resizeEvent(QResizeEvent *) override
    {
        int y = 0;
        for (QLabel *line : qAsConst(m_lines)) {
            const int height = line->sizeHint().height();
            line->setGeometry(0, y, width(), height);
            y += height;
        }
    }

private:
    QVector<QLabel *> m_lines;
};

} // namespace

QWidget *VornGraph::createChartPage()
{
    auto *page = new QWidget;
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_chartView, 1);
    m_hoverLabel = statusLabel();
    m_cursorLabel = statusLabel();
    // Its line is kept while hidden: C must not resize the chart, or the cursors it places at a
    // quarter and three quarters of the view would land elsewhere.
    QSizePolicy policy = m_cursorLabel->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    m_cursorLabel->setSizePolicy(policy);
    m_cursorLabel->hide();
    auto *lines = new StatusLines;
    lines->addLine(m_hoverLabel);
    lines->addLine(m_cursorLabel);
    layout->addWidget(lines);

    m_chartView->setFocusPolicy(Qt::StrongFocus);
    m_chartView->viewport()->setMouseTracking(true);
    m_chartView->viewport()->installEventFilter(this);
    m_chartView->installEventFilter(this);
    updateReadouts();
    return page;
}

double VornGraph::timeAtViewX(double viewX) const
{
    const QRectF plot = m_chart->plotArea();
    if (!m_axisX || plot.width() <= 0.0)
        return std::numeric_limits<double>::quiet_NaN();
    const double sceneX = m_chartView->mapToScene(QPoint(int(viewX), 0)).x();
    return m_axisX->min() + (sceneX - plot.left()) / plot.width() * (m_axisX->max() - m_axisX->min());
}

int VornGraph::cursorNear(int viewX) const
{
    if (!m_cursorsVisible)
        return -1;
    int nearest = -1;
    double best = CURSOR_GRAB_PIXELS + 0.5;
    for (int k = 0; k < 2; ++k) {
        if (!m_cursorLines[k] || !m_cursorLines[k]->isVisible())
            continue;
        const double distance = std::fabs(m_chartView->mapFromScene(m_cursorLines[k]->line().p1()).x() - viewX);
        if (distance < best) {
            best = distance;
            nearest = k;
        }
    }
    return nearest;
}

void VornGraph::setCursorsVisible(bool visible)
{
    if (visible == m_cursorsVisible)
        return;
    m_cursorsVisible = visible;
    if (visible && m_axisX) {
        // Cursors outside the view, or within a pixel of each other (as before they were first
        // placed), come back at a quarter and three quarters of it.
        const double min = m_axisX->min();
        const double span = m_axisX->max() - min;
        const double plotWidth = m_chart->plotArea().width();
        const double pixel = plotWidth > 0.0 ? span / plotWidth : 0.0;
        const auto inView = [&](double t) { return t >= min && t <= min + span; };
        if (!inView(m_cursorTimes[0]) || !inView(m_cursorTimes[1])
            || std::fabs(m_cursorTimes[1] - m_cursorTimes[0]) < pixel) {
            m_cursorTimes[0] = min + span * 0.25;
            m_cursorTimes[1] = min + span * 0.75;
        }
    }
    m_cursorLabel->setVisible(visible);
    updateCursorLines();
    updateReadouts();
    emit cursorsVisibleChanged(visible);
}

void VornGraph::setCursorTimes(double first, double second)
{
    m_cursorTimes[0] = first;
    m_cursorTimes[1] = second;
    updateCursorLines();
    updateReadouts();
}

void VornGraph::updateCursorLines()
{
    const QRectF plot = m_chart->plotArea();
    for (int k = 0; k < 2; ++k) {
        QGraphicsLineItem *&line = m_cursorLines[k];
        if (!m_cursorsVisible || !m_axisX || plot.isEmpty()) {
            if (line)
                line->hide();
            continue;
        }
        if (!line) {
            line = new QGraphicsLineItem;
            line->setPen(QPen(QBrush(CURSOR_COLOURS[k]), 1.0, k == 0 ? Qt::SolidLine : Qt::DashLine));
            line->setZValue(CURSOR_Z);
            // The scene owns the line from here on.
            m_chart->scene()->addItem(line);
        }
        const double span = m_axisX->max() - m_axisX->min();
        const double x = plot.left() + (m_cursorTimes[k] - m_axisX->min()) / span * plot.width();
        line->setLine(x, plot.top(), x, plot.bottom());
        line->setVisible(x >= plot.left() && x <= plot.right());
    }    emit viewChanged();
}

QString VornGraph::valuesAt(double time) const
{
    QStringList values;
    for (int i = 0; i < m_waveforms.size() && i < m_series.size(); ++i) {
        if (!m_series[i]->isVisible())
            continue;
        const WaveformData &w = m_waveforms.at(i);
        const double v = nearestSampleValue(*w.samples, SampleTimeBase{w.sampleInterval, w.startTime}, time);
        values << QStringLiteral("%1: %2").arg(w.name, formattedValue(v, i));
    }
    return values.join(QStringLiteral("   "));
}

// Times read to the finer of a pixel and a sample: finer digits would only show the pointer's
// noise, coarser ones would give two neighbouring samples the same time.
double VornGraph::readoutResolution() const
{
    const QRectF plot = m_chart->plotArea();
    double interval = std::numeric_limits<double>::infinity();
    for (int i = 0; i < m_waveforms.size() && i < m_series.size(); ++i) {
        if (m_series[i]->isVisible() && m_waveforms.at(i).sampleInterval > 0.0)
            interval = std::min(interval, m_waveforms.at(i).sampleInterval);
    }
    const double pixel = m_axisX && plot.width() > 0.0 ? (m_axisX->max() - m_axisX->min()) / plot.width() : interval;
    return std::isfinite(interval) ? std::max(interval, pixel) : pixel;
}

// A value to a tenth of what one pixel of its waveform's scale stands for: float noise of a
// sample at zero reads 0 V, not 0.2 pV.
QString VornGraph::formattedValue(double value, int index) const
{
    const QString &unit = m_waveforms.at(index).unit;
    if (!std::isfinite(value))
        return formatted(value, unit);
    const double pixel = m_divisionPixels > 0.0 ? m_divisionSizes.value(index, 0.0) / m_divisionPixels : 0.0;
    return formatResolved(value, pixel / 10.0, unit, VALUE_DIGITS);
}

QString VornGraph::hoverReadout() const
{
    const double time = std::isfinite(m_hoverX) ? timeAtViewX(m_hoverX) : std::numeric_limits<double>::quiet_NaN();
    if (!std::isfinite(time))
        return tr("t = —");
    return tr("t = %1   %2").arg(formatResolved(time, readoutResolution(), QStringLiteral("s")), valuesAt(time));
}

QString VornGraph::cursorReadout() const
{
    if (!m_cursorsVisible)
        return QString();
    const double t1 = m_cursorTimes[0];
    const double t2 = m_cursorTimes[1];
    const double dt = t2 - t1;
    const double resolution = readoutResolution();
    const QString seconds = QStringLiteral("s");
    QStringList parts;
    parts << tr("t1 = %1   t2 = %2   Δt = %3   1/Δt = %4")
                 .arg(formatResolved(t1, resolution, seconds), formatResolved(t2, resolution, seconds),
                      formatResolved(dt, resolution, seconds, MIN_DELTA_DIGITS),
                      dt != 0.0 ? formatResolved(1.0 / dt, 0.0, QStringLiteral("Hz"), MIN_DELTA_DIGITS)
                                : formatted(NAN, QStringLiteral("Hz")));
    for (int i = 0; i < m_waveforms.size() && i < m_series.size(); ++i) {
        if (!m_series[i]->isVisible())
            continue;
        const WaveformData &w = m_waveforms.at(i);
        const SampleTimeBase time{w.sampleInterval, w.startTime};
        const double v1 = nearestSampleValue(*w.samples, time, t1);
        const double v2 = nearestSampleValue(*w.samples, time, t2);
        parts << tr("%1: %2 → %3 (Δ %4)").arg(w.name, formattedValue(v1, i), formattedValue(v2, i), formattedValue(v2 - v1, i));
    }
    return parts.join(QStringLiteral("   "));
}

void VornGraph::updateReadouts()
{
    if (m_hoverLabel)
        m_hoverLabel->setText(hoverReadout());
    if (m_cursorLabel && m_cursorsVisible)
        m_cursorLabel->setText(cursorReadout());
}
