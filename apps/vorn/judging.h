#ifndef VORN_JUDGING_H
#define VORN_JUDGING_H

// Judging a capture's waveforms against envelopes and reporting the verdicts: what check and run
// share, so that an acquisition is judged exactly as a file is.

#include "capture.h"
#include "limitsreport.h"

#include <QJsonObject>

#include <cstdio>
#include <functional>
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

// What a golden capture judges with: its envelopes and its measurement limits.
struct Golden
{
    std::map<std::string, EnvelopeData> envelopes;
    WaveformLimits limits;
};

// The envelopes and limits stored in the reference; throws when it holds neither.
Golden referenceGolden(const std::string &path);

bool passed(const Verdict &v); // by its envelope and its measurement limits

// --align MAXSHIFT or --trigger LEVEL[:edge] at args[i], advancing i past it; false for another.
bool parseAlignmentArgument(const std::vector<std::string> &args, size_t &i, AlignmentOptions &align);

// The waveform judged against its envelope after the alignment asked for; false, with the reason,
// when the limits cannot judge or no sample lies under them, which judges nothing.
bool judgeWaveform(const WaveformData &waveform, const EnvelopeData &envelope, const AlignmentOptions &align,
                   EnvelopeCheckResult &result, std::string &trouble);


QString describe(const Verdict &v);       // one line for people
QString worstViolation(const Verdict &v); // the worst sample outside, for a one-line message
QJsonObject toJson(const Verdict &v);
// One test case per verdict and trouble; a failing one names its picture in attachments, if any.
bool writeJUnit(const std::string &path, const std::vector<Verdict> &verdicts, const std::vector<Trouble> &troubles,
                const std::vector<QString> &attachments = {});

// The spread of every limited measurement over a batch or a run, per waveform.
class LimitStatistics
{
public:
    void add(const Verdict &v);
    // "A1 rise_time: 10 values, min ..., Cpk 2.1", a line each.
    void print(FILE *out) const;

private:
    MeasureStatistics m_statistics;
    std::map<QString, QString> m_units;
};

// The HTML report and the pictures of failing waveforms for --report and --report-dir.
struct ReportOptions
{
    std::string report;    // HTML
    std::string reportDir; // a picture per failing waveform, named in the JUnit report
    std::string reference;
    std::vector<std::string> args; // the command as given
};
// Failing waveforms drawn: as many as the report and the folder hold.
int reportPictureLimit(const ReportOptions &options);
// The samples and the envelope (none for limits alone) of a verdict, to draw them.
using VerdictSource = std::function<bool(const Verdict &v, WaveformData &waveform, EnvelopeData &envelope)>;
// Writes what options ask for, drawn offscreen by the graph; the picture of each verdict that
// has one in the folder, for the JUnit attachments.
std::vector<QString> writeReports(const ReportOptions &options, const std::vector<Verdict> &verdicts,
                                  const std::vector<Trouble> &troubles, const VerdictSource &source);

#endif
