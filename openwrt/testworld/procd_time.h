/* SPDX-License-Identifier: ISC */
/* Timers of the loop: each has a moment, and is off while that is 0. */
#ifndef TESTWORLD_PROCD_TIME_H
#define TESTWORLD_PROCD_TIME_H

#include <stdbool.h>
#include <time.h>

typedef long procd_time_t; /* milliseconds of a clock that nobody sets; 0: never */

static inline procd_time_t procd_now(void)
{
    struct timespec now;

    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* Whether it is over; it is off then. */
static inline bool procd_time_is_up(procd_time_t *moment, procd_time_t now)
{
    bool up = *moment != 0 && *moment <= now;

    if (up)
        *moment = 0;
    return up;
}

/* The earlier of two moments. */
static inline procd_time_t procd_earlier(procd_time_t one, procd_time_t other)
{
    if (one == 0 || other == 0)
        return one + other;
    return one < other ? one : other;
}

#endif
