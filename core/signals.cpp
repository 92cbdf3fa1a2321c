// SPDX-License-Identifier: ISC
// Blocks the daemon's signals until the main loop waits, and divides the time after SIGTERM.
#include "core/signals.h"

#include <ctime>

#include <sys/signalfd.h>

namespace kelm {

kelm_ending_state kelm_ending;

namespace {

constexpr int HELD_SIGNALS[] = {SIGUSR1, SIGUSR2, SIGTERM, SIG_NEW_CONFIG};
// By default each of these ends the process. The attempt would be lost, and the pid file that is
// left would prevent every later start.
constexpr int UNHEARD_SIGNALS[] = {SIGHUP, SIGINT, SIGPIPE};

void _note_ending()
{
    if (kelm_ending.seen)
        return;
    kelm_ending.seen = true;
    kelm_ending.since_ms = kelm_monotonic_ms();
}

}  // namespace

void kelm_hold_back_signals()
{
    sigset_t held;
    sigemptyset(&held);
    for (int number : HELD_SIGNALS)
        sigaddset(&held, number);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
}

void kelm_claim_signals()
{
    // The bus library installs a handler for SIGTERM if it finds the default one, and it may look
    // at any moment. The handler here is never called. It shows the library that somebody owns
    // SIGTERM.
    struct sigaction taken = {};
    taken.sa_handler = [](int) {};
    sigaction(SIGTERM, &taken, nullptr);
    // Handlers that do nothing here too: the library installs its own handler for SIGINT if it
    // finds the default one.
    taken.sa_flags = SA_RESTART;
    for (int number : UNHEARD_SIGNALS)
        sigaction(number, &taken, nullptr);

    kelm_hold_back_signals();
}

void kelm_wait_mask(sigset_t *mask)
{
    pthread_sigmask(SIG_BLOCK, nullptr, mask);
    for (int number : HELD_SIGNALS)
        sigdelset(mask, number);
}

int64_t kelm_monotonic_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool kelm_is_ending()
{
    sigset_t waiting;
    sigemptyset(&waiting);
    if (!kelm_ending.seen && sigpending(&waiting) == 0 && sigismember(&waiting, SIGTERM) == 1)
        _note_ending();
    return kelm_ending.seen;
}

void kelm_begin_closing()
{
    _note_ending();
    kelm_ending.closing = true;
}

unique_fd kelm_watch_sigterm()
{
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGTERM);
    return unique_fd(::signalfd(-1, &watched, SFD_NONBLOCK | SFD_CLOEXEC));
}

ending_wait::ending_wait(int part) : has_end_(kelm_is_ending())
{
    if (!has_end_)
        return;
    const int64_t now_ms = kelm_monotonic_ms();
    const int64_t limit_ms = kelm_ending.closing ? ENDING_LIMIT_MS : ENDING_WORK_MS;
    const int64_t time_ms = kelm_ending.since_ms + limit_ms - now_ms;
    end_ms_ = now_ms;
    // Divided in 32 bits: most routers' processors have no instruction for more.
    if (time_ms >= ENDING_LEAST_MS * part)
        end_ms_ += static_cast<int32_t>(time_ms) / part;
}

int ending_wait::left_ms()
{
    if (!has_end_) {
        if (!kelm_is_ending())
            return -1;
        has_end_ = true;
        end_ms_ = kelm_ending.since_ms + ENDING_GRACE_MS;
    }
    const int64_t left_ms = end_ms_ - kelm_monotonic_ms();
    return left_ms > 0 ? static_cast<int>(left_ms) : 0;
}

}  // namespace kelm
