#ifndef INTERACTIVECHARTVIEW_H
#define INTERACTIVECHARTVIEW_H

#include "vorngraph_export.h"

#include <QChartView>

class ChartInteractionMode;
class QAbstractSeries;

// A chart view that hands its mouse presses, moves and releases to an installed interaction
// mode, and keeps them from the base class while one is installed.
class VORNGRAPH_EXPORT InteractiveChartView : public QChartView
{
    Q_OBJECT

public:
    explicit InteractiveChartView(QChart *chart, QWidget *parent = nullptr);
    ~InteractiveChartView() override;

    // Takes ownership of mode and deletes the previous one, even if it is the same object.
    void setInteractionMode(ChartInteractionMode *mode);
    void clearInteractionMode();
    ChartInteractionMode *interactionMode() const { return m_mode; }

    QPointF mapToChartValue(const QPoint &viewPos) const;
    QPointF mapToChartValue(const QPoint &viewPos, QAbstractSeries *series) const;
    QPoint mapFromChartValue(const QPointF &value) const;
    QPoint mapFromChartValue(const QPointF &value, QAbstractSeries *series) const;

signals:
    void chartClicked(const QPointF &chartPos);
    void chartDragged(const QPointF &startPos, const QPointF &currentPos);
    void chartReleased(const QPointF &chartPos);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    ChartInteractionMode *m_mode = nullptr;
};

#endif
