// SPDX-License-Identifier: ISC
// Estimates the chance that a repeater's attempt succeeds. Progress events change the estimate.
#pragma once

namespace kelm {

// Progress steps. They are indices of the table of weights.
enum kelm_eap_step : int {
    EAP_STEP_START = 0,
    EAP_STEP_PBC_FOUND = 1,
    EAP_STEP_KEY_SWAPPED = 3,
    EAP_STEP_M2D = 4,
    EAP_STEP_PIN_CHECKED = 8,
    EAP_STEP_SUCCESS = 11,
};
constexpr int EAP_STEP_COUNT = 12;

constexpr int PREDICT_GIVE_UP_PERCENT = 15;  // below this the main loop ends the attempt

// Stores the band's score if it is 0 to 100. Any other score, and a bad band, is ignored.
void kelm_push_score(int band, int score);

// Stores a progress step as the band's latest. The one that was the latest becomes the previous
// one. A step of EAP_STEP_COUNT or more is ignored. A negative step is stored; the evaluation then
// gives the score 0.
void kelm_push_eap_status(int band, int step);

// Whether a band that still runs has taken a step since its chance was last computed.
bool kelm_has_unused_step();

// Sets a band back to the start: no steps, and score 50. A band that runs no exchange of its own
// gets score 0. A bad band is logged.
void reset_wps_band_predict_score(int band);

// Evaluates one band and returns its new score in percent. Without progress the score loses 15
// percent of itself. Logs the score at level 7. 0 for a bad band (logged).
int get_wps_band_predict_score(int band);

// Returns the chance that at least one launched and unfinished band succeeds, in percent. Evaluates
// each of these bands. Logs the chance at level 4.
int get_wps_predict_score();

}  // namespace kelm
