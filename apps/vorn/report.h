#ifndef VORN_REPORT_H
#define VORN_REPORT_H

// Reports people keep: one self-contained HTML file of a check, and pictures of failing captures
// in their envelopes drawn by the graph itself, offscreen, so that they look like the viewer.

#include "vornmask.h"
#include "vornmeasure.h"

#include <QByteArray>
#include <QDateTime>
#include <QSize>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

class QApplication;

// One judged waveform of one capture.
struct ReportRow
{
    QString file;
    QString waveform;
    QString unit;
    EnvelopeCheckResult result;
    QString details; // the verdict's line as the command prints it
    bool enveloped = true;              // false: judged by its measurement limits alone
    std::vector<LimitOutcome> limits;   // the measurement limits applied and the values measured
    bool passed() const;
};

// A capture, or a waveform of one, that could not be judged.
struct ReportTrouble
{
    QString file;
    QString reason;
};

struct ReportInfo
{
    QString title = QStringLiteral("vorn check report");
    QString command;
    QString reference; // empty: each capture's own envelopes
    QDateTime date = QDateTime::currentDateTime();
};

// A failing waveform drawn as PNG: the whole capture in its envelope, and the worst run of
// violations zoomed (empty when it has none, such as a capture that ends early).
struct FailurePictures
{
    QByteArray whole;
    QByteArray zoom;
};

// The samples and the envelope of a row, to draw them; false when they cannot be had again.
using ReportSource = std::function<bool(const ReportRow &row, WaveformData &waveform, EnvelopeData &envelope)>;

// Failing waveforms drawn in a report; the others are listed without pictures.
constexpr int REPORT_PICTURE_LIMIT = 20;
constexpr int REPORT_PICTURE_WIDTH = 1200;
constexpr int REPORT_PICTURE_HEIGHT = 500;

// A widget-free command needs an application to draw with: one on the offscreen platform, made
// only where pictures are asked for.
std::unique_ptr<QApplication> startOffscreenPictures();

// The waveform moved back by shift, with its envelope, violation marks and band labels, as the
// viewer shows it at size.
FailurePictures drawFailure(const WaveformData &waveform, const EnvelopeData &envelope, double shift,
                            const QSize &size = QSize(REPORT_PICTURE_WIDTH, REPORT_PICTURE_HEIGHT));

// The pictures of the first limit failing rows, by row index; rows whose source fails get none.
std::vector<FailurePictures> drawFailures(const std::vector<ReportRow> &rows, const ReportSource &source, int limit);

// The report as HTML with every picture inline; pictures holds one entry per row (or is empty).
QByteArray reportHtml(const std::vector<ReportRow> &rows, const std::vector<ReportTrouble> &troubles,
                      const std::vector<FailurePictures> &pictures, const ReportInfo &info);

// Writes data to path through a temporary file, so that a failed write leaves no half report.
bool writeReportFile(const QString &path, const QByteArray &data, QString *error);

#endif
