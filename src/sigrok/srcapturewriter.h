#ifndef SRCAPTUREWRITER_H
#define SRCAPTUREWRITER_H

// A whole capture written as a new session file, laid out the way sigrok-cli writes its own, so
// that sigrok-cli and PulseView open it and our reader gives back the same samples.

#include <cstdint>
#include <string>
#include <vector>

struct SrCapture
{
    uint64_t samplerate = 0; // Hz
    std::vector<std::string> logicNames; // probe k is bit k of each sample's unitsize bytes
    unsigned unitsize = 0;
    std::vector<uint8_t> logic;
    std::vector<std::string> analogNames;
    std::vector<std::vector<float>> analog; // one array per analog name
};

// Writes capture to path, replacing what was there; false, with the reason, when it cannot.
bool writeSrCapture(const std::string &path, const SrCapture &capture, std::string *error);

// "1 MHz", "200 kHz", "3 Hz": the way libsigrok writes a sample rate, and reads it back.
std::string srSamplerateText(uint64_t samplerate);

#endif
