#ifndef SIGROKCONTEXT_H
#define SIGROKCONTEXT_H

// The process's one libsigrok context and what finds devices in it. libsigrok keeps its drivers'
// device lists in globals, so scanning, opening and closing hold sigrokMutex().

#include <libsigrok/libsigrok.h>

#include <mutex>
#include <string>
#include <vector>

sr_context *sigrokContext();
std::mutex &sigrokMutex();

// The first device the driver string ("demo", "rigol-ds:conn=usb") finds, not yet opened; null with
// the reason in error when the driver does not exist or finds none.
// "a:b:c" split at every separator: {"a", "b", "c"}; empty parts are kept.
std::vector<std::string> splitAt(const std::string &text, char separator);

sr_dev_inst *sigrokFindDevice(const std::string &driverText, sr_dev_driver **driver, std::string &error);
// Closes the device; the driver forgets its devices once none of them is in use.
void sigrokRelease(sr_dev_driver *driver, sr_dev_inst *sdi);

// text as a value of the key's type, read the way sigrok-cli reads it ("1M", "on", "10ms");
// null with the reason in error.
GVariant *sigrokConfigValue(const sr_key_info &key, const std::string &text, std::string &error);

#endif
