// One sigrok device over libsigrok's C API: found by its driver string, configured with
// sigrok-cli's option words, and run one acquisition per session start.

#include "sigrokcontext.h"
#include "vornacquire.h"

#include <algorithm>
#include <cmath>
#include <cstring>

struct SigrokDevice::Private
{
    sr_dev_driver *driver = nullptr;
    sr_dev_inst *sdi = nullptr;
    sr_session *session = nullptr;
    DeviceOptions options;
    std::vector<sr_channel *> analogChannels; // enabled, in the device's order
    std::vector<sr_channel *> logicChannels;
    // The acquisition being gathered.
    uint64_t samplerate = 0;
    std::vector<std::vector<double>> analog;
    std::vector<float> floats;
    std::vector<uint8_t> logic;
    unsigned unitsize = 0;
    bool timedOut = false;
    std::string feedError;
    uint64_t frames = 0;
    std::function<void(const SigrokDevice::Progress &)> progress;

    static void onPacket(const sr_dev_inst *, const sr_datafeed_packet *packet, void *data);
    void onAnalog(const sr_datafeed_analog &analog);
    void onLogic(const sr_datafeed_logic &logic);
    static gboolean onTimeout(void *data);
    bool applySetting(const DeviceOptions::Setting &setting, std::string &error);
    bool applyLimits(std::string &error);
    bool chooseChannels(std::string &error);
    Acquisition take();
    uint64_t gathered() const;
};

void SigrokDevice::Private::onPacket(const sr_dev_inst *, const sr_datafeed_packet *packet, void *data)
{
    auto *d = static_cast<Private *>(data);
    switch (packet->type) {
    case SR_DF_META:
        for (const GSList *l = static_cast<const sr_datafeed_meta *>(packet->payload)->config; l; l = l->next) {
            const auto *config = static_cast<const sr_config *>(l->data);
            if (config->key == SR_CONF_SAMPLERATE)
                d->samplerate = g_variant_get_uint64(config->data);
        }
        return;
    case SR_DF_ANALOG:
        d->onAnalog(*static_cast<const sr_datafeed_analog *>(packet->payload));
        break;
    case SR_DF_LOGIC:
        d->onLogic(*static_cast<const sr_datafeed_logic *>(packet->payload));
        break;
    case SR_DF_FRAME_END:
        ++d->frames;
        break;
    default:
        return;
    }
    if (d->progress) {
        const uint64_t samples = d->gathered();
        d->progress({samples, d->frames, d->samplerate ? double(samples) / double(d->samplerate) : 0.0});
    }
}

// Channels arrive in separate packets: the one furthest on tells how far the acquisition is.
uint64_t SigrokDevice::Private::gathered() const
{
    uint64_t samples = unitsize ? logic.size() / unitsize : 0;
    for (const std::vector<double> &channel : analog)
        samples = std::max<uint64_t>(samples, channel.size());
    return samples;
}

// A packet may carry several channels, its samples interleaved.
void SigrokDevice::Private::onAnalog(const sr_datafeed_analog &packet)
{
    const size_t channels = g_slist_length(packet.meaning->channels);
    floats.resize(size_t(packet.num_samples) * channels);
    if (channels == 0 || sr_analog_to_float(&packet, floats.data()) != SR_OK) {
        feedError = "an analog packet that cannot be read";
        return;
    }
    size_t c = 0;
    for (const GSList *l = packet.meaning->channels; l; l = l->next, ++c) {
        const auto it = std::find(analogChannels.begin(), analogChannels.end(), static_cast<sr_channel *>(l->data));
        if (it == analogChannels.end())
            continue;
        std::vector<double> &out = analog[size_t(it - analogChannels.begin())];
        for (size_t i = 0; i < packet.num_samples; ++i)
            out.push_back(floats[i * channels + c]);
    }
}

void SigrokDevice::Private::onLogic(const sr_datafeed_logic &packet)
{
    if (logicChannels.empty() || packet.unitsize == 0)
        return;
    if (unitsize != 0 && unitsize != packet.unitsize) {
        feedError = "logic packets of changing width";
        return;
    }
    unitsize = packet.unitsize;
    const auto *bytes = static_cast<const uint8_t *>(packet.data);
    logic.insert(logic.end(), bytes, bytes + packet.length);
}

gboolean SigrokDevice::Private::onTimeout(void *data)
{
    auto *d = static_cast<Private *>(data);
    d->timedOut = true;
    sr_session_stop(d->session);
    return G_SOURCE_REMOVE;
}

// Logic probes unpacked by their bit in each sample, which is their channel index.
Acquisition SigrokDevice::Private::take()
{
    Acquisition a;
    a.samplerate = samplerate;
    a.analogCount = analogChannels.size();
    const auto record = [&](const char *name, const char *unit) {
        WaveformData w;
        w.name = QString::fromUtf8(name);
        w.unit = QString::fromUtf8(unit);
        w.sampleInterval = 1.0 / double(samplerate);
        return w;
    };
    for (size_t k = 0; k < analogChannels.size(); ++k) {
        a.waveforms.push_back(record(analogChannels[k]->name, "V"));
        a.waveforms.back().samples.writable() = std::move(analog[k]);
    }
    const size_t count = unitsize ? logic.size() / unitsize : 0;
    for (sr_channel *channel : logicChannels) {
        a.waveforms.push_back(record(channel->name, ""));
        std::vector<double> &out = a.waveforms.back().samples.writable();
        out.resize(count);
        const unsigned byte = unsigned(channel->index) / 8, bit = unsigned(channel->index) % 8;
        if (byte >= unitsize)
            continue;
        for (size_t i = 0; i < count; ++i)
            out[i] = (logic[i * unitsize + byte] >> bit) & 1U;
    }
    return a;
}

bool SigrokDevice::Private::applySetting(const DeviceOptions::Setting &s, std::string &error)
{
    const std::string where = s.group.empty() ? "" : " in channel group " + s.group;
    const sr_channel_group *group = nullptr;
    if (!s.group.empty()) {
        for (const GSList *l = sr_dev_inst_channel_groups_get(sdi); l; l = l->next) {
            if (s.group == static_cast<const sr_channel_group *>(l->data)->name)
                group = static_cast<const sr_channel_group *>(l->data);
        }
        if (!group) {
            error = driver->name + std::string(" has no channel group '") + s.group + "'";
            return false;
        }
    }
    const sr_key_info *info = sr_key_info_name_get(SR_KEY_CONFIG, s.key.c_str());
    if (!info || !(sr_dev_config_capabilities_list(sdi, group, int(info->key)) & SR_CONF_SET)) {
        error = driver->name + std::string(" does not take '") + s.key + "'" + where;
        return false;
    }
    GVariant *value = sigrokConfigValue(*info, s.value, error);
    if (!value)
        return false;
    const int code = sr_config_set(sdi, group, info->key, value);
    if (code != SR_OK) {
        error = driver->name + std::string(" refused ") + s.key + "=" + s.value + where + ": " + sr_strerror(code);
        return false;
    }
    return true;
}

bool SigrokDevice::Private::applyLimits(std::string &error)
{
    const auto set = [&](uint32_t key, uint64_t value, const char *word) {
        if (!(sr_dev_config_capabilities_list(sdi, nullptr, int(key)) & SR_CONF_SET)) {
            error = driver->name + std::string(" does not take '") + word + "'";
            return false;
        }
        if (sr_config_set(sdi, nullptr, key, g_variant_new_uint64(value)) != SR_OK) {
            error = driver->name + std::string(" refused ") + word + "=" + std::to_string(value);
            return false;
        }
        return true;
    };
    if (options.samples)
        return set(SR_CONF_LIMIT_SAMPLES, options.samples, "samples");
    if (options.frames)
        return set(SR_CONF_LIMIT_FRAMES, options.frames, "frames");
    if (options.time > 0.0)
        return set(SR_CONF_LIMIT_MSEC, uint64_t(std::ceil(options.time * 1000.0)), "time");
    error = "give the length of an acquisition: --samples, --frames or --time";
    return false;
}

bool SigrokDevice::Private::chooseChannels(std::string &error)
{
    GSList *all = sr_dev_inst_channels_get(sdi);
    for (const std::string &name : options.channels) {
        const GSList *l = all;
        while (l && name != static_cast<sr_channel *>(l->data)->name)
            l = l->next;
        if (!l) {
            error = driver->name + std::string(" has no channel '") + name + "'";
            return false;
        }
    }
    for (GSList *l = all; l; l = l->next) {
        auto *channel = static_cast<sr_channel *>(l->data);
        if (!options.channels.empty()) {
            const bool wanted = std::find(options.channels.begin(), options.channels.end(), channel->name)
                                != options.channels.end();
            sr_dev_channel_enable(channel, wanted);
        }
        if (channel->enabled)
            (channel->type == SR_CHANNEL_ANALOG ? analogChannels : logicChannels).push_back(channel);
    }
    analog.resize(analogChannels.size());
    if (analogChannels.empty() && logicChannels.empty()) {
        error = driver->name + std::string(" has no channel enabled");
        return false;
    }
    return true;
}

SigrokDevice::SigrokDevice() : d(std::make_unique<Private>()) {}

SigrokDevice::~SigrokDevice()
{
    std::lock_guard<std::mutex> lock(sigrokMutex());
    if (d->session)
        sr_session_destroy(d->session);
    if (d->sdi)
        sigrokRelease(d->driver, d->sdi);
}

bool SigrokDevice::open(const DeviceOptions &options)
{
    std::lock_guard<std::mutex> lock(sigrokMutex());
    d->options = options;
    m_name = options.driver.substr(0, options.driver.find(':'));
    d->sdi = sigrokFindDevice(options.driver, &d->driver, m_error);
    if (!d->sdi)
        return false;
    if (sr_dev_open(d->sdi) != SR_OK) {
        m_error = "cannot open the " + m_name + " device";
        sigrokRelease(d->driver, d->sdi);
        d->sdi = nullptr;
        return false;
    }
    for (const DeviceOptions::Setting &s : options.settings) {
        if (!d->applySetting(s, m_error))
            return false;
    }
    if (!d->applyLimits(m_error) || !d->chooseChannels(m_error))
        return false;
    if (sr_session_new(sigrokContext(), &d->session) != SR_OK || sr_session_dev_add(d->session, d->sdi) != SR_OK
        || sr_session_datafeed_callback_add(d->session, &Private::onPacket, d.get()) != SR_OK) {
        m_error = "cannot start a session with " + m_name;
        return false;
    }
    return true;
}

double SigrokDevice::timeout() const
{
    GVariant *value = nullptr;
    uint64_t rate = 0;
    if (d->sdi && sr_config_get(d->driver, d->sdi, nullptr, SR_CONF_SAMPLERATE, &value) == SR_OK) {
        rate = g_variant_get_uint64(value);
        g_variant_unref(value);
    }
    double length = d->options.time;
    if (d->options.samples && rate)
        length = double(d->options.samples) / double(rate);
    return std::max(5.0, std::ceil(3.0 * length + 2.0));
}

bool SigrokDevice::acquire(Acquisition &acquisition)
{
    if (!d->session) {
        m_error = "no device is open";
        return false;
    }
    if (m_stopRequested) {
        m_error = "stopped";
        return false;
    }
    // Room for the whole acquisition up front: growing it packet by packet would copy it many times.
    for (auto &samples : d->analog) {
        samples.clear();
        samples.reserve(d->options.samples);
    }
    d->logic.clear();
    d->unitsize = 0;
    d->timedOut = false;
    d->feedError.clear();
    d->frames = 0;
    GVariant *rate = nullptr;
    d->samplerate = 0;
    if (sr_config_get(d->driver, d->sdi, nullptr, SR_CONF_SAMPLERATE, &rate) == SR_OK) {
        d->samplerate = g_variant_get_uint64(rate);
        g_variant_unref(rate);
    }

    // The session runs its loop on this thread's own context, which also carries the timeout.
    const double seconds = timeout();
    GMainContext *context = g_main_context_new();
    g_main_context_push_thread_default(context);
    int code = sr_session_start(d->session);
    if (code == SR_OK) {
        GSource *timer = g_timeout_source_new(guint(seconds * 1000));
        g_source_set_callback(timer, &Private::onTimeout, d.get(), nullptr);
        g_source_attach(timer, context);
        if (m_stopRequested)
            sr_session_stop(d->session);
        code = sr_session_run(d->session);
        g_source_destroy(timer);
        g_source_unref(timer);
    }
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);

    if (code != SR_OK) {
        m_error = m_name + " failed to acquire: " + sr_strerror(code);
        return false;
    }
    if (m_stopRequested) {
        m_error = "stopped";
        return false;
    }
    if (d->timedOut) {
        m_error = "no data from " + m_name + " for " + std::to_string(int(seconds)) + " s";
        return false;
    }
    if (!d->feedError.empty()) {
        m_error = m_name + " sent " + d->feedError;
        return false;
    }
    if (d->samplerate == 0) {
        m_error = m_name + " gave no sample rate";
        return false;
    }
    acquisition = d->take();
    const bool empty = std::all_of(acquisition.waveforms.begin(), acquisition.waveforms.end(),
                                   [](const WaveformData &w) { return w.samples->empty(); });
    if (empty) {
        m_error = "no data from " + m_name;
        return false;
    }
    return true;
}

void SigrokDevice::setProgress(std::function<void(const Progress &)> progress)
{
    d->progress = std::move(progress);
}

void SigrokDevice::stop()
{
    m_stopRequested = true;
    if (d->session)
        sr_session_stop(d->session);
}
