#include "interactivechartview.h"

#include "chartinteractionmode.h"

#include <QChildEvent>
#include <QKeyEvent>
#include <QMouseEvent>

InteractiveChartView::InteractiveChartView(QChart *chart, QWidget *parent)
    : QChartView(chart, parent)
{
    viewport()->installEventFilter(this);
}

bool InteractiveChartView::eventFilter(QObject *watched, QEvent *event)
{
    // Series drawn with OpenGL get a widget of their own over the viewport, which would take
    // the mouse away from the installed mode: the viewport must see every press and drag.
    if (watched == viewport() && event->type() == QEvent::ChildAdded) {
        if (auto *child = qobject_cast<QWidget *>(static_cast<QChildEvent *>(event)->child()))
            child->setAttribute(Qt::WA_TransparentForMouseEvents);
    }
    return QChartView::eventFilter(watched, event);
}

InteractiveChartView::~InteractiveChartView()
{
    delete m_mode;
}

void InteractiveChartView::setInteractionMode(ChartInteractionMode *mode)
{
    ChartInteractionMode *previous = m_mode;
    m_mode = mode;
    delete previous;
}

void InteractiveChartView::clearInteractionMode()
{
    setInteractionMode(nullptr);
}

QPointF InteractiveChartView::mapToChartValue(const QPoint &viewPos) const
{
    return chart()->mapToValue(mapToScene(viewPos));
}

QPointF InteractiveChartView::mapToChartValue(const QPoint &viewPos, QAbstractSeries *series) const
{
    return chart()->mapToValue(mapToScene(viewPos), series);
}

QPoint InteractiveChartView::mapFromChartValue(const QPointF &value) const
{
    return mapFromScene(chart()->mapToPosition(value));
}

QPoint InteractiveChartView::mapFromChartValue(const QPointF &value, QAbstractSeries *series) const
{
    return mapFromScene(chart()->mapToPosition(value, series));
}

void InteractiveChartView::mousePressEvent(QMouseEvent *event)
{
    if (m_mode)
        m_mode->handleMousePress(this, event);
    else
        QChartView::mousePressEvent(event);
}

void InteractiveChartView::mouseMoveEvent(QMouseEvent *event)
{
    if (m_mode)
        m_mode->handleMouseMove(this, event);
    else
        QChartView::mouseMoveEvent(event);
}

void InteractiveChartView::mouseReleaseEvent(QMouseEvent *event)
{
    if (m_mode)
        m_mode->handleMouseRelease(this, event);
    else
        QChartView::mouseReleaseEvent(event);
}

void InteractiveChartView::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (!m_mode || !m_mode->handleMouseDoubleClick(this, event))
        QChartView::mouseDoubleClickEvent(event);
}

void InteractiveChartView::keyPressEvent(QKeyEvent *event)
{
    if (!m_mode || !m_mode->handleKeyPress(this, event))
        QChartView::keyPressEvent(event);
}
