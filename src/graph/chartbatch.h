#ifndef CHARTBATCH_H
#define CHARTBATCH_H

#include <QList>
#include <Qt>

#include <functional>

class QAbstractAxis;
class QAbstractSeries;
class QChart;
class QObject;

// Adds many series to a chart at once, for thousands of waveforms. The chart's theme numbers each
// new series by sorting the numbers of every series it already holds, and its legend, hidden here,
// makes a marker with a text document for each: opening grew with the square of the series and
// took megabytes per hundred. Series added here skip both; they keep the pens they were given
// before and are drawn, mapped through their axes, listed and removed like any other. Where the
// chart's parts are not found as expected, each series is added the ordinary way.
void addSeriesTogether(QChart *chart, const QList<QAbstractSeries *> &series);

// Adds a hidden axis that only maps a series' values: the chart makes no item for it (a dozen
// graphics items and a layout pass each) and its theme leaves it as it is. It must not be shown
// later, and it leaves the chart through removeAllTogether, never through QChart::removeAxis.
// A visible axis, or one where the chart's parts are not found as expected, is added the
// ordinary way.
void addHiddenAxis(QChart *chart, QAbstractAxis *axis, Qt::Alignment alignment);

// Removes and deletes every series and axis of chart. The axis all series share tells each
// series' detaching to every other one, which made closing thousands of waveforms take longer
// than opening them: its connections go first, in one pass.
void removeAllTogether(QChart *chart);

// Calls before() and after() around every layout pass of chart (the outermost one, where passes
// nest). The chart's items redraw every point of their series when a pass moves the plot area.
// Returns the event filter that does it, a child of chart; deleting it ends the wrapping.
QObject *wrapLayoutPasses(QChart *chart, std::function<void()> before, std::function<void()> after);

#endif
