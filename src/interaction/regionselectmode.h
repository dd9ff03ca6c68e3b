#ifndef REGIONSELECTMODE_H
#define REGIONSELECTMODE_H

#include "chartinteractionmode.h"
#include "vorngraph_export.h"

#include <QObject>
#include <QPointF>

class QGraphicsRectItem;

// Lets the user drag out a time region; the band always spans the plot area's full height.
class VORNGRAPH_EXPORT RegionSelectMode : public QObject, public ChartInteractionMode
{
    Q_OBJECT

public:
    explicit RegionSelectMode(QObject *parent = nullptr);

    void handleMousePress(InteractiveChartView *view, QMouseEvent *event) override;
    void handleMouseMove(InteractiveChartView *view, QMouseEvent *event) override;
    void handleMouseRelease(InteractiveChartView *view, QMouseEvent *event) override;

signals:
    void regionSelected(double startTime, double endTime);

private:
    void updateSelectionRect(InteractiveChartView *view);
    void removeSelectionRect(InteractiveChartView *view);

    bool m_selecting = false;
    QPointF m_startPos;
    QPointF m_currentPos;
    QGraphicsRectItem *m_selectionRect = nullptr;
};

#endif
