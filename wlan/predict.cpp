// SPDX-License-Identifier: ISC
// The weights of the progress steps, and how the estimate is computed from them.
#include "wlan/predict.h"

#include <cstdint>
#include <ctime>

#include "core/log.h"
#include "core/session.h"

namespace kelm {

namespace {

constexpr int START_PERCENT = 50;
constexpr int KEPT_PERCENT = 85;  // this part of the chance stays when a pass brings no progress

// One weight for each progress step. A registrar's refusal (EAP_STEP_M2D) weighs next to nothing,
// though it comes late in an exchange. If its weight were between the weights beside it, a refused
// band would look like one that gets on well. Then the attempt would run into the time-out.
constexpr int32_t wps_eap_status_weight[EAP_STEP_COUNT] = {
    30, 50, 60, 70, 5, 75, 80, 85, 90, 95, 100, 100,
};

bool _is_step(int step)
{
    return step >= 0 && step < EAP_STEP_COUNT;
}

int _clamp_percent(int value)
{
    if (value > 100)
        return 100;
    return value < 0 ? 0 : value;
}

// The multiplication comes first, so that the division loses less than one percent. The division
// cuts towards zero.
int _moved_score(int score, int weight, int previous_weight)
{
    return _clamp_percent(score * (weight - previous_weight + KEPT_PERCENT) / 100);
}

bool _counts(int band)
{
    return kelm_get_band_inited(band) != 0 && kelm_is_worker_done(band) == 0;
}

// The chance that at least one of two things happens. They are taken as independent.
int _either(int total, int score)
{
    return total + score - (total * score) / 100;
}

}  // namespace

void kelm_push_score(int band, int score)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session != nullptr && score >= 0 && score <= 100)
        session->wps_score = score;
}

void kelm_push_eap_status(int band, int step)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr || step >= EAP_STEP_COUNT)
        return;
    session->pre_eap_status = session->eap_status;
    session->eap_status = step;
}

bool kelm_has_unused_step()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        const kelm_session *session = kelm_get_wps_session(band);
        if (_counts(band) && session->eap_status != session->pre_eap_status)
            return true;
    }
    return false;
}

void reset_wps_band_predict_score(int band)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return;
    }
    session->eap_status = EAP_STEP_START;
    session->pre_eap_status = EAP_STEP_START;
    // A band without an exchange of its own has no events that could lower its chance. With score 0
    // it never raises the chance of the others, and it keeps no hopeless attempt alive.
    const bool mirrors_only =
        band == KELM_BAND_6G || (session->wps_flags & WPS_FLAG_STAWPS_FAKEUP) != 0;
    session->wps_score = mirrors_only ? 0 : START_PERCENT;
}

int get_wps_band_predict_score(int band)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return 0;
    }
    if (!_is_step(session->pre_eap_status) || !_is_step(session->eap_status))
        return 0;

    const int before = session->wps_score;
    const int weight = wps_eap_status_weight[session->eap_status];
    const int previous_weight = wps_eap_status_weight[session->pre_eap_status];
    const int score = _moved_score(before, weight, previous_weight);
    // The text shows the formula loosely. It stays as it is, since readers of the log look for it.
    kelm_log_detail(
        "wps predict rate [band%d]=%d (newrate[%d] = prerate[%d] * (85 + (stat[%d] - prestat[%d]) "
        "/ 100)\n",
        band, score, score, before, weight, previous_weight);
    kelm_push_score(band, score);
    kelm_push_eap_status(band, session->eap_status);  // so a step counts only once
    return score;
}

int get_wps_predict_score()
{
    int total = 0;
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (_counts(band))
            total = _either(total, get_wps_band_predict_score(band));
    }
    kelm_log_normal(
        "*****************************[WPS predict %d] %d percent "
        "***********************************\n",
        static_cast<int>(time(nullptr)), total);
    return total;
}

}  // namespace kelm
