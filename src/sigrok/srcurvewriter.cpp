#include "srcurvewriter.h"

#include "capturelock.h"
#include "srarchive.h"
#include "srini.h"
#include "srnames.h"
#include "srreadercache.h"
#include "zipreplace.h"

#include <glib.h>
#include <zip.h>

#include <algorithm>
#include <cstring>
#include <cmath>
#include <map>
#include <memory>
#include <set>

namespace vornsr {

namespace {

constexpr uint64_t MAX_CURVE_NUMBER = 999999999;

struct KeyFileDeleter { void operator()(GKeyFile *f) const { g_key_file_free(f); } };
struct StrvDeleter { void operator()(gchar **v) const { g_strfreev(v); } };
struct ZipDiscarder { void operator()(zip_t *z) const { zip_discard(z); } };

bool checkCurve(const CurveData &curve, std::string &error)
{
    if (curve.name.empty()) {
        error = "curve has no name";
        return false;
    }
    if (!g_utf8_validate(curve.name.data(), static_cast<gssize>(curve.name.size()), nullptr)
        || !g_utf8_validate(curve.unit.data(), static_cast<gssize>(curve.unit.size()), nullptr)) {
        error = "curve name or unit is not UTF-8";
        return false;
    }
    if (!std::isfinite(curve.sampleInterval) || !std::isfinite(curve.startTime)) {
        error = "curve '" + curve.name + "' has no finite start time and interval";
        return false;
    }
    if (curve.sampleCount > UINT64_MAX / sizeof(double) || (curve.sampleCount > 0 && !curve.samples)) {
        error = "curve '" + curve.name + "' has no samples";
        return false;
    }
    return true;
}

bool readMember(zip_t *zip, const char *name, std::string &text, std::string &error)
{
    zip_stat_t st;
    if (zip_stat(zip, name, 0, &st) != 0)
        return true; // absent: empty
    if (st.size > (1u << 20)) {
        error = std::string("member ") + name + " too large";
        return false;
    }
    text.assign(st.size, '\0');
    zip_file_t *file = zip_fopen_index(zip, st.index, 0);
    const bool ok = file && zip_fread(file, &text[0], st.size) == static_cast<zip_int64_t>(st.size);
    if (file)
        zip_fclose(file);
    if (!ok)
        error = std::string("member ") + name + " unreadable";
    return ok;
}

void setCurveKeys(GKeyFile *file, const char *group, const CurveData &curve)
{
    g_key_file_set_string(file, group, "name", curve.name.c_str());
    g_key_file_set_string(file, group, "unit", curve.unit.c_str());
    g_key_file_set_value(file, group, "samples", std::to_string(curve.sampleCount).c_str());
    g_key_file_set_value(file, group, "start", formatDouble(curve.startTime).c_str());
    g_key_file_set_value(file, group, "interval", formatDouble(curve.sampleInterval).c_str());
    if (curve.sourceInterval > 0.0)
        g_key_file_set_value(file, group, "source interval", formatDouble(curve.sourceInterval).c_str());
}

std::string keyValue(GKeyFile *file, const char *group, const char *key)
{
    gchar *raw = g_key_file_get_string(file, group, key, nullptr);
    const std::string value = raw ? raw : "";
    g_free(raw);
    return value;
}

// Whether curve number of the archive already holds exactly this curve, so that saving an
// unchanged envelope rewrites nothing.
bool storedAsIs(zip_t *zip, GKeyFile *meta, const char *group, const std::string &member, const CurveData &curve)
{
    if (keyValue(meta, group, "unit") != curve.unit
        || keyValue(meta, group, "samples") != std::to_string(curve.sampleCount)
        || keyValue(meta, group, "start") != formatDouble(curve.startTime)
        || keyValue(meta, group, "interval") != formatDouble(curve.sampleInterval)
        || keyValue(meta, group, "source interval") != (curve.sourceInterval > 0.0 ? formatDouble(curve.sourceInterval) : ""))
        return false;
    const uint64_t bytes = curve.sampleCount * sizeof(double);
    zip_stat_t st;
    if (zip_stat(zip, member.c_str(), 0, &st) != 0 || st.size != bytes)
        return false;
    std::vector<char> stored(bytes + 1);
    zip_file_t *file = zip_fopen_index(zip, st.index, 0);
    const bool read = file && zip_fread(file, stored.data(), bytes + 1) == static_cast<zip_int64_t>(bytes);
    if (file)
        zip_fclose(file);
    return read && (bytes == 0 || std::memcmp(stored.data(), curve.samples, bytes) == 0);
}

// [curve N] as the reader accepts it: N from 1 to MAX_CURVE_NUMBER, no leading zero.
bool parseCurveNumber(const std::string &text, uint64_t &number)
{
    if (text.empty() || text.size() > 9 || text[0] == '0')
        return false;
    return text.find_first_not_of("0123456789") == std::string::npos && parseUnsigned(text, number);
}

// A number the reader reads and no curve has: one above the highest while there is room.
uint64_t unusedCurveNumber(std::set<uint64_t> &used)
{
    uint64_t number = used.empty() ? 1 : *used.rbegin() + 1;
    if (number > MAX_CURVE_NUMBER) {
        number = 1;
        while (used.count(number))
            ++number;
    }
    used.insert(number);
    return number;
}

} // namespace

// libzip rewrites the archive as it reads it. Where its reading differs from ours (a second end
// record inside the comment, names from extra fields, members of equal names), the rewrite could
// change what we never checked, so such an archive is left alone.
bool seenAlike(zip_t *zip, const std::vector<ZipEntry> &entries, std::string &error)
{
    std::set<std::string> names;
    bool alike = zip_get_num_entries(zip, 0) == static_cast<zip_int64_t>(entries.size());
    for (size_t i = 0; alike && i < entries.size(); ++i) {
        const ZipEntry &e = entries[i];
        zip_stat_t st;
        alike = zip_stat_index(zip, i, 0, &st) == 0 && st.name && e.name == st.name && st.size == e.size
                && st.comp_size == e.compressedSize && st.crc == e.crc && names.insert(e.name).second;
    }
    if (!alike)
        error = "the archive's directory can be read in more than one way; it is left as it is";
    return alike;
}

// Puts data under name, replacing a member of that name if there is one.
bool putMember(zip_t *zip, const std::string &name, const void *data, uint64_t size, std::string &error)
{
    zip_source_t *source = zip_source_buffer(zip, data, size, 0);
    if (!source || zip_file_add(zip, name.c_str(), source, ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8) < 0) {
        error = std::string("cannot store ") + name + ": " + zip_strerror(zip);
        if (source)
            zip_source_free(source);
        return false;
    }
    return true;
}

bool deleteMember(zip_t *zip, const std::string &name, std::string &error)
{
    const zip_int64_t index = zip_name_locate(zip, name.c_str(), 0);
    if (index >= 0 && zip_delete(zip, static_cast<zip_uint64_t>(index)) != 0) {
        error = std::string("cannot delete ") + name + ": " + zip_strerror(zip);
        return false;
    }
    return true;
}

bool closeReplacing(zip_t *zip, const std::string &failure, std::string &error)
{
    if (zip_close(zip) != 0) {
        error = failure.empty() ? std::string("cannot write file: ") + zip_strerror(zip) : failure;
        zip_discard(zip);
        return false;
    }
    dropCachedArchive();
    return true;
}

namespace {

bool listed(const std::vector<std::string> &names, const std::string &name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

bool replaceCurves(const std::string &path, const std::vector<std::string> &remove,
                   const std::vector<CurveData> &curves, std::string &error)
{
    return replaceCurves(path, CurveChange{remove, {}, curves, {}}, error);
}

namespace {

// One kind of our sections: "[curve N]" with "vorngraph/curve-N", or "[reference N]" with
// "vorngraph/reference-N".
struct SectionKind
{
    const char *prefix;
    std::string (*member)(uint64_t);
    const std::vector<std::string> &remove;
    const std::vector<CurveData> &curves;
    const std::map<uint64_t, std::string> &offered; // curves: the name each is offered under
};

// Replaces or deletes the sections of one kind named in remove, then adds the curves not placed.
bool applyKind(zip_t *zip, GKeyFile *meta, const SectionKind &kind, bool &changed, std::string &error)
{
    const size_t length = std::strlen(kind.prefix);
    std::vector<bool> placed(kind.curves.size(), false);
    std::set<uint64_t> used;
    std::unique_ptr<gchar *, StrvDeleter> groups(g_key_file_get_groups(meta, nullptr));
    for (gchar **group = groups.get(); *group; ++group) {
        const std::string section = *group;
        uint64_t number = 0;
        if (section.compare(0, length, kind.prefix) != 0 || !parseCurveNumber(section.substr(length), number))
            continue;
        used.insert(number);
        // Only the name a curve is offered under selects it: two curves stored under one name
        // are offered as two, and replacing one must not take the other along.
        const auto shown = kind.offered.find(number);
        const bool readable = shown != kind.offered.end() || length != 6;
        const std::string name = shown != kind.offered.end() ? shown->second : keyValue(meta, *group, "name");
        if (!listed(kind.remove, name))
            continue;
        const auto replacement = std::find_if(kind.curves.begin(), kind.curves.end(),
                                              [&](const CurveData &c) { return c.name == name; });
        const size_t r = static_cast<size_t>(replacement - kind.curves.begin());
        // A section the reader could not read (it offers no curve for it) may hold keys that
        // would hide the new curve as well: it goes, and the curve gets a section of its own.
        if (replacement != kind.curves.end() && !placed[r] && readable) {
            placed[r] = true;
            if (storedAsIs(zip, meta, *group, kind.member(number), *replacement))
                continue;
            changed = true;
            g_key_file_remove_key(meta, *group, "source interval", nullptr);
            setCurveKeys(meta, *group, *replacement);
            if (!putMember(zip, kind.member(number), replacement->samples, replacement->sampleCount * sizeof(double), error))
                return false;
        } else {
            changed = true;
            g_key_file_remove_group(meta, *group, nullptr);
            if (!deleteMember(zip, kind.member(number), error))
                return false;
        }
    }
    for (size_t i = 0; i < kind.curves.size(); ++i) {
        if (placed[i])
            continue;
        changed = true;
        const uint64_t number = unusedCurveNumber(used);
        const std::string group = kind.prefix + std::to_string(number);
        setCurveKeys(meta, group.c_str(), kind.curves[i]);
        if (!putMember(zip, kind.member(number), kind.curves[i].samples, kind.curves[i].sampleCount * sizeof(double), error))
            return false;
    }
    return true;
}

} // namespace

bool replaceCurves(const std::string &path, const CurveChange &change, std::string &error)
{
    const std::vector<CurveData> &curves = change.curves;
    for (const std::vector<CurveData> *list : {&change.curves, &change.references}) {
        for (const CurveData &curve : *list) {
            if (!checkCurve(curve, error))
                return false;
        }
    }
    // The lock spans reading and replacing, so that a concurrent save cannot slip in between.
    const std::unique_ptr<CaptureLock> lock = CaptureLock::acquire(path, error);
    if (!lock)
        return false;
    // Only a capture we can read completely is touched.
    const std::unique_ptr<SrArchive> archive = SrArchive::open(lock->path(), error);
    if (!archive)
        return false;
    // Callers name curves as the reader offers them, which may be a shortened stored name.
    std::map<uint64_t, std::string> offered;
    const std::vector<std::string> offeredList = offeredNames(archive->channels());
    for (size_t i = 0; i < offeredList.size(); ++i) {
        if (archive->channels()[i].kind == Channel::Curve)
            offered[archive->channels()[i].curveNumber] = offeredList[i];
    }
    std::string failure;
    // libzip may write what it reads differently (a size of 0xffffffff, for one): the new file
    // replaces the capture only if it offers the same data channels and every saved curve.
    const auto dataChannels = [](const SrArchive &a) {
        std::vector<std::string> names = offeredNames(a.channels());
        names.resize(static_cast<size_t>(std::count_if(a.channels().begin(), a.channels().end(),
                                                       [](const Channel &c) { return c.kind != Channel::Curve; })));
        return names;
    };
    const auto readsBack = [&](const std::string &written, std::string &reason) {
        std::string why;
        const std::unique_ptr<SrArchive> saved = SrArchive::open(written, why);
        if (saved && dataChannels(*saved) != dataChannels(*archive))
            why = "its channels would differ";
        for (const CurveData &curve : curves) {
            if (saved && why.empty() && !listed(offeredNames(saved->channels()), curve.name))
                why = "'" + curve.name + "' would not be offered";
        }
        if (why.empty())
            return true;
        reason = "the saved capture would not read back: " + why + "; nothing was written";
        return false;
    };
    std::unique_ptr<zip_t, ZipDiscarder> zip(openArchiveForUpdate(*lock, readsBack, failure, error));
    if (!zip || !seenAlike(zip.get(), archive->entries(), error))
        return false;

    std::string oldText;
    if (!readMember(zip.get(), CURVE_METADATA_MEMBER, oldText, error))
        return false;
    std::unique_ptr<GKeyFile, KeyFileDeleter> meta(g_key_file_new());
    if (!oldText.empty()
        && !g_key_file_load_from_data(meta.get(), oldText.data(), oldText.size(),
                                      static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS), nullptr)) {
        error = std::string(CURVE_METADATA_MEMBER) + " unreadable";
        return false;
    }

    bool changed = false;
    const std::map<uint64_t, std::string> none;
    if (!applyKind(zip.get(), meta.get(), {"curve ", curveMemberName, change.removeCurves, curves, offered}, changed, error)
        || !applyKind(zip.get(), meta.get(),
                      {"reference ", referenceMemberName, change.removeReferences, change.references, none}, changed, error))
        return false;
    if (!changed)
        return true;

    gsize length = 0;
    std::unique_ptr<gchar, decltype(&g_free)> text(g_key_file_to_data(meta.get(), &length, nullptr), g_free);
    gsize groupCount = 0;
    g_strfreev(g_key_file_get_groups(meta.get(), &groupCount));
    if (groupCount == 0) {
        if (!deleteMember(zip.get(), CURVE_METADATA_MEMBER, error))
            return false;
    } else if (!putMember(zip.get(), CURVE_METADATA_MEMBER, text.get(), length, error)) {
        return false;
    }

    return closeReplacing(zip.release(), failure, error);
}

} // namespace vornsr
