#ifndef CHARTBATCH_H
#define CHARTBATCH_H

#include <QList>

class QAbstractSeries;
class QChart;

// Adds many series to a chart at once, for thousands of waveforms. The chart's theme numbers each
// new series by sorting the numbers of every series it already holds, and its legend, hidden here,
// makes a marker with a text document for each: opening grew with the square of the series and
// took megabytes per hundred. Series added here skip both; they keep the pens they were given
// before and are drawn, mapped through their axes, listed and removed like any other. Where the
// chart's parts are not found as expected, each series is added the ordinary way.
void addSeriesTogether(QChart *chart, const QList<QAbstractSeries *> &series);

#endif
