#ifndef VORNACQUIRE_H
#define VORNACQUIRE_H

// Acquisition from any sigrok device: each acquisition as the same records the file reader gives
// (analog channels in volts, then logic probes as 0.0/1.0, interval 1 / samplerate, start 0).

#include "vornwaveform.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// What to acquire from, in sigrok-cli's words.
struct DeviceOptions
{
    struct Setting
    {
        std::string group; // a channel group, or empty for the device
        std::string key;   // "samplerate", "amplitude", ...
        std::string value; // "1M", "9", ...
    };
    std::string driver; // "demo" or "rigol-ds:conn=usb"
    std::vector<Setting> settings;
    std::vector<std::string> channels; // empty: the device's enabled channels
    uint64_t samples = 0;
    uint64_t frames = 0;
    double time = 0.0; // seconds
};

// Parses sigrok-cli's device arguments (--config, --channel-group, --channels, --samples, --frames,
// --time) at args[i], advancing i past them; false when args[i] is none of them. A
// --channel-group stays in group for every --config after it, as in sigrok-cli. Throws
// std::invalid_argument with a message for a bad value.
bool parseDeviceArgument(const std::vector<std::string> &args, size_t &i, DeviceOptions &options,
                         std::string &group);

struct Acquisition
{
    uint64_t samplerate = 0;
    size_t analogCount = 0; // waveforms[0 .. analogCount - 1] are analog, the rest logic probes
    std::vector<WaveformData> waveforms;
};

// Stores the acquisition as a session file sigrok-cli and PulseView open, then each envelope of
// envelopes (by waveform name) beside its waveform; false with the reason when it cannot.
bool saveAcquisition(const std::string &path, const Acquisition &acquisition,
                     const std::vector<std::pair<QString, EnvelopeData>> &envelopes, std::string *error);

struct DeviceDescription
{
    std::string driver;
    std::string name;       // vendor and model
    std::string connection; // empty where the driver has none
    std::vector<std::string> channels;
    std::vector<std::string> groups;
};

// The devices the driver finds ("demo", "rigol-ds:conn=usb"), or every driver's when driver is
// empty. Throws std::runtime_error for a driver that does not exist.
std::vector<DeviceDescription> scanDevices(const std::string &driver);

// One opened device, acquiring one acquisition at a time in the calling thread. The thread that
// opens it acquires with it; stop() may come from any thread.
class SigrokDevice
{
public:
    SigrokDevice();
    ~SigrokDevice();
    SigrokDevice(const SigrokDevice &) = delete;
    SigrokDevice &operator=(const SigrokDevice &) = delete;

    // Finds the first device of the driver, opens it and applies the options; false with the
    // reason in error() for no such driver, no device, or a key or channel it does not take.
    bool open(const DeviceOptions &options);
    // One acquisition; false with the reason when the device fails, gives nothing within its
    // timeout, or stop() came first.
    bool acquire(Acquisition &acquisition);
    // Ends an acquire() in progress (it then returns false) and every later one.
    void stop();
    bool stopped() const { return m_stopRequested; }
    const std::string &error() const { return m_error; }
    const std::string &name() const { return m_name; } // the driver's name, for messages
    // Seconds an acquisition may take before it fails: from its length, at least 5.
    double timeout() const;
    // How far the acquisition running has come.
    struct Progress
    {
        uint64_t samples = 0; // per channel
        uint64_t frames = 0;  // complete ones
        double seconds = 0.0; // of signal: samples / samplerate
    };
    // Told on the acquiring thread after each packet. Set before acquiring.
    void setProgress(std::function<void(const Progress &)> progress);

private:
    struct Private;
    std::unique_ptr<Private> d;
    std::string m_error;
    std::string m_name;
    std::atomic<bool> m_stopRequested{false};
};

// Acquires on a thread of its own into a queue of a few acquisitions, so that the consumer judges
// acquisition k while k + 1 is acquired. The producer waits while the queue is full: acquisitions
// are never dropped.
class AcquisitionLoop
{
public:
    explicit AcquisitionLoop(size_t depth = 3);
    ~AcquisitionLoop();

    // Opens the device on the loop's thread and acquires count acquisitions (0: until stopped).
    // False, with the reason, when the device cannot be opened.
    bool start(const DeviceOptions &options, uint64_t count);
    // Progress of acquisition k (from 0) as SigrokDevice::setProgress tells it, on the loop's
    // thread. Set before start().
    void setProgress(std::function<void(uint64_t k, const SigrokDevice::Progress &)> progress);
    // The next acquisition, waiting for it; false once the loop ended (stopped, count reached or a
    // device error, whose reason error() then tells).
    bool next(Acquisition &acquisition);
    void stop();
    std::string error() const;
    // Seconds the device spent acquiring, for the share that judging took.
    double acquiringSeconds() const;

private:
    void run(uint64_t count);
    void finish(const std::string &error);

    size_t m_depth;
    SigrokDevice m_device;
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Acquisition> m_queue;
    std::atomic<uint64_t> m_acquisition{0}; // the one being acquired
    bool m_finished = false;
    std::string m_error;
    double m_acquiring = 0.0;
};

#endif
