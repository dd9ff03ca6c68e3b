#ifndef WAVEFORM_SIGROK_H
#define WAVEFORM_SIGROK_H

/*
 * Reads the waveforms of a sigrok session file (.sr): every analog channel,
 * then every named logic probe, then the envelope curves stored beside them.
 * Paths are UTF-8. Every function returns 0 on success; after a failure
 * sigrok_get_last_error() tells why.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SigrokWaveformInfo {
    uint64_t sampleCount;
    double sampleInterval; /* seconds */
    double startTime;      /* seconds, time of sample 0 */
    char name[128];        /* NUL-terminated UTF-8 */
    char unit[40];         /* NUL-terminated UTF-8 */
} SigrokWaveformInfo;

int sigrok_read_waveform_count(const char *path, int32_t *count);
int sigrok_read_waveform_info_by_index(const char *path, int32_t index, SigrokWaveformInfo *info);
/* Fills samples[0 .. sampleCount-1]; sampleCount may be less than the waveform's. */
int sigrok_read_waveform_data_by_index(const char *path, int32_t index, double *samples,
                                       uint64_t sampleCount);
/* Told how many of a read's total samples are in place; returns 0 to go on, anything else to
 * cancel the read. Called between the file's chunks, one call at a time, from the reading threads. */
typedef int (*SigrokReadProgress)(void *context, uint64_t done, uint64_t total);
/* The status of a read that its progress function cancelled. */
#define SIGROK_READ_CANCELLED 1
/* sigrok_read_waveform_data_by_index() telling progress (when not NULL) how far it came; a read
 * it cancels returns SIGROK_READ_CANCELLED with the samples partly filled. */
int sigrok_read_waveform_data_by_index_progress(const char *path, int32_t index, double *samples,
                                                uint64_t sampleCount, SigrokReadProgress progress,
                                                void *context);
/* The envelope curves stored in the file that could not be read, one line each saying where
 * and why; an empty text when every curve was read, NULL when the file cannot be opened.
 * Valid until the next call in this thread. */
const char *sigrok_read_unreadable_curves(const char *path);
/* Reason of the last failure in this thread; valid until the next call. */
const char *sigrok_get_last_error(void);

#ifdef __cplusplus
}
static_assert(sizeof(SigrokWaveformInfo) == 192, "the info record is a fixed 192-byte layout");
#endif

#endif
