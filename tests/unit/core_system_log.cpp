// SPDX-License-Identifier: ISC
// The system log: what a line looks like there, and that a log daemon which hangs holds nobody.
#include "core/system_log.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "core/log.h"
#include "tests/unit/core_faults.h"
#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

using lines = std::vector<std::string>;

constexpr int INFO = 30;         // a daemon's line of level "info"
constexpr int MANY = 300;        // more lines than any queue holds
constexpr double LONG_WAIT = 5;  // seconds; less than MANY waits, more than one

// A log daemon on /dev/log, which reads when it is told to.
class log_daemon {
public:
    explicit log_daemon(int type = SOCK_DGRAM) : fd_(socket(AF_UNIX, type | SOCK_CLOEXEC, 0))
    {
        const sockaddr_un address = {AF_UNIX, "/dev/log"};
        unlink(address.sun_path);
        EXPECT_EQ(0, bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address));
        if (type != SOCK_DGRAM) {
            EXPECT_EQ(0, listen(fd_, 1));
        }
    }
    ~log_daemon()
    {
        unlink("/dev/log");
        close(fd_);
    }

    // All lines that wait.
    lines read_all()
    {
        lines found;
        char line[4096];
        ssize_t length = 0;
        while ((length = recv(fd_, line, sizeof line, MSG_DONTWAIT)) >= 0)
            found.emplace_back(line, static_cast<size_t>(length));
        return found;
    }

private:
    int fd_;
};

// Until the queue takes nothing more, by a sender of our own.
void fill_queue()
{
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    while (send(fd, "full", 4, MSG_DONTWAIT) > 0) {
    }
    EXPECT_EQ(EAGAIN, errno);
    close(fd);
}

// "kelm[PID]: ", as this process's lines have it.
std::string own_name()
{
    return "kelm[" + std::to_string(getpid()) + "]: ";
}

void start()
{
    setenv("TZ", "UTC0", 1);
    start_core(KELM_MODE_AP, DUAL_BAND);  // it is 22:13:20 on 2023-11-14
    kelm_prepare_system_log();
}

}  // namespace

TEST_IN_FRESH_PROCESS(system_log, a_line_has_priority_time_name_and_text)
{
    struct row {
        time_t now;
        const char *zone;
        int priority;
        bool with_pid;
        const char *text;
        std::string expected;
    };
    const row rows[] = {
        {1700000000, "UTC0", 30, true, "text", "<30>Nov 14 22:13:20 " + own_name() + "text"},
        {1700000000, "UTC0", 27, false, "text", "<27>Nov 14 22:13:20 kelm: text"},
        {1699074367, "UTC0", 30, false, "a day below 10",
         "<30>Nov  4 05:06:07 kelm: a day below 10"},
        {1700000000, "EAST-2:30", 30, false, "text", "<30>Nov 15 00:43:20 kelm: text"},
        {1, "UTC0", 30, false, "no clock yet", "<30>Jan  1 00:00:01 kelm: no clock yet"},
        {1709210096, "UTC0", 30, false, "leap day", "<30>Feb 29 12:34:56 kelm: leap day"},
    };
    start();
    log_daemon daemon;
    for (const row &each : rows) {
        setenv("TZ", each.zone, 1);
        kelm_prepare_system_log();
        set_time(each.now);
        EXPECT_EQ(0, kelm_send_to_system_log(each.priority, each.with_pid, each.text));
        EXPECT_EQ(lines{each.expected}, daemon.read_all());
    }
}

TEST_IN_FRESH_PROCESS(system_log, line_feeds_at_the_end_are_left_out_and_so_is_an_empty_line)
{
    struct row {
        std::string text;
        lines expected;
    };
    const std::string head = "<30>Nov 14 22:13:20 kelm: ";
    const row rows[] = {
        {"one\n", {head + "one"}},
        {"two\n\n\n", {head + "two"}},
        {"inside\nof it\n", {head + "inside?of it"}},
        {"a\rb\x1b[2Jc\x7f\td\x01", {head + "a?b?[2Jc?\td?"}},
        {"\n<30>Nov 14 22:13:20 other: x", {head + "?<30>Nov 14 22:13:20 other: x"}},
        {" \n", {head + " "}},
        {"100 %s %n\n", {head + "100 %s %n"}},
        {"K\xfc"
         "che \xc3\xbc\n",
         {head + "K\xfc"
                 "che \xc3\xbc"}},
        {"", {}},
        {"\n", {}},
        {"\n\n", {}},
        {std::string(2047, 'x'), {head + std::string(2047, 'x')}},
        {std::string(2048, 'x'), {head + std::string(2047, 'x')}},
    };
    start();
    log_daemon daemon;
    for (const row &each : rows) {
        EXPECT_EQ(0, kelm_send_to_system_log(INFO, false, each.text.c_str()));
        EXPECT_EQ(each.expected, daemon.read_all()) << each.text;
    }
}

TEST_IN_FRESH_PROCESS(system_log, without_a_log_daemon_a_line_is_lost_and_nothing_else_happens)
{
    start();
    unlink("/dev/log");
    EXPECT_EQ(-1, kelm_send_to_system_log(INFO, true, "nobody there"));
    {
        const log_daemon of_streams(SOCK_STREAM);
        EXPECT_EQ(-1, kelm_send_to_system_log(INFO, true, "another kind"));
    }
    log_daemon later;
    EXPECT_EQ(0, kelm_send_to_system_log(INFO, false, "there again"));
    EXPECT_EQ(1u, later.read_all().size());
}

TEST_IN_FRESH_PROCESS(system_log, no_descriptor_is_left_open)
{
    start();
    log_daemon daemon;
    const int before = dup(STDIN_FILENO);
    close(before);
    for (int i = 0; i < MANY; ++i)
        (void)kelm_send_to_system_log(INFO, true, "line");
    const int after = dup(STDIN_FILENO);
    close(after);
    EXPECT_EQ(before, after);
}

TEST_IN_FRESH_PROCESS(system_log, a_log_daemon_that_reads_late_gets_the_line_that_found_no_room)
{
    start();
    static log_daemon daemon;
    fill_queue();
    // It reads while the line waits.
    faults.before_poll = [](int) { (void)daemon.read_all(); };
    EXPECT_EQ(0, kelm_send_to_system_log(INFO, false, "late"));
    faults = {};
    EXPECT_EQ(lines{"<30>Nov 14 22:13:20 kelm: late"}, daemon.read_all());
}

TEST_IN_FRESH_PROCESS(system_log, a_log_daemon_that_hangs_is_waited_for_once)
{
    static int waits = 0;
    start();
    log_daemon daemon;
    fill_queue();
    faults.before_poll = [](int) { ++waits; };
    const double begin = monotonic_seconds();
    for (int i = 0; i < MANY; ++i)
        EXPECT_EQ(0, kelm_send_to_system_log(INFO, false, "dropped"));
    EXPECT_EQ(1, waits);
    EXPECT_LT(monotonic_seconds() - begin, LONG_WAIT);
    for (const std::string &line : daemon.read_all())
        EXPECT_EQ("full", line);

    EXPECT_EQ(0, kelm_send_to_system_log(INFO, false, "back"));
    EXPECT_EQ(lines{"<30>Nov 14 22:13:20 kelm: back"}, daemon.read_all());
    fill_queue();
    EXPECT_EQ(0, kelm_send_to_system_log(INFO, false, "dropped"));
    EXPECT_EQ(2, waits) << "one that took something is waited for again";
    faults = {};
}

TEST_IN_FRESH_PROCESS(system_log, a_queue_that_others_fill_at_once_is_waited_for_once)
{
    static int waits = 0;
    start();
    static log_daemon daemon;
    fill_queue();
    faults.before_poll = [](int) {
        ++waits;
        (void)daemon.read_all();
    };
    faults.after_poll = fill_queue;
    for (int i = 0; i < MANY; ++i)
        EXPECT_EQ(0, kelm_send_to_system_log(INFO, false, "dropped"));
    faults = {};
    EXPECT_EQ(1, waits);
    for (const std::string &line : daemon.read_all())
        EXPECT_EQ("full", line);
}

TEST_IN_FRESH_PROCESS(system_log, a_slow_log_daemon_costs_a_tenth_of_the_time)
{
    constexpr int ONE_LINE_MS = 20;  // what it needs
    static int waits = 0;
    start();
    static log_daemon daemon;
    faults.before_poll = [](int limit_ms) {
        if (limit_ms < ONE_LINE_MS)
            return;
        ++waits;
        usleep(ONE_LINE_MS * 1000);
        (void)daemon.read_all();
    };
    const double begin = monotonic_seconds();
    while (monotonic_seconds() - begin < 0.5) {
        fill_queue();
        (void)kelm_send_to_system_log(INFO, false, "line");
        (void)daemon.read_all();
        (void)kelm_send_to_system_log(INFO, false, "at once");
    }
    const double waited = waits * ONE_LINE_MS / 1000.0;
    const double passed = monotonic_seconds() - begin;
    EXPECT_GE(waits, 1);
    EXPECT_LE(waited, 0.1 + passed / 10);
}

TEST_IN_FRESH_PROCESS(system_log, a_log_daemon_that_hangs_does_not_hold_the_users_lines)
{
    start();
    log_daemon daemon;
    fill_queue();
    const double begin = monotonic_seconds();
    for (int i = 0; i < MANY; ++i)
        qm_syslog(3, 1, "%s WPS succeeded.", "2g");
    EXPECT_LT(monotonic_seconds() - begin, LONG_WAIT);
}

TEST_IN_FRESH_PROCESS(system_log, the_log_goes_there_or_to_the_console)
{
    start();
    log_daemon daemon;
    kelm_log_to_system_log(true);
    const int line = __LINE__ + 1;
    kelm_log_always("one %d\n\n", 1);
    EXPECT_EQ(0, kelm_printf("\n"));
    EXPECT_EQ("", console_text());
    const std::string origin = std::string("kelm[") + __func__ + ":" + std::to_string(line) + "]: ";
    EXPECT_EQ(lines{"<30>Nov 14 22:13:20 " + own_name() + origin + "one 1"}, daemon.read_all());

    kelm_log_to_system_log(false);
    kelm_log_always("two\n");
    EXPECT_EQ(lines{}, daemon.read_all());
    EXPECT_EQ("two\n", console_messages());
}
