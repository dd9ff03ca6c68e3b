#ifndef VORN_BENCH_SUMMARY_H
#define VORN_BENCH_SUMMARY_H

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

class QString;

// Milliseconds per mouse move while a handle of an envelope of this many points is dragged,
// the repaint included (bench_drag.cpp).
double dragMillisecondsPerMove(int points);

// Prints the check 100M and the check aligned 100M lines, each where asked for (bench_check.cpp).
void printCheck(std::vector<double> samples, bool plainLine, bool alignedLine);
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

// Prints the measure 100M line (bench_measure.cpp).
void printMeasure();
// Prints the envelope 10x10M line (bench_envelope.cpp).
void printEnvelopeBuild();
// Writes a capture of this many samples on this many channels unless the file exists.
bool ensureCapture(const QString &file, std::size_t samples, int channels);

// Entering the knot edit of a 20,000-sample envelope, one drag step among 500 knots, and a wheel
// step with that envelope shown over one without it (bench_editenvelope.cpp).
struct EditEnvelopeFigure
{
    double startMs = -1;
    double dragMs = -1;
    double viewStepRatio = -1;
    // An envelope of a periodic signal, a knot on nearly every sample.
    int denseKnots = -1;
    double denseStartMs = -1;
    double denseDragMs = -1;
};
EditEnvelopeFigure editEnvelopeFigures();

// Prints the report 200 files line (bench_report.cpp).
void printReport();
// Prints the run demo line (bench_run.cpp).
void printRunDemo();

void printSummary(const std::function<std::vector<double>(std::size_t)> &makeSamples);

#endif
