#ifndef VORN_CAPTURE_H
#define VORN_CAPTURE_H

// Reading captures for the vorn command: what every subcommand shares.

#include "vornmask.h"
#include "waveform_sigrok.h"

#include <string>
#include <vector>

struct UsageError {};
// A failure that concerns one file names it, so that the message can.
struct Failure { std::string reason; std::string file = {}; };

// text with every byte that is not part of valid UTF-8 written as \xNN, fit for a terminal.
std::string printable(const std::string &text);

std::vector<SigrokWaveformInfo> readInfos(const std::string &path);
// The index of the waveform called name in the capture at path, whose infos these are.
int32_t findWaveform(const std::vector<SigrokWaveformInfo> &infos, const std::string &name, const std::string &path);
// The waveform at index, its first limit samples at most.
WaveformData loadWaveformAt(const std::string &path, const std::vector<SigrokWaveformInfo> &infos, int32_t index,
                            uint64_t limit);
WaveformData loadWaveform(const std::string &path, const std::string &name, uint64_t limit);

// A plain waveform of a capture and the envelope stored beside it, paired by name as the window
// pairs them; the waveform's own samples are loaded only when asked for.
struct EnvelopedWaveform
{
    std::string name;
    int32_t index = -1;
    EnvelopeData envelope;
    std::string unreadable; // why its paired curves could not be read
};
std::vector<EnvelopedWaveform> envelopedWaveforms(const std::string &path, const std::vector<SigrokWaveformInfo> &infos);

// Where and why each envelope curve stored in the capture could not be read.
std::vector<std::string> unreadableCurves(const std::string &path);

int checkCaptures(const std::vector<std::string> &args); // check.cpp

#endif
