#ifndef INTERACTIVECHARTVIEW_H
#define INTERACTIVECHARTVIEW_H

#include "vorngraph_export.h"

#include <QChartView>

class ChartInteractionMode;
class QAbstractSeries;

/// A chart view that hands its mouse presses, moves and releases to an installed interaction
/// mode, and keeps them from the base class while one is installed.
class VORNGRAPH_EXPORT InteractiveChartView : public QChartView
{
    Q_OBJECT

public:
    /// Shows chart; without a mode the view behaves as a plain QChartView.
    explicit InteractiveChartView(QChart *chart, QWidget *parent = nullptr);
    /// Deletes the installed mode with the view.
    ~InteractiveChartView() override;

    /// Takes ownership of mode and deletes the previous one, even if it is the same object.
    void setInteractionMode(ChartInteractionMode *mode);
    /// Deletes the installed mode; the base class gets the mouse again.
    void clearInteractionMode();
    /// The installed mode, still owned by the view; null when none is installed.
    ChartInteractionMode *interactionMode() const { return m_mode; }

    /// A viewport position in pixels as chart values (x time in seconds, y in the chart's first
    /// series' unit).
    QPointF mapToChartValue(const QPoint &viewPos) const;
    /// A viewport position in pixels as values on series' axes.
    QPointF mapToChartValue(const QPoint &viewPos, QAbstractSeries *series) const;
    /// Chart values (x time in seconds) as a viewport position in pixels.
    QPoint mapFromChartValue(const QPointF &value) const;
    /// Values on series' axes as a viewport position in pixels.
    QPoint mapFromChartValue(const QPointF &value, QAbstractSeries *series) const;

signals:
    /// A click at chartPos in chart values. The library's own modes do not emit it; a host's mode
    /// may.
    void chartClicked(const QPointF &chartPos);
    /// A drag from startPos to currentPos in chart values. The library's own modes do not emit it;
    /// a host's mode may.
    void chartDragged(const QPointF &startPos, const QPointF &currentPos);
    /// A release at chartPos in chart values. The library's own modes do not emit it; a host's mode
    /// may.
    void chartReleased(const QPointF &chartPos);

protected:
    /// Keeps widgets added over the viewport (OpenGL series) from taking the mouse away from the
    /// mode.
    bool eventFilter(QObject *watched, QEvent *event) override;
    /// To the installed mode, else to QChartView.
    void mousePressEvent(QMouseEvent *event) override;
    /// To the installed mode, else to QChartView.
    void mouseMoveEvent(QMouseEvent *event) override;
    /// To the installed mode, else to QChartView.
    void mouseReleaseEvent(QMouseEvent *event) override;
    /// To the installed mode; to QChartView when there is none or the mode leaves it.
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    /// To the installed mode; to QChartView when there is none or the mode leaves it.
    void keyPressEvent(QKeyEvent *event) override;

private:
    ChartInteractionMode *m_mode = nullptr;
};

#endif
