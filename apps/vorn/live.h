#ifndef VORN_LIVE_H
#define VORN_LIVE_H

#include <string>
#include <vector>

// The commands that work on sigrok devices (live.cpp).
int scanCommand(const std::vector<std::string> &args);
int acquireCommand(const std::vector<std::string> &args);
int runCommand(const std::vector<std::string> &args);

#endif
