#include "chartbatch.h"

#include <QAbstractAxis>
#include <QAbstractSeries>
#include <QChart>
#include <QMetaObject>
#include <QSignalBlocker>

namespace {

const char *const HIDDEN_AXIS = "vornHiddenAxis";

// The chart's own QObject children: its series list, and the presenter that makes the items
// that draw and lay out each series.
QObject *chartPart(QChart *chart, const char *className)
{
    for (QObject *child : chart->children()) {
        if (qstrcmp(child->metaObject()->className(), className) == 0)
            return child;
    }
    return nullptr;
}

// An axis' private half is a QObject of its own, whose range signal every series' domain on the
// axis listens to; each series that leaves walks all of those connections.
struct AxisPrivateHalf : QAbstractAxis
{
    static QObject *of(QAbstractAxis *axis)
    {
        auto *half = reinterpret_cast<QObject *>((axis->*&AxisPrivateHalf::d_ptr).data());
        return half && half->inherits("QAbstractAxisPrivate") ? half : nullptr;
    }
};

} // namespace

void addSeriesTogether(QChart *chart, const QList<QAbstractSeries *> &series)
{
    QObject *dataSet = chartPart(chart, "ChartDataSet");
    QObject *presenter = chartPart(chart, "ChartPresenter");
    const bool quietly = dataSet && presenter
        && presenter->metaObject()->indexOfSlot("handleSeriesAdded(QAbstractSeries*)") >= 0
        && dataSet->metaObject()->indexOfSignal("seriesAdded(QAbstractSeries*)") >= 0;
    for (QAbstractSeries *s : series) {
        if (!quietly) {
            chart->addSeries(s);
            continue;
        }
        const bool fresh = !s->chart();
        {
            // Nobody hears of the series but the presenter, which is told below.
            const QSignalBlocker blocker(dataSet);
            chart->addSeries(s);
        }
        if (fresh && s->chart() == chart)
            QMetaObject::invokeMethod(presenter, "handleSeriesAdded", Qt::DirectConnection, Q_ARG(QAbstractSeries *, s));
    }
}

void addHiddenAxis(QChart *chart, QAbstractAxis *axis, Qt::Alignment alignment)
{
    QObject *dataSet = chartPart(chart, "ChartDataSet");
    const bool quietly = dataSet && !axis->isVisible()
        && dataSet->metaObject()->indexOfSignal("axisAdded(QAbstractAxis*)") >= 0
        && dataSet->metaObject()->indexOfSignal("axisRemoved(QAbstractAxis*)") >= 0;
    if (!quietly) {
        chart->addAxis(axis, alignment);
        return;
    }
    const QSignalBlocker blocker(dataSet);
    chart->addAxis(axis, alignment);
    axis->setProperty(HIDDEN_AXIS, true);
}

void removeAllTogether(QChart *chart)
{
    QObject *dataSet = chartPart(chart, "ChartDataSet");
    const QList<QAbstractAxis *> axes = chart->axes();
    for (QAbstractAxis *axis : axes) {
        axis->disconnect();
        if (QObject *half = AxisPrivateHalf::of(axis))
            half->disconnect();
    }
    // The presenter made no item for a hidden axis, so it must not hear of its removal.
    for (QAbstractAxis *axis : axes) {
        if (!axis->property(HIDDEN_AXIS).toBool())
            continue;
        {
            const QSignalBlocker blocker(dataSet);
            chart->removeAxis(axis);
        }
        delete axis;
    }
    chart->removeAllSeries();
    for (QAbstractAxis *axis : chart->axes()) {
        chart->removeAxis(axis);
        delete axis;
    }
}
