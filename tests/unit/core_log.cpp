// SPDX-License-Identifier: ISC
// The console log: what is written, what is dropped, and that nothing makes it wait.
#include "core/log.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <sstream>

#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class core_log : public testing::Test {
protected:
    void SetUp() override { start_core(KELM_MODE_AP, DUAL_BAND); }
};

// Another process's lock, as flock sees it: one on an open file description that is not the log's.
class console_lock {
public:
    console_lock() : fd_(open("/dev/console", O_RDWR | O_NONBLOCK | O_CLOEXEC))
    {
        EXPECT_EQ(0, flock(fd_, LOCK_EX | LOCK_NB)) << "an earlier line has left its lock";
    }
    ~console_lock() { close(fd_); }

private:
    int fd_;
};

void fill_console()
{
    const int fd = open("/dev/console", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const std::string block(4096, '.');
    while (write(fd, block.data(), block.size()) > 0) {
    }
    close(fd);
}

constexpr int WRITERS = 6;
constexpr int LINES_EACH = 300;  // 30 kilobytes in all, which the console's pipe holds

struct writer {
    pthread_barrier_t *start;
    int number;
};

void *write_lines(void *argument)
{
    const auto *self = static_cast<const writer *>(argument);
    pthread_barrier_wait(self->start);
    for (int i = 0; i < LINES_EACH; ++i)
        (void)kelm_printf("writer %d line %d\n", self->number, i);
    return nullptr;
}

// What each of several threads wrote at once, in the order it came out.
std::vector<std::string> lines_of_threads_at_once()
{
    pthread_barrier_t start;
    pthread_barrier_init(&start, nullptr, WRITERS);
    pthread_t threads[WRITERS];
    writer writers[WRITERS];
    for (int i = 0; i < WRITERS; ++i) {
        writers[i] = {&start, i};
        EXPECT_EQ(0, pthread_create(&threads[i], nullptr, write_lines, &writers[i]));
    }
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
    pthread_barrier_destroy(&start);

    std::vector<std::string> found(WRITERS);
    std::istringstream console(console_text());
    for (std::string line; std::getline(console, line);) {
        const size_t number = static_cast<size_t>(atoi(line.c_str() + strlen("writer ")));
        found.at(number) += line + "\n";
    }
    return found;
}

std::string receive_syslog(int fd)
{
    char line[512] = {};
    const ssize_t length = recv(fd, line, sizeof line - 1, MSG_DONTWAIT);
    return length < 0 ? "" : line;
}

}  // namespace

TEST_F(core_log, a_line_goes_to_the_console_as_it_is)
{
    EXPECT_EQ(0, kelm_printf("value %d of %s", 7, "nine"));
    EXPECT_EQ("value 7 of nine", console_text());
}

TEST_F(core_log, a_line_of_the_macros_begins_with_function_and_line)
{
    kelm_log_always("one\n");
    const int line = __LINE__ - 1;
    EXPECT_EQ("kelm[TestBody:" + std::to_string(line) + "]: one\n", console_text());
    kelm_log_normal("two %d\n", 2);
    kelm_log_detail("not at level 4\n");
    EXPECT_EQ("kelm[TestBody:N]: two 2\n", console_text_without_line_numbers());
}

TEST_F(core_log, a_line_is_written_from_its_level_on)
{
    struct row {
        int level;
        const char *expected;
    };
    const row rows[] = {
        {-1, "always\n"},
        {3, "always\n"},
        {4, "always\nnormal\n"},
        {6, "always\nnormal\n"},
        {7, "always\nnormal\ndetail\n"},
        {8, "always\nnormal\ndetail\n"},
    };
    for (const row &each : rows) {
        kelm_dbg_level = each.level;
        kelm_log_always("always\n");
        kelm_log_normal("normal\n");
        kelm_log_detail("detail\n");
        EXPECT_EQ(each.expected, console_messages()) << "level " << each.level;
    }
}

TEST_F(core_log, a_step_can_write_under_the_name_of_the_function_it_belongs_to)
{
    kelm_dbg_level = -100;
    kelm_log_as("whole", KELM_LOG_ALWAYS, "always %d\n", 1);
    kelm_log_as("whole", KELM_LOG_NORMAL, "normal %d\n", 1);
    EXPECT_EQ("kelm[whole:N]: always 1\n", console_text_without_line_numbers());
}

TEST_F(core_log, the_bad_band_line_is_a_normal_one)
{
    kelm_log_bad_band(9);
    EXPECT_EQ("Bad wps session[band 9].\n", console_messages());
    kelm_dbg_level = 3;
    kelm_log_bad_band(9);
    EXPECT_EQ("", console_messages());
}

TEST_F(core_log, without_a_console_the_line_is_lost_and_nothing_else)
{
    remove_console();
    EXPECT_EQ(-1, kelm_printf("nobody hears this\n"));
    EXPECT_FALSE(file_exists("/dev/console")) << "no file may be made in its place";
}

TEST_F(core_log, a_line_is_dropped_while_another_process_holds_the_console)
{
    {
        const console_lock lock;
        EXPECT_EQ(0, kelm_printf("dropped\n"));
    }
    EXPECT_EQ(0, kelm_printf("written\n"));
    EXPECT_EQ("written\n", console_text());
}

TEST_F(core_log, threads_that_write_at_once_lose_no_line_and_mix_none)
{
    const std::vector<std::string> found = lines_of_threads_at_once();
    for (int number = 0; number < WRITERS; ++number) {
        std::string expected;
        for (int i = 0; i < LINES_EACH; ++i) {
            expected += "writer " + std::to_string(number) + " line ";
            expected += std::to_string(i) + "\n";
        }
        EXPECT_EQ(expected, found[static_cast<size_t>(number)]);
    }
}

TEST_F(core_log, the_console_is_unlocked_after_each_line)
{
    (void)kelm_printf("one\n");
    const console_lock lock;
    EXPECT_EQ("one\n", console_text());
}

TEST_F(core_log, a_console_that_takes_nothing_does_not_stop_the_daemon)
{
    fill_console();
    const double start = monotonic_seconds();
    EXPECT_EQ(0, kelm_printf("no room\n"));
    EXPECT_LT(monotonic_seconds() - start, 0.5);
    const std::string text = console_text();
    EXPECT_EQ(std::string::npos, text.find("no room"));
}

TEST_F(core_log, only_the_first_line_waits_for_a_console_that_takes_nothing)
{
    fill_console();
    (void)kelm_printf("waits\n");
    const double start = monotonic_seconds();
    for (int i = 0; i < 100; ++i)
        (void)kelm_printf("does not\n");
    EXPECT_LT(monotonic_seconds() - start, 1.0) << "20 milliseconds each would be two seconds";
    (void)console_text();
    EXPECT_EQ(0, kelm_printf("read again\n"));
    EXPECT_EQ("read again\n", console_text());
}

TEST_F(core_log, a_line_of_2047_bytes_is_written_whole)
{
    const std::string fits(2047, 'a');
    EXPECT_EQ(0, kelm_printf("%s", fits.c_str()));
    EXPECT_TRUE(fits == console_text());
}

TEST_F(core_log, a_longer_line_is_cut_there_and_still_ends_as_a_line)
{
    for (const size_t length : {2048, 2049, 10000}) {
        const std::string longer(length, 'a');
        EXPECT_EQ(0, kelm_printf("%s", longer.c_str()));
        EXPECT_TRUE(std::string(2046, 'a') + "\n" == console_text()) << length;
    }
}

// The beginning counts, too: name and number leave the text less room.
TEST_F(core_log, a_line_of_the_macros_is_cut_at_the_same_length)
{
    int number = 0;
    const auto log = [&number](size_t length) {
        const std::string text(length, 'a');
        number = __LINE__ + 1;
        kelm_log_as("whole", KELM_LOG_ALWAYS, "%s", text.c_str());
    };
    log(0);
    const std::string begin = "kelm[whole:" + std::to_string(number) + "]: ";
    EXPECT_EQ(begin, console_text());
    const size_t room = 2047 - begin.size();
    log(room);
    EXPECT_TRUE(begin + std::string(room, 'a') == console_text());
    for (const size_t length : {room + 1, room + 2, size_t{10000}}) {
        log(length);
        EXPECT_TRUE(begin + std::string(room - 1, 'a') + "\n" == console_text()) << length;
    }
}

// The C locale has no such character: the C library gives up in the middle of the text.
TEST_F(core_log, a_text_that_cannot_be_formatted_is_left_out)
{
    EXPECT_EQ(0, kelm_printf("text %ls\n", L"\x20ac"));
    EXPECT_EQ("", console_text());
    kelm_log_as("whole", KELM_LOG_ALWAYS, "text %ls\n", L"\x20ac");
    EXPECT_EQ("kelm[whole:N]: ", console_text_without_line_numbers());
}

TEST_F(core_log, a_zero_byte_ends_the_line)
{
    EXPECT_EQ(0, kelm_printf("12%c34\n", '\0'));
    EXPECT_EQ("12", console_text());
}

TEST_F(core_log, no_descriptor_is_left_open)
{
    const int before = dup(STDIN_FILENO);
    close(before);
    for (int i = 0; i < 20; ++i)
        (void)kelm_printf("line\n");
    {
        const console_lock lock;
        (void)kelm_printf("dropped\n");
    }
    const int after = dup(STDIN_FILENO);
    close(after);
    EXPECT_EQ(before, after);
}

TEST_IN_FRESH_PROCESS(core_log_syslog, good_news_is_a_notice_and_bad_news_an_error_of_a_daemon)
{
    sockaddr_un address = {AF_UNIX, "/dev/log"};
    unlink(address.sun_path);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address));

    qm_syslog(3, 1, "%s WPS succeeded.", "2g");
    const std::string good = receive_syslog(fd);
    qm_syslog(3, 0, "%s WPS failed.", "5g");
    const std::string bad = receive_syslog(fd);
    unlink(address.sun_path);
    close(fd);

    EXPECT_EQ(0u, good.find("<29>")) << good;
    EXPECT_NE(std::string::npos, good.find(" kelm: 2g WPS succeeded.")) << good;
    EXPECT_EQ(0u, bad.find("<27>")) << bad;
    EXPECT_NE(std::string::npos, bad.find(" kelm: 5g WPS failed.")) << bad;
}
