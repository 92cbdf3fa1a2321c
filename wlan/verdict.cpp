// SPDX-License-Identifier: ISC
// Decides whether a band has succeeded: for the log, for the user and for the exit path.
#include "wlan/verdict.h"

#include "core/log.h"
#include "core/session.h"

namespace kelm {

namespace {

constexpr int QM_LEVEL = 3;

int32_t band_worker_succeed[KELM_BAND_COUNT];

}  // namespace

void set_band_worker_succeed(int band, int32_t value)
{
    if (kelm_is_band(band))
        band_worker_succeed[band] = value;
}

int32_t get_band_worker_succeed(int band)
{
    return kelm_is_band(band) ? band_worker_succeed[band] : 0;
}

bool kelm_is_worker_succeed(int band, bool report)
{
    if (!kelm_is_band(band)) {
        kelm_log_bad_band(band);
        return false;
    }
    const int status = kelm_get_status(band);
    const char *name = bandname[band];
    if (status == WPS_STATUS_SUCCESS) {
        if (report) {
            kelm_log_normal("%s wps_monitor succeed.\n", name);
            qm_syslog(QM_LEVEL, 1, "%s WPS succeeded.", name);
        }
        band_worker_succeed[band] = 1;
        return true;
    }
    if (report && status == WPS_STATUS_TIMEOUT)
        qm_syslog(QM_LEVEL, 0, "%s WPS timed out. Failed to receive WPS message from the RootAP.",
                  name);
    if (report) {
        kelm_log_normal("%s wps_monitor failed.\n", name);
        qm_syslog(QM_LEVEL, 0, "%s WPS failed.", name);
    }
    band_worker_succeed[band] = 0;
    return false;
}

}  // namespace kelm
