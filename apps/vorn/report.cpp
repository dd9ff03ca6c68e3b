#include "report.h"

#include "vorngraph.h"

#include <QApplication>
#include <QBuffer>
#include <QChart>
#include <QFileInfo>
#include <QChartView>
#include <QSaveFile>
#include <QTreeWidget>
#include <QXmlStreamWriter>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace {

constexpr int SETTLE_PASSES = 40;
// The zoom shows the worst run with this many times its length around it, and never fewer
// samples than ZOOM_MIN_SAMPLES, so that a one-sample spike still shows its neighbours.
constexpr double ZOOM_CONTEXT = 6.0;
constexpr double ZOOM_MIN_SAMPLES = 60.0;

const char STYLE[] =
    "body{font-family:sans-serif;margin:1.5em;color:#222}"
    "table{border-collapse:collapse;margin:0.5em 0 1.5em}"
    "th,td{border:1px solid #ccc;padding:2px 8px;text-align:left;font-size:90%}"
    "th{background:#eee}td.pass{color:#186a1c}td.fail{color:#b00000;font-weight:bold}"
    "img{display:block;max-width:100%;border:1px solid #ccc;margin:0.3em 0 1em}"
    "dt{font-weight:bold;float:left;clear:left;width:8em}dd{margin-left:9em}";

// The graph lays itself out over several passes of the event loop; a picture is taken once two
// grabs in a row come out the same.
QImage settledPicture(QChartView *view)
{
    QImage previous;
    for (int pass = 0; pass < SETTLE_PASSES; ++pass) {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        QImage current = view->grab().toImage();
        if (current == previous && view->chart()->plotArea().width() > 0)
            return current;
        previous = std::move(current);
    }
    return previous;
}

QByteArray png(const QImage &image)
{
    QByteArray data;
    QBuffer buffer(&data);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return data;
}

QString seconds(double t)
{
    return ValueFormatter::formatWithUnit(t, QStringLiteral("s"));
}

class Html
{
public:
    explicit Html(QByteArray *out) : m_buffer(out), m_xml(&m_buffer)
    {
        m_buffer.open(QIODevice::WriteOnly);
        m_xml.setAutoFormatting(true);
        m_xml.writeDTD(QStringLiteral("<!DOCTYPE html>"));
    }
    QXmlStreamWriter &xml() { return m_xml; }
    void open(const char *tag, const QString &cls = QString())
    {
        m_xml.writeStartElement(QLatin1String(tag));
        if (!cls.isEmpty())
            m_xml.writeAttribute(QStringLiteral("class"), cls);
    }
    void close() { m_xml.writeEndElement(); }
    // An element with text only; written with an end tag even when empty, as HTML wants.
    void text(const char *tag, const QString &text, const QString &cls = QString())
    {
        open(tag, cls);
        m_xml.writeCharacters(text);
        close();
    }
    void row(const QStringList &cells, const char *tag = "td", int verdictColumn = -1)
    {
        open("tr");
        for (int i = 0; i < cells.size(); ++i)
            text(tag, cells[i], i == verdictColumn ? cells[i] : QString());
        close();
    }
    void image(const QByteArray &data, const QString &alt)
    {
        m_xml.writeEmptyElement(QStringLiteral("img"));
        m_xml.writeAttribute(QStringLiteral("alt"), alt);
        m_xml.writeAttribute(QStringLiteral("src"), QStringLiteral("data:image/png;base64,") + QString::fromLatin1(data.toBase64()));
    }

private:
    QBuffer m_buffer;
    QXmlStreamWriter m_xml;
};

void writeHeader(Html &html, const ReportInfo &info)
{
    html.open("dl");
    html.text("dt", QStringLiteral("Command"));
    html.text("dd", info.command);
    html.text("dt", QStringLiteral("Reference"));
    html.text("dd", info.reference.isEmpty() ? QStringLiteral("each capture's own envelopes") : info.reference);
    html.text("dt", QStringLiteral("Date"));
    html.text("dd", info.date.toString(Qt::ISODate));
    html.text("dt", QStringLiteral("Versions"));
    html.text("dd", QStringLiteral("vorn %1, Qt %2").arg(QStringLiteral(VORN_VERSION), QString::fromLatin1(qVersion())));
    html.close();
}

// Per waveform: how many were judged and failed, and the capture closest to leaving its band.
void writeTally(Html &html, const std::vector<ReportRow> &rows)
{
    struct Tally
    {
        QString waveform;
        int tested = 0, failed = 0;
        const ReportRow *worst = nullptr;
    };
    std::vector<Tally> tallies;
    for (const ReportRow &row : rows) {
        auto t = std::find_if(tallies.begin(), tallies.end(), [&](const Tally &other) { return other.waveform == row.waveform; });
        if (t == tallies.end())
            t = tallies.insert(tallies.end(), Tally{row.waveform});
        ++t->tested;
        t->failed += !row.passed();
        if (row.enveloped && !std::isnan(row.result.minMargin) && (!t->worst || !(t->worst->result.minMargin <= row.result.minMargin)))
            t->worst = &row;
    }
    html.open("table");
    html.row({"Waveform", "Tested", "Passed", "Failed", "Fail rate", "Worst margin", "Where"}, "th");
    for (const Tally &t : tallies) {
        const ReportRow *w = t.worst;
        QString where;
        if (w) {
            where = QFileInfo(w->file).fileName();
            if (w->result.violations())
                where += QStringLiteral(" at %1").arg(seconds(w->result.worst().time));
        }
        html.row({t.waveform, QString::number(t.tested), QString::number(t.tested - t.failed), QString::number(t.failed),
                  QString::number(100.0 * t.failed / std::max(1, t.tested), 'f', 1) + QStringLiteral(" %"),
                  w ? marginText(w->result.minMargin) : QStringLiteral("none"), where});
    }
    html.close();
}

// Per waveform and limited measurement, its spread over the batch, as the command's summary gives it.
void writeStatistics(Html &html, const std::vector<ReportRow> &rows)
{
    MeasureStatistics statistics;
    std::map<QString, QString> units;
    for (const ReportRow &row : rows) {
        units[row.waveform] = row.unit;
        for (const LimitOutcome &o : row.limits) {
            if (o.measured.valid())
                statistics.add(row.waveform, o.limit.measure, o.measured.value, &o.limit);
        }
    }
    const std::vector<MeasureStatistics::Row> spread = statistics.rows();
    if (spread.empty())
        return;
    html.text("h3", QStringLiteral("Measurement limits"));
    html.open("table");
    html.row({"Waveform", "Measurement", "Values", "Min", "Mean", "Max", "Std dev", "Cpk"}, "th");
    for (const MeasureStatistics::Row &r : spread) {
        const auto f = [&](double v) { return formatMeasure(r.measure, v, units[r.waveform]); };
        html.row({r.waveform, QLatin1String(measureKey(r.measure)), QString::number(r.count), f(r.min), f(r.mean), f(r.max),
                  f(r.stddev), std::isnan(r.cpk) ? QStringLiteral("none") : QString::number(r.cpk, 'f', 2)});
    }
    html.close();
}

void writeSummary(Html &html, const std::vector<ReportRow> &rows)
{
    html.text("h2", QStringLiteral("Summary"));
    writeTally(html, rows);
    writeStatistics(html, rows);
}

void writeVerdicts(Html &html, const std::vector<ReportRow> &rows, const std::vector<ReportTrouble> &troubles)
{
    html.text("h2", QStringLiteral("Verdicts"));
    html.open("table");
    html.row({"Capture", "Waveform", "Verdict", "Details"}, "th");
    for (const ReportRow &row : rows)
        html.row({row.file, row.waveform, row.passed() ? "pass" : "fail", row.details}, "td", 2);
    for (const ReportTrouble &t : troubles)
        html.row({t.file, QString(), "not judged", t.reason}, "td");
    html.close();
}

void writeFailures(Html &html, const std::vector<ReportRow> &rows, const std::vector<FailurePictures> &pictures)
{
    size_t failed = 0;
    size_t drawn = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].passed())
            continue;
        if (failed++ == 0)
            html.text("h2", QStringLiteral("Failures"));
        if (i >= pictures.size() || pictures[i].whole.isEmpty())
            continue;
        ++drawn;
        const QString title = rows[i].file + QStringLiteral(": ") + rows[i].waveform;
        html.text("h3", title);
        html.text("p", rows[i].details);
        html.image(pictures[i].whole, title + QStringLiteral(", the whole capture in its envelope"));
        if (!pictures[i].zoom.isEmpty())
            html.image(pictures[i].zoom, title + QStringLiteral(", the worst run of violations"));
    }
    if (drawn < failed)
        html.text("p", QStringLiteral("%1 further failures are listed under Verdicts without pictures.").arg(failed - drawn));
}

} // namespace

bool ReportRow::passed() const
{
    return (!enveloped || result.passed())
           && std::all_of(limits.begin(), limits.end(), [](const LimitOutcome &o) { return o.passed(); });
}

std::unique_ptr<QApplication> startOffscreenPictures()
{
    if (QCoreApplication::instance())
        return nullptr;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // What Qt says about the platform it draws on (no runtime folder, no window manager) is no
    // concern of the command's user: stderr stays for the command's own messages.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &message) {
        if (type == QtFatalMsg)
            std::fprintf(stderr, "vorn: %s\n", qPrintable(message));
    });
    static int argc = 1;
    static char name[] = "vorn";
    static char *argv[] = {name, nullptr};
    return std::make_unique<QApplication>(argc, argv);
}

FailurePictures drawFailure(const WaveformData &waveform, const EnvelopeData &envelope, double shift, const QSize &size)
{
    VornGraph graph;
    graph.setAttribute(Qt::WA_DontShowOnScreen);
    graph.setDistinctEnvelopeStyle(true);
    graph.setEnvelopeReduction(true);
    // A graph that is never on screen has no window for OpenGL to draw into.
    graph.setUseOpenGL(false);
    const int index = graph.addWaveform(waveform);
    graph.displayGraph();
    // A waveform judged by its measurement limits alone is drawn without a band.
    if (!envelope.isEmpty())
        graph.setEnvelope(index, envelope);
    if (shift != 0.0)
        graph.setWaveformShift(index, shift);
    // The chart alone: the tree of channels beside it is the viewer's, not the picture's.
    if (auto *tree = graph.findChild<QTreeWidget *>())
        tree->hide();
    graph.resize(size);
    graph.show();
    graph.showWholeCapture();
    auto *view = graph.findChild<QChartView *>();
    if (!view)
        return {};
    FailurePictures pictures;
    pictures.whole = png(settledPicture(view));
    const std::vector<ViolationRun> runs = graph.violationRuns(index);
    const auto worst = std::max_element(runs.begin(), runs.end(), [](const ViolationRun &a, const ViolationRun &b) {
        return a.worstExcess < b.worstExcess;
    });
    if (worst != runs.end()) {
        const double middle = worst->start + worst->length / 2;
        const double half = std::max(worst->length * ZOOM_CONTEXT, ZOOM_MIN_SAMPLES * waveform.sampleInterval) / 2;
        graph.showTimeSpan(middle - half, middle + half);
        pictures.zoom = png(settledPicture(view));
    }
    return pictures;
}

std::vector<FailurePictures> drawFailures(const std::vector<ReportRow> &rows, const ReportSource &source, int limit)
{
    std::vector<FailurePictures> pictures(rows.size());
    for (size_t i = 0; i < rows.size() && limit > 0; ++i) {
        if (rows[i].passed())
            continue;
        --limit;
        WaveformData waveform;
        EnvelopeData envelope;
        if (source(rows[i], waveform, envelope) && !waveform.samples->empty())
            pictures[i] = drawFailure(waveform, envelope, rows[i].result.shift);
    }
    return pictures;
}

QByteArray reportHtml(const std::vector<ReportRow> &rows, const std::vector<ReportTrouble> &troubles,
                      const std::vector<FailurePictures> &pictures, const ReportInfo &info)
{
    QByteArray out;
    {
        Html html(&out);
        QXmlStreamWriter &xml = html.xml();
        xml.writeStartElement(QStringLiteral("html"));
        xml.writeAttribute(QStringLiteral("lang"), QStringLiteral("en"));
        html.open("head");
        xml.writeEmptyElement(QStringLiteral("meta"));
        xml.writeAttribute(QStringLiteral("charset"), QStringLiteral("utf-8"));
        html.text("title", info.title);
        html.text("style", QString::fromLatin1(STYLE));
        html.close();
        html.open("body");
        html.text("h1", info.title);
        writeHeader(html, info);
        writeSummary(html, rows);
        writeVerdicts(html, rows, troubles);
        writeFailures(html, rows, pictures);
        html.close();
        xml.writeEndElement();
        xml.writeEndDocument();
    }
    return out;
}

bool writeReportFile(const QString &path, const QByteArray &data, QString *error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(data) == data.size() && file.commit())
        return true;
    if (error)
        *error = file.errorString();
    return false;
}
