// SPDX-License-Identifier: ISC
// The loop that all sources share: one wait for all, then a bounded part of each in turn.
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <sys/signalfd.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/signals.h"
#include "watch/source.h"
#include "watch/sources.h"
#include "watch/tell.h"

namespace kelm {

namespace {

// The Wi-Fi daemons come first: their sockets hold the fewest events.
constexpr const watch_source *SOURCES[] = {&WATCH_CTRL, &WATCH_BUS, &WATCH_PROCESSES, &WATCH_FILES,
                                           &WATCH_LOG};
constexpr size_t SOURCE_COUNT = sizeof SOURCES / sizeof SOURCES[0];

constexpr int HEARD_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGTSTP};
// These would stop a program in the background that uses the terminal.
constexpr int UNHEARD_SIGNALS[] = {SIGTTOU, SIGTTIN};
constexpr int64_t NEVER = INT64_MAX;
constexpr int64_t TICK_MS = 500;                 // between changes of the line that waits
constexpr int64_t REFUSED_MS = 15'000;           // after so long without a start a press is refused
constexpr int64_t AFTER_ATTEMPT_MS = 5000;       // to see the restart too
constexpr int64_t LONGEST_ATTEMPT_MS = 180'000;  // the walk time, and the scripts after it

enum class stage { idle, asked, running, ended };

stage attempt = stage::idle;
bool look_now = false;  // the stage has changed: some sources must look more often, or less
int64_t attempt_since_ms = 0;

struct source_wait {
    size_t first;
    size_t count;
    int64_t look_ms;
};

// Installs handlers that do nothing: the bus library installs its own where it finds the default
// ones. All threads block these signals, and the loop reads them from a descriptor.
unique_fd _claim_signals()
{
    struct sigaction taken = {};
    taken.sa_handler = [](int) {};
    taken.sa_flags = SA_RESTART;
    sigset_t held;
    sigemptyset(&held);
    for (int number : HEARD_SIGNALS) {
        sigaction(number, &taken, nullptr);
        sigaddset(&held, number);
    }
    sigset_t all = held;
    for (int number : UNHEARD_SIGNALS)
        sigaddset(&all, number);
    sigaction(SIGPIPE, &taken, nullptr);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    return unique_fd(::signalfd(-1, &held, SFD_NONBLOCK | SFD_CLOEXEC));
}

const char *_waits_for()
{
    switch (attempt) {
    case stage::idle:
    case stage::ended:
        return "a press of the WPS button";
    case stage::asked:
        return "the start of the attempt";
    case stage::running:
        return "the end of the attempt";
    }
    return "";
}

void _enter(stage next)
{
    attempt = next;
    look_now = true;
    attempt_since_ms = kelm_monotonic_ms();
    watch_waiting(_waits_for());
}

// For Ctrl-Z. A stopped program takes no events, and hostapd waits for a client that takes none. So
// detach before the stop.
void _stop_until_continued()
{
    watch_say("watch", "", "stopped by SIGTSTP: nothing is heard from here on");
    watch_leave_wifi();
    (void)kill(getpid(), SIGSTOP);
    watch_say("watch", "", "goes on");
    look_now = true;
}

// When the program ends by its options, or NEVER.
int64_t _end_of(const watch_options &options, int64_t begun_ms)
{
    int64_t end_ms = NEVER;
    if (options.seconds > 0)
        end_ms = begun_ms + static_cast<int64_t>(options.seconds) * 1000;
    if (options.once && attempt == stage::ended && attempt_since_ms + AFTER_ATTEMPT_MS < end_ms)
        end_ms = attempt_since_ms + AFTER_ATTEMPT_MS;
    return end_ms;
}

int _left_ms(int64_t until_ms)
{
    const int64_t left_ms = until_ms - kelm_monotonic_ms();
    return left_ms > 0 ? static_cast<int>(left_ms) : 0;
}

class loop {
public:
    explicit loop(const watch_options &options) : options_(options), signals_(_claim_signals()) {}

    void run()
    {
        const int64_t begun_ms = kelm_monotonic_ms();
        while (!ended_ && kelm_monotonic_ms() < _end_of(options_, begun_ms)) {
            _wait(_end_of(options_, begun_ms));
            _take();
            _tick();
        }
    }

private:
    void _wait(int64_t until_ms)
    {
        size_t count = 0;
        set_[count++] = {signals_.get(), POLLIN, 0};
        if (look_now)
            until_ms = 0;
        if (tick_ms_ < until_ms)
            until_ms = tick_ms_;
        for (size_t i = 0; i < SOURCE_COUNT; ++i) {
            waits_[i].first = count;
            waits_[i].count = SOURCES[i]->descriptors(set_ + count);
            count += waits_[i].count;
            if (waits_[i].look_ms < until_ms)
                until_ms = waits_[i].look_ms;
        }
        if (::poll(set_, count, _left_ms(until_ms)) < 0 && errno != EINTR)
            ended_ = true;
    }

    void _take()
    {
        signalfd_siginfo which = {};
        if (set_[0].revents != 0 && ::read(signals_.get(), &which, sizeof which) > 0) {
            if (which.ssi_signo == SIGTSTP)
                return _stop_until_continued();
            ended_ = true;
        }
        const bool look_at_all = look_now;
        look_now = false;
        for (size_t i = 0; i < SOURCE_COUNT; ++i) {
            const bool has_news = _has_news(waits_[i]);
            SOURCES[i]->take(set_ + waits_[i].first, waits_[i].count);
            const int64_t now_ms = kelm_monotonic_ms();
            const bool is_due = look_at_all || has_news || waits_[i].look_ms <= now_ms;
            if (!is_due)
                continue;
            waits_[i].look_ms = SOURCES[i]->look(now_ms);
            watch_drain_wifi();
        }
    }

    // Whether a source has taken something: that may be a reason to look again soon.
    bool _has_news(const source_wait &wait) const
    {
        for (size_t i = 0; i < wait.count; ++i) {
            if (set_[wait.first + i].revents != 0)
                return true;
        }
        return false;
    }

    void _tick()
    {
        const int64_t now_ms = kelm_monotonic_ms();
        if (now_ms < tick_ms_)
            return;
        if (attempt == stage::asked && now_ms - attempt_since_ms > REFUSED_MS)
            _enter(stage::idle);
        tick_ms_ = now_ms + TICK_MS;
        watch_tick();
    }

    const watch_options &options_;
    unique_fd signals_;
    bool ended_ = false;
    int64_t tick_ms_ = 0;
    source_wait waits_[SOURCE_COUNT] = {};
    pollfd set_[SOURCE_COUNT * WATCH_DESCRIPTORS + 1] = {};
};

}  // namespace

void watch_say(const char *source, const char *iface, const char *format, ...)
{
    char text[WATCH_ROOM];
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(text, sizeof text, format, values);
    va_end(values);
    if (length > 0)
        watch_tell(source, iface, text, strlen(text));
}

void watch_attempt_asked()
{
    if (!watch_attempt_runs())
        _enter(stage::asked);
}

void watch_attempt_started()
{
    _enter(stage::running);
}

void watch_attempt_ended()
{
    if (attempt == stage::running)
        _enter(stage::ended);
}

bool watch_attempt_runs()
{
    const bool under_way = attempt == stage::asked || attempt == stage::running;
    return under_way && kelm_monotonic_ms() - attempt_since_ms < LONGEST_ATTEMPT_MS;
}

int watch_run(const watch_options &options)
{
    loop all(options);
    for (const watch_source *source : SOURCES)
        source->open(options);
    watch_say("watch", "", "kelm-watch " KELM_VERSION " has started; processes: %s",
              watch_process_way());
    watch_waiting(_waits_for());
    all.run();
    watch_say("watch", "", "stopped");
    for (const watch_source *source : SOURCES)
        source->close();
    if (watch_has_heard_wifi() || watch_has_heard_bus())
        return 0;
    fprintf(stderr, "kelm-watch: neither the bus nor hostapd or wpa_supplicant was there\n");
    return 1;
}

}  // namespace kelm
