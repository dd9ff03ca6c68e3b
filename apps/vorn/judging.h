#ifndef VORN_JUDGING_H
#define VORN_JUDGING_H

// Judging a capture's waveforms against envelopes and reporting the verdicts: what check and run
// share, so that an acquisition is judged exactly as a file is.

#include "capture.h"
#include "limitsreport.h"

#include <QJsonObject>

#include <map>

struct Verdict
{
    std::string file;
    std::string waveform;
    QString unit;
    EnvelopeCheckResult result;
    bool aligned = false;
    bool enveloped = true; // false: judged by its measurement limits alone
    LimitVerdict limits;
};

// A file that could not be checked, and why.
struct Trouble
{
    std::string file;
    std::string reason;
};

// --align MAXSHIFT or --trigger LEVEL[:edge] at args[i], advancing i past it; false for another.
bool parseAlignmentArgument(const std::vector<std::string> &args, size_t &i, AlignmentOptions &align);

// The waveform judged against its envelope after the alignment asked for; false, with the reason,
// when the limits cannot judge or no sample lies under them, which judges nothing.
bool judgeWaveform(const WaveformData &waveform, const EnvelopeData &envelope, const AlignmentOptions &align,
                   EnvelopeCheckResult &result, std::string &trouble);

// The envelopes stored in the reference, by waveform name; throws when it holds none.
std::map<std::string, EnvelopeData> referenceEnvelopes(const std::string &path);

QString describe(const Verdict &v);       // one line for people
QString worstViolation(const Verdict &v); // the worst sample outside, for a one-line message
QJsonObject toJson(const Verdict &v);
// One test case per verdict and trouble; a failing one names its picture in attachments, if any.
bool writeJUnit(const std::string &path, const std::vector<Verdict> &verdicts, const std::vector<Trouble> &troubles,
                const std::vector<QString> &attachments = {});

#endif
