#ifndef VORN_TEST_ZIPFIXTURE_H
#define VORN_TEST_ZIPFIXTURE_H

// Small archives written member by member, so that tests can build good and broken captures.

#include <QByteArray>
#include <QString>

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

// Sets the uncompressed size that both the local and the central header give for member name.
bool patchUncompressedSize(QByteArray &zip, const QByteArray &name, quint32 size);

struct MemberBytes
{
    QByteArray data;       // uncompressed
    QByteArray compressed; // as stored
    quint32 crc = 0;
    int method = 0;
};
// Every member of an archive by name; empty when it cannot be opened.
std::map<QByteArray, MemberBytes> readMembers(const QString &path);

// A small capture as sigrok-cli writes it: analog channels A0 (4 samples), A1 (2 samples), then
// logic probes D0 and D2 (3 samples), at 1 kHz.
std::vector<ZipMember> sampleCapture();
QByteArray floats(std::initializer_list<float> values);

#endif
