#ifndef VORNWAVEFORM_H
#define VORNWAVEFORM_H

/// \file
/// The records a host hands to the chart and the window (waveforms, envelopes, edit points), and
/// the helpers around them: value texts, envelope points, envelope curves in a capture file.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

/// Owning handle to a waveform's sample array. Copies share one array, so the loader, the graph
/// and the editor hold one long capture at the cost of one. Reading never copies; writable()
/// first gives this handle its own array if another one shares it.
class SampleArray
{
public:
    /// An empty array of its own.
    SampleArray();

    /// The samples, read-only and shared.
    const std::vector<double> &operator*() const { return *m_data; }
    /// The samples, read-only and shared.
    const std::vector<double> *operator->() const { return m_data.get(); }
    /// The samples to change; copies them first when another handle shares them.
    std::vector<double> &writable();

    /// Whether both handles read the same array.
    bool sharesStorageWith(const SampleArray &other) const { return m_data == other.m_data; }

private:
    std::shared_ptr<std::vector<double>> m_data;
};

/// One uniformly sampled waveform: its samples in unit, sample k at startTime + k * sampleInterval.
struct WaveformData
{
    /// The channel's name, as the capture and the chart show it.
    QString name;
    /// The samples' unit ("V", "A", ...); empty for a unitless waveform.
    QString unit;
    /// The sample values in unit, shared between copies.
    SampleArray samples;
    /// Time between two samples in seconds.
    double sampleInterval = 0.0; // seconds
    /// Time of sample 0 in seconds.
    double startTime = 0.0;      // seconds, time of sample 0
};

/// Upper and lower limit curves, read sample by sample in step; NaN in either is a gap.
struct EnvelopeData
{
    /// The upper limit curve, in the waveform's unit.
    WaveformData upper;
    /// The lower limit curve, on the same time grid as upper.
    WaveformData lower;
    /// What the envelope was made from, for trigger alignment: the sources' mean on the envelope's
    /// grid, and the sample interval they were captured at. Empty and NaN where it is not known (a
    /// hand-drawn envelope, or one stored without them).
    WaveformData reference;
    /// The sample interval in seconds of the captures the envelope was made from; NaN when not
    /// known.
    double sourceInterval = std::numeric_limits<double>::quiet_NaN();

    /// An envelope needs both limits: without samples in either curve there is none.
    bool isEmpty() const;
};

/// One point of an envelope being edited: a time and the limits there.
struct EnvelopePoint
{
    /// The point's time in seconds.
    double time = 0.0;
    /// The upper limit in the waveform's unit.
    double upperValue = 0.0;
    /// The lower limit in the waveform's unit.
    double lowerValue = 0.0;
    /// A disabled point makes a gap in the envelope.
    bool enabled = true;
};

/// The points of one envelope edit and the region they span.
struct EnvelopeEditData
{
    /// The edited waveform, -1 for none.
    int waveformIndex = -1;
    /// Start of the edited region in seconds.
    double startTime = 0.0;
    /// End of the edited region in seconds.
    double endTime = 0.0;
    /// Time step in seconds of the envelope the points make.
    double sampleInterval = 0.0;
    /// The points in time order.
    QVector<EnvelopePoint> points;

    /// Back to no edit: no waveform, no region, no points.
    void clear();
};

/// Steps through 1, 2, 5, 10, 20, 50, ... Every result is the double nearest to its decimal value,
/// so stepping up and back down returns exactly to where it started.
class Scale125
{
public:
    /// The smallest series value above value; 0 for a value that is not positive.
    static double nextUp(double value);
    /// The largest series value below value; 0 for a value that is not positive.
    static double nextDown(double value);
};

/// Values as the chart, the tree and the readouts write them.
class ValueFormatter
{
public:
    /// "2 ms", "500 mV", "1.5 kV", "-20 μA": an engineering prefix and as few digits as the value
    /// needs (at most six significant), in a text that parseScaledValue() reads back exactly.
    static QString formatWithUnit(double value, const QString &unit);
};

/// Reads "2 ms", "2ms", "5 k" or "0.25" with an optional SI prefix and the unit; NaN when the text
/// is no number. "." is the decimal point whatever the locale.
double parseScaledValue(const QString &text, const QString &unit);
/// What a command line takes: the same texts, and "2µs" with the micro sign (U+00B5) that
/// keyboards type, which the spin boxes deliberately refuse.
double parseCommandLineValue(const QString &text, const QString &unit);

/// The time of the sample nearest to t.
double snapToSampleGrid(double t, double sampleInterval, double startTime);

/// count points evenly spaced from start to end. Each point's limits are the largest and smallest
/// sample between its two neighbouring points, widened by 5 % of the y range, so that the straight
/// limits between points contain every sample; where no sample lies, the limits sit at 90 % and
/// 10 % of the y range.
QVector<EnvelopePoint> generateEnvelopePoints(const WaveformData &waveform, double start, double end,
                                              int count, double yMin, double yMax);

/// count points over the envelope's time span, interpolated between its samples; a point that
/// touches a gap is disabled and holds NaN limits.
QVector<EnvelopePoint> sampleEnvelopeToPoints(const EnvelopeData &envelope, int count);

/// Stores the envelope's curves as "<name> [upper]" and "<name> [lower]" in the capture at path,
/// replacing curves of those names; an empty envelope removes them. False if the file was left
/// unchanged because it could not be written.
bool saveEnvelope(const QString &path, const QString &waveformName, const EnvelopeData &envelope);
/// Removes waveformName's envelope curves from the capture at path; false if the file was left
/// unchanged because it could not be written.
bool removeEnvelope(const QString &path, const QString &waveformName);
/// The reference stored with waveformName's envelope into envelope.reference and sourceInterval;
/// false, leaving them as they were, where the capture holds none.
bool loadEnvelopeReference(const QString &path, const QString &waveformName, EnvelopeData &envelope);
/// Why the last saveEnvelope() or removeEnvelope() of this thread failed.
QString lastEnvelopeFileError();

/// Whether a name offered by the reader is that of an envelope curve (" [upper]" or " [lower]"
/// behind its waveform's name). The reader offers only curves our writer stored so.
bool isEnvelopeCurveName(const QString &name);

/// A plain waveform of a capture, by its index among the names the reader offered, and the two
/// curves of its envelope (-1 for both when it has none).
struct EnvelopePairing
{
    int waveform = -1; ///< the plain waveform's index
    int upper = -1;    ///< its upper curve's index, -1 without an envelope
    int lower = -1;    ///< its lower curve's index, -1 without an envelope
};
/// Every plain waveform in order with its envelope curves: the ones named after it with the two
/// suffixes, the last of equal names winning; a lone curve, or a pair without its waveform, pairs
/// nothing. The one rule by which the window, Check Against and the command pair limits.
QVector<EnvelopePairing> pairEnvelopeCurves(const QStringList &names);

/// Bytes the system can still give without swapping, within this process's address-space limit.
uint64_t availableMemory();

/// Resizes samples to count zeros when the system has the memory for them with some to spare
/// (false otherwise, or when the allocation fails), faulting a long array's pages in on two cores.
bool allocateSamples(std::vector<double> &samples, uint64_t count);
/// Why count samples were refused: "268435456 samples need 2.0 GiB, more than the 1.3 GiB this
/// machine can spare".
QString sampleMemoryShortfall(uint64_t count);

/// Runs beside on a thread of its own while here runs on the calling thread, and returns when both
/// are done. Where no thread can be started (a limit on threads or on memory for their stacks),
/// beside runs after here on the calling thread: the work is done either way, only slower.
void runBeside(const std::function<void()> &here, const std::function<void()> &beside);

/// Every waveform a capture file offers, read in one go: what readCapture() gives.
struct CaptureContents
{
    QString path;                    ///< the file read
    QByteArray identity;             ///< the file as it was when reading began: captureFileIdentity()
    QVector<WaveformData> waveforms; ///< in the reader's order, envelope curves included; empty unless all were read
    int waveformCount = 0;           ///< how many waveforms the file offers
    bool cancelled = false;          ///< the progress function asked to stop
    int failedWaveform = -1;         ///< the waveform (from 0) whose reading failed, -1 for the file itself
    QString error;                   ///< why reading failed, in the reader's words; empty when it did not
};

/// Device, inode, size and times of the file at path, which differ once the file was changed in
/// place or replaced; empty when there is no file.
QByteArray captureFileIdentity(const QString &path);

/// Reads every waveform of the capture at path. progress(done, total), in samples of all waveforms
/// together, is called between chunks from the reading threads, one call at a time; false from it
/// stops the reading, which then returns no waveform and cancelled. Any thread may call it.
CaptureContents readCapture(const QString &path, const std::function<bool(uint64_t done, uint64_t total)> &progress = {});

#endif
