#include "chartbatch.h"

#include <QAbstractSeries>
#include <QChart>
#include <QMetaObject>
#include <QSignalBlocker>

namespace {

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
