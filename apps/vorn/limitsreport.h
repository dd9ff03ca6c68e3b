#ifndef VORN_LIMITSREPORT_H
#define VORN_LIMITSREPORT_H

// Measurements and measurement limits in the command's output: what check, measure and the live
// run print about them.

#include "vornmeasure.h"

#include <QJsonArray>
#include <QJsonObject>

#include <map>
#include <string>

using WaveformLimits = std::map<std::string, std::vector<MeasurementLimit>>;

// The limits a capture keeps, by waveform; a Failure naming the file when they are unreadable.
WaveformLimits limitsOf(const std::string &path);

// {"waveform": name, "low": ..., ...}, null where a measurement does not apply.
QJsonObject measurementsJson(const QString &name, const PulseMeasurements &m);
// [{"measurement", "value", "min", "max", "reason"}] for every limit that failed.
QJsonArray limitFailuresJson(const LimitVerdict &verdict);
// "3 limits met", or "1 of 3 limits failed: rise_time 30 μs outside <= 25 μs".
QString limitsText(const LimitVerdict &verdict);
// One line per waveform and limited measurement of a batch:
// "A1 rise_time: 10 values, min 20 μs, mean 21 μs, max 22 μs, sd 500 ns, Cpk 2.1"
QString statisticsLine(const MeasureStatistics::Row &row, const QString &unit);

int measureCaptures(const std::vector<std::string> &args); // measure.cpp
int setLimits(const std::vector<std::string> &args);

#endif
