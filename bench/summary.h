#ifndef VORN_BENCH_SUMMARY_H
#define VORN_BENCH_SUMMARY_H

#include <cstddef>
#include <functional>
#include <vector>

// Milliseconds per mouse move while a handle of an envelope of this many points is dragged,
// the repaint included (bench_drag.cpp).
double dragMillisecondsPerMove(int points);

// Prints the check 100M line (bench_check.cpp).
void printCheck(std::vector<double> samples);

void printSummary(const std::function<std::vector<double>(std::size_t)> &makeSamples);

#endif
