#include "sigrokcontext.h"
#include "vornacquire.h"

#include <cstdlib>
#include <map>
#include <set>
#include <stdexcept>

namespace {

std::map<sr_dev_driver *, int> &devicesInUse()
{
    static std::map<sr_dev_driver *, int> inUse;
    return inUse;
}

// The driver, initialised once for the context; null when libsigrok has none of that name.
sr_dev_driver *findDriver(const std::string &name)
{
    static std::set<sr_dev_driver *> initialised;
    sr_dev_driver **drivers = sr_driver_list(sigrokContext());
    for (size_t i = 0; drivers && drivers[i]; ++i) {
        if (name != drivers[i]->name)
            continue;
        if (!initialised.count(drivers[i]) && sr_driver_init(sigrokContext(), drivers[i]) != SR_OK)
            return nullptr;
        initialised.insert(drivers[i]);
        return drivers[i];
    }
    return nullptr;
}

bool takesScanOption(const sr_dev_driver *driver, uint32_t key)
{
    GArray *keys = sr_driver_scan_options_list(driver);
    bool found = false;
    for (guint i = 0; keys && i < keys->len; ++i)
        found = found || g_array_index(keys, uint32_t, i) == key;
    if (keys)
        g_array_free(keys, TRUE);
    return found;
}

void freeOptions(GSList *options)
{
    for (GSList *l = options; l; l = l->next) {
        auto *config = static_cast<sr_config *>(l->data);
        g_variant_unref(config->data);
        g_free(config);
    }
    g_slist_free(options);
}

// The devices of "driver:key=value:...", scanned afresh; throws for a bad driver string.
GSList *scan(const std::string &driverText, sr_dev_driver **driver)
{
    const std::vector<std::string> parts = splitAt(driverText, ':');
    *driver = findDriver(parts[0]);
    if (!*driver)
        throw std::runtime_error("no sigrok driver named '" + parts[0] + "'");
    GSList *options = nullptr;
    for (size_t k = 1; k < parts.size(); ++k) {
        const size_t equals = parts[k].find('=');
        const std::string key = parts[k].substr(0, equals);
        const sr_key_info *info = sr_key_info_name_get(SR_KEY_CONFIG, key.c_str());
        if (info && !takesScanOption(*driver, info->key))
            info = nullptr;
        std::string error;
        GVariant *value = info ? sigrokConfigValue(*info, equals == std::string::npos ? "" : parts[k].substr(equals + 1), error)
                               : nullptr;
        if (!value) {
            freeOptions(options);
            throw std::runtime_error(info ? error : parts[0] + " does not take '" + key + "'");
        }
        auto *config = static_cast<sr_config *>(g_malloc0(sizeof(sr_config)));
        config->key = info->key;
        config->data = g_variant_ref_sink(value);
        options = g_slist_append(options, config);
    }
    // A new scan finds the same devices again; forget the old ones unless one is in use.
    if (devicesInUse()[*driver] == 0)
        sr_dev_clear(*driver);
    GSList *devices = sr_driver_scan(*driver, options);
    freeOptions(options);
    return devices;
}

std::string join(const std::vector<std::string> &names)
{
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : ",") + name;
    return text;
}

} // namespace

sr_context *sigrokContext()
{
    static sr_context *context = [] {
        sr_context *c = nullptr;
        sr_log_loglevel_set(SR_LOG_ERR);
        return sr_init(&c) == SR_OK ? c : nullptr;
    }();
    return context;
}

std::mutex &sigrokMutex()
{
    static std::mutex mutex;
    return mutex;
}

sr_dev_inst *sigrokFindDevice(const std::string &driverText, sr_dev_driver **driver, std::string &error)
{
    if (!sigrokContext()) {
        error = "libsigrok cannot start";
        return nullptr;
    }
    GSList *devices = nullptr;
    try {
        devices = scan(driverText, driver);
    } catch (const std::runtime_error &e) {
        error = e.what();
        return nullptr;
    }
    if (!devices) {
        error = "no " + driverText + " device found";
        return nullptr;
    }
    auto *sdi = static_cast<sr_dev_inst *>(devices->data);
    g_slist_free(devices);
    ++devicesInUse()[*driver];
    return sdi;
}

void sigrokRelease(sr_dev_driver *driver, sr_dev_inst *sdi)
{
    sr_dev_close(sdi);
    if (--devicesInUse()[driver] == 0)
        sr_dev_clear(driver);
}

GVariant *sigrokConfigValue(const sr_key_info &key, const std::string &text, std::string &error)
{
    const auto bad = [&]() -> GVariant * {
        error = "'" + text + "' is no value for " + key.id;
        return nullptr;
    };
    uint64_t p = 0, q = 0;
    char *end = nullptr;
    switch (key.datatype) {
    case SR_T_UINT64:
        return sr_parse_sizestring(text.c_str(), &p) == SR_OK ? g_variant_new_uint64(p) : bad();
    case SR_T_INT32: {
        const long v = std::strtol(text.c_str(), &end, 10);
        return !text.empty() && !*end ? g_variant_new_int32(int32_t(v)) : bad();
    }
    case SR_T_STRING:
        return g_variant_new_string(text.c_str());
    case SR_T_BOOL:
        return g_variant_new_boolean(text.empty() || sr_parse_boolstring(text.c_str()));
    case SR_T_FLOAT: {
        const double v = g_ascii_strtod(text.c_str(), &end);
        return !text.empty() && !*end ? g_variant_new_double(v) : bad();
    }
    case SR_T_RATIONAL_PERIOD:
        return sr_parse_period(text.c_str(), &p, &q) == SR_OK ? g_variant_new("(tt)", p, q) : bad();
    case SR_T_RATIONAL_VOLT:
        return sr_parse_voltage(text.c_str(), &p, &q) == SR_OK ? g_variant_new("(tt)", p, q) : bad();
    case SR_T_DOUBLE_RANGE: {
        const double low = g_ascii_strtod(text.c_str(), &end);
        if (end == text.c_str() || *end != '-')
            return bad();
        const char *second = end + 1;
        const double high = g_ascii_strtod(second, &end);
        return end != second && !*end ? g_variant_new("(dd)", low, high) : bad();
    }
    default:
        error = std::string("setting ") + key.id + " is not supported";
        return nullptr;
    }
}

std::vector<DeviceDescription> scanDevices(const std::string &driverText)
{
    std::lock_guard<std::mutex> lock(sigrokMutex());
    if (!sigrokContext())
        throw std::runtime_error("libsigrok cannot start");
    std::vector<std::string> driverNames;
    if (!driverText.empty()) {
        driverNames.push_back(driverText);
    } else {
        sr_dev_driver **drivers = sr_driver_list(sigrokContext());
        for (size_t i = 0; drivers && drivers[i]; ++i)
            driverNames.push_back(drivers[i]->name);
    }
    std::vector<DeviceDescription> found;
    for (const std::string &s : driverNames) {
        sr_dev_driver *driver = nullptr;
        GSList *devices = scan(s, &driver);
        for (GSList *l = devices; l; l = l->next) {
            auto *sdi = static_cast<sr_dev_inst *>(l->data);
            DeviceDescription device;
            device.driver = driver->name;
            for (const char *part : {sr_dev_inst_vendor_get(sdi), sr_dev_inst_model_get(sdi), sr_dev_inst_version_get(sdi)}) {
                if (part && *part)
                    device.name += (device.name.empty() ? "" : " ") + std::string(part);
            }
            if (const char *conn = sr_dev_inst_connid_get(sdi))
                device.connection = conn;
            for (const GSList *c = sr_dev_inst_channels_get(sdi); c; c = c->next)
                device.channels.push_back(static_cast<sr_channel *>(c->data)->name);
            for (const GSList *g = sr_dev_inst_channel_groups_get(sdi); g; g = g->next) {
                const auto *group = static_cast<sr_channel_group *>(g->data);
                std::vector<std::string> members;
                for (const GSList *c = group->channels; c; c = c->next)
                    members.push_back(static_cast<sr_channel *>(c->data)->name);
                device.groups.push_back(std::string(group->name) + " (" + join(members) + ")");
            }
            found.push_back(std::move(device));
        }
        g_slist_free(devices);
        if (devicesInUse()[driver] == 0)
            sr_dev_clear(driver);
    }
    return found;
}

std::vector<std::string> splitAt(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    size_t first = 0;
    for (size_t at; (at = text.find(separator, first)) != std::string::npos; first = at + 1)
        parts.push_back(text.substr(first, at - first));
    parts.push_back(text.substr(first));
    return parts;
}
