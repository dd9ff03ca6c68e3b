#ifndef VORN_BENCH_SUMMARY_H
#define VORN_BENCH_SUMMARY_H

#include <cstddef>
#include <functional>
#include <vector>

void printSummary(const std::function<std::vector<double>(std::size_t)> &makeSamples);

#endif
