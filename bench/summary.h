#ifndef VORN_BENCH_SUMMARY_H
#define VORN_BENCH_SUMMARY_H

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

// Milliseconds per mouse move while a handle of an envelope of this many points is dragged,
// the repaint included (bench_drag.cpp).
double dragMillisecondsPerMove(int points);

// Prints the check 100M line (bench_check.cpp).
void printCheck(std::vector<double> samples);
struct ViewStepFigure
{
    double wheel = -1;
    double pan = -1;
    double resize = -1;
    double worst() const { return std::max({wheel, pan, resize}); }
};
// Milliseconds per navigation step with the repaint, each kind of step on its own, the graph
// stacked at the given size (bench_view.cpp).
ViewStepFigure viewStepMilliseconds(int waveforms, std::size_t samples, int width = 1600, int height = 900);

void printSummary(const std::function<std::vector<double>(std::size_t)> &makeSamples);

#endif
