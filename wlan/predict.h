// SPDX-License-Identifier: ISC
// The estimate of a repeater attempt's chance of success, moved by progress events.
#pragma once

namespace kelm {

// Progress steps: indices of the weight table.
enum kelm_eap_step : int {
    EAP_STEP_START = 0,
    EAP_STEP_PBC_FOUND = 1,
    EAP_STEP_KEY_SWAPPED = 3,
    EAP_STEP_M2D = 4,
    EAP_STEP_PIN_CHECKED = 8,
    EAP_STEP_SUCCESS = 11,
};
constexpr int EAP_STEP_COUNT = 12;

constexpr int PREDICT_GIVE_UP_PERCENT = 15;  // below it the main loop ends the attempt

// Stores the band's score when it is 0 to 100.
void kelm_push_score(int band, int score);

// Shifts a progress step below EAP_STEP_COUNT into the band's last two. Negative ones pass here;
// the evaluation refuses them.
void kelm_push_eap_status(int band, int step);

// Whether a band that still runs has taken a step since its chance was last worked out.
bool kelm_has_unused_step();

// Back to the start: steps 0, score 50, or 0 for bands that run no exchange of their own.
void reset_wps_band_predict_score(int band);

// One evaluation step of a band, in percent: no progress costs 15 percent of the score.
int get_wps_band_predict_score(int band);

// The chance that at least one launched and unfinished band succeeds, in percent. Evaluates each of
// them.
int get_wps_predict_score();

}  // namespace kelm
