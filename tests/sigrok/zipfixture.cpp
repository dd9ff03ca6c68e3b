#include "zipfixture.h"

#include "waveform_sigrok.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QtEndian>

#include <zip.h>

#include <algorithm>
#include <cmath>

bool writeZip(const QString &path, const std::vector<ZipMember> &members)
{
    QFile::remove(path);
    int error = 0;
    zip_t *zip = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!zip)
        return false;
    for (const ZipMember &m : members) {
        zip_source_t *source = zip_source_buffer(zip, m.data.constData(), static_cast<zip_uint64_t>(m.data.size()), 0);
        const zip_int64_t index = zip_file_add(zip, m.name.constData(), source, 0);
        if (index < 0 || zip_set_file_compression(zip, static_cast<zip_uint64_t>(index),
                                                  m.deflate ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 0) != 0) {
            zip_discard(zip);
            return false;
        }
    }
    return zip_close(zip) == 0;
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size();
}

std::vector<ZipMember> without(std::vector<ZipMember> members, const QByteArrayList &names)
{
    members.erase(std::remove_if(members.begin(), members.end(), [&](const ZipMember &m) { return names.contains(m.name); }),
                  members.end());
    return members;
}

std::vector<ZipMember> withMember(const std::vector<ZipMember> &members, const ZipMember &extra)
{
    std::vector<ZipMember> changed = without(members, {extra.name});
    changed.push_back(extra);
    return changed;
}

bool damageMember(const QString &path, const QByteArray &how)
{
    const QByteArray kind = how.left(how.indexOf(':')), name = how.mid(how.indexOf(':') + 1);
    const QByteArray data = storedMembers(path)[name];
    QByteArray zip = readFile(path);
    if (kind == "bit") {
        const qsizetype at = zip.indexOf(data);
        return at > 0 && (zip[at + 1] = char(zip[at + 1] ^ 0x10), writeFile(path, zip));
    }
    struct Field { int local, central, bytes; quint32 value; }; // offsets in either header
    const quint32 gib = 1u << 30;
    const std::map<QByteArray, std::vector<Field>> kinds{{"size", {{22, 24, 4, quint32(data.size() + 8)}}},
                                                         {"huge", {{22, 24, 4, gib}}},
                                                         {"beyond", {{18, 20, 4, gib}, {22, 24, 4, gib}}},
                                                         {"bzip2", {{8, 10, 2, 12}}},
                                                         {"alias", {{-1, 42, 4, 0}}}};
    // A local header names its member at 30, a central one at 46.
    int patched = 0;
    for (qsizetype at = 0; at + 46 < zip.size(); ++at) {
        const bool local = zip.mid(at, 4) == QByteArray("PK\3\4", 4), central = zip.mid(at, 4) == QByteArray("PK\1\2", 4);
        const qsizetype nameAt = at + (local ? 30 : 46), lengthAt = at + (local ? 26 : 28);
        if (!(local || central) || qFromLittleEndian<quint16>(zip.constData() + lengthAt) != name.size()
            || zip.mid(nameAt, name.size()) != name)
            continue;
        for (const Field &f : kinds.at(kind)) {
            for (int i = 0; i < f.bytes && (central || f.local >= 0); ++i)
                zip[at + (local ? f.local : f.central) + i] = char(f.value >> (8 * i));
        }
        ++patched;
    }
    return patched == 2 && writeFile(path, zip);
}

std::map<QByteArray, QByteArray> storedMembers(const QString &path)
{
    std::map<QByteArray, QByteArray> members;
    int error = 0;
    zip_t *zip = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &error);
    for (zip_int64_t i = 0; zip && i < zip_get_num_entries(zip, 0); ++i) {
        zip_stat_t st;
        zip_stat_index(zip, static_cast<zip_uint64_t>(i), 0, &st);
        QByteArray &stored = members[st.name];
        stored.resize(static_cast<qsizetype>(st.comp_size));
        if (zip_file_t *file = zip_fopen_index(zip, static_cast<zip_uint64_t>(i), ZIP_FL_COMPRESSED)) {
            zip_fread(file, stored.data(), static_cast<zip_uint64_t>(stored.size()));
            zip_fclose(file);
        }
    }
    if (zip)
        zip_discard(zip);
    return members;
}

QByteArray floats(std::initializer_list<float> values)
{
    QByteArray bytes;
    for (float v : values)
        bytes.append(reinterpret_cast<const char *>(&v), sizeof v);
    return bytes;
}

std::vector<ZipMember> sampleCapture()
{
    const QByteArray metadata = "[global]\nsigrok version=0.5.2\n\n[device 1]\ncapturefile=logic-1\n"
                                "total probes=3\nsamplerate=1 kHz\ntotal analog=2\nprobe1=D0\nprobe3=D2\n"
                                "analog4=A0\nanalog5=A1\nunitsize=1\n";
    return {
        {"version", "2"},
        {"metadata", metadata, true},
        {"logic-1-1", QByteArray("\x01\x04", 2), true},
        {"logic-1-2", QByteArray("\x05", 1), true},
        {"analog-1-4-1", floats({0.5f, -1.25f, 3.0f}), true},
        {"analog-1-4-2", floats({7.0f}), true},
        {"analog-1-5-1", floats({1e-3f, 2e6f}), true},
    };
}

std::vector<ZipMember> analogCapture(const QList<QPair<QByteArray, QList<float>>> &channels)
{
    QByteArray metadata = "[global]\nsigrok version=0.5.2\n\n[device 1]\ncapturefile=logic-1\ntotal probes=0\n"
                          "samplerate=1 kHz\ntotal analog=" + QByteArray::number(channels.size()) + "\n";
    std::vector<ZipMember> members{{"version", "2"}, {"metadata", {}}};
    for (int i = 0; i < channels.size(); ++i) {
        metadata += "analog" + QByteArray::number(i + 1) + "=" + channels[i].first + "\n";
        QByteArray data;
        for (float v : channels[i].second)
            data.append(reinterpret_cast<const char *>(&v), sizeof v);
        members.push_back({"analog-1-" + QByteArray::number(i + 1) + "-1", data, true});
    }
    members[1].data = metadata + "unitsize=1\n";
    return members;
}

std::vector<ZipMember> withCurves(const std::vector<ZipMember> &members, const QList<StoredCurve> &curves)
{
    std::vector<ZipMember> out = members;
    QByteArray metadata;
    for (int i = 0; i < curves.size(); ++i) {
        const StoredCurve &c = curves[i];
        const QByteArray n = QByteArray::number(i + 1);
        metadata += "[curve " + n + "]\nname=" + c.name + "\nunit=V\nsamples="
                    + (c.count.isEmpty() ? QByteArray::number(c.samples.size()) : c.count) + "\nstart=" + c.start
                    + "\ninterval=" + c.interval + "\n";
        QByteArray data;
        for (double v : c.samples)
            data.append(reinterpret_cast<const char *>(&v), sizeof v);
        out.push_back({"vorngraph/curve-" + n, data, true});
    }
    out.push_back({"vorngraph/metadata", metadata, true});
    return out;
}

QList<QPair<QString, QByteArray>> readWaveforms(const QString &path)
{
    QList<QPair<QString, QByteArray>> out;
    const QByteArray p = path.toUtf8();
    int32_t count = 0;
    for (int32_t i = 0; sigrok_read_waveform_count(p, &count) == 0 && i < count; ++i) {
        SigrokWaveformInfo info;
        sigrok_read_waveform_info_by_index(p, i, &info);
        WaveformData w;
        w.unit = QString::fromUtf8(info.unit);
        w.sampleInterval = info.sampleInterval;
        w.startTime = info.startTime;
        w.samples.writable().resize(info.sampleCount);
        sigrok_read_waveform_data_by_index(p, i, w.samples.writable().data(), info.sampleCount);
        out.append({QString::fromUtf8(info.name), described(w)});
    }
    return out;
}

QStringList offeredNames(const QString &path)
{
    QStringList names;
    for (const auto &waveform : readWaveforms(path))
        names << waveform.first;
    return names;
}

QStringList fileNames(const QString &dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
}

EnvelopeData envelopeOf(double scale)
{
    EnvelopeData e;
    for (WaveformData *w : {&e.upper, &e.lower}) {
        w->unit = "V";
        w->sampleInterval = 1e-7 / 3;
        w->startTime = -0.123456789012345678;
    }
    e.upper.samples.writable() = {scale / 3, std::nan(""), 1e-310, -0.1, scale};
    e.lower.samples.writable() = {-scale / 3, std::nan(""), -1e-310, -0.2, 0.0};
    return e;
}

QByteArray described(const WaveformData &w)
{
    return QByteArray(reinterpret_cast<const char *>(w.samples->data()), qsizetype(w.samples->size() * sizeof(double)))
         + w.unit.toUtf8() + ' ' + QByteArray::number(w.sampleInterval, 'g', 17) + ' '
         + QByteArray::number(w.startTime, 'g', 17);
}

QByteArray described(const EnvelopeData &e)
{
    return described(e.upper) + '|' + described(e.lower);
}

Run run(const QString &program, const QStringList &args)
{
    QProcess process;
    process.start(program, args);
    if (!process.waitForFinished(300000) || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}
