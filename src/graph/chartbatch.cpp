#include "chartbatch.h"

#include <QAbstractAxis>
#include <QAbstractSeries>
#include <QChart>
#include <QCoreApplication>
#include <QEvent>
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

// A chart lays itself out when it receives a layout request.
class LayoutPassFilter : public QObject
{
public:
    LayoutPassFilter(QObject *parent, std::function<void()> before, std::function<void()> after)
        : QObject(parent)
        , m_before(std::move(before))
        , m_after(std::move(after))
    {
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() != QEvent::LayoutRequest || m_inPass)
            return false;
        m_inPass = true;
        m_before();
        // Passed on through the other filters and the chart itself, then followed up; this filter
        // steps aside meanwhile, so that the event is not caught twice.
        watched->removeEventFilter(this);
        QCoreApplication::sendEvent(watched, event);
        watched->installEventFilter(this);
        m_after();
        m_inPass = false;
        return true;
    }

private:
    std::function<void()> m_before;
    std::function<void()> m_after;
    bool m_inPass = false;
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

QObject *wrapLayoutPasses(QChart *chart, std::function<void()> before, std::function<void()> after)
{
    auto *filter = new LayoutPassFilter(chart, std::move(before), std::move(after));
    chart->installEventFilter(filter);
    return filter;
}
