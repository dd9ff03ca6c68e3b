#ifndef VORN_TEST_ZIPFIXTURE_H
#define VORN_TEST_ZIPFIXTURE_H

// Small archives written member by member, so that tests can build good and broken captures.

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <QStringList>

#include "vornwaveform.h"

#include <map>
#include <utility>
#include <vector>

struct ZipMember
{
    QByteArray name;
    QByteArray data;
    bool deflate = false;
};

bool writeZip(const QString &path, const std::vector<ZipMember> &members);
QByteArray readFile(const QString &path);
bool writeFile(const QString &path, const QByteArray &data);

// The members without the named ones; with extra replacing its namesake, or added, as the last.
std::vector<ZipMember> without(std::vector<ZipMember> members, const QByteArrayList &names);
std::vector<ZipMember> withMember(const std::vector<ZipMember> &members, const ZipMember &extra);

// Damages one member of the archive at path, as "how:member" says: "size" states 8 bytes more
// than it holds, "huge" a GiB, "beyond" a GiB stored and uncompressed, "bzip2" names that
// method, "bit" flips a bit of its stored bytes and keeps the sizes, "alias" points its directory
// entry at the first member's bytes.
bool damageMember(const QString &path, const QByteArray &how);

// Every member of an archive by name, as stored (compressed or not); empty when it cannot be opened.
std::map<QByteArray, QByteArray> storedMembers(const QString &path);

// A small capture as sigrok-cli writes it: analog channels A0 (4 samples), A1 (2 samples), then
// logic probes D0 and D2 (3 samples), at 1 kHz.
std::vector<ZipMember> sampleCapture();
QByteArray floats(std::initializer_list<float> values);

// A 1 kHz capture of analog channels, in order, each named and holding its samples.
std::vector<ZipMember> analogCapture(const QList<QPair<QByteArray, QList<float>>> &channels);
// One of our curves as its metadata section states it: any text in name, samples, start and
// interval, so that damaged sections can be written too; the samples are stored as they are.
struct StoredCurve
{
    QByteArray name;
    QList<double> samples;
    QByteArray interval = "0.001";
    QByteArray start = "0";
    QByteArray count = QByteArray(); // the samples key; empty: the number of samples
};
// The members with our metadata and curve members for the curves added.
std::vector<ZipMember> withCurves(const std::vector<ZipMember> &members, const QList<StoredCurve> &curves);

// Every waveform the reader offers in the capture, in order, by name and description; and their names.
QList<QPair<QString, QByteArray>> readWaveforms(const QString &path);
QStringList offeredNames(const QString &path);
// Every file in dir, hidden ones too, by name.
QStringList fileNames(const QString &dir);
// Limits with values that a text format could not keep: thirds, a denormal, NaN gaps.
EnvelopeData envelopeOf(double scale);
// The sample bits, unit, interval and start of a curve, or of both limits.
QByteArray described(const WaveformData &w);
QByteArray described(const EnvelopeData &e);

// What a program printed and how it ended: exit code -1 when it crashed or ran for five minutes.
struct Run
{
    int exitCode = -1;
    QByteArray out, err;
};
Run run(const QString &program, const QStringList &args);

#endif
