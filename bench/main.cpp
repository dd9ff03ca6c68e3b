#include "summary.h"

#include <QApplication>

#include <benchmark/benchmark.h>

std::vector<double> benchSamples(std::size_t count); // bench_graph.cpp

// Some figures need widgets; without a display they run on the offscreen platform.
int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // The summary is the whole-run figure; a filtered run is after one benchmark only.
    bool filtered = false;
    for (int i = 1; i < argc; ++i)
        filtered = filtered || QByteArray(argv[i]).startsWith("--benchmark_filter");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    // VORN_BENCH_ONLY asks for summary lines alone.
    if (qEnvironmentVariableIsEmpty("VORN_BENCH_ONLY"))
        benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (!filtered)
        printSummary(benchSamples);
    return 0;
}
