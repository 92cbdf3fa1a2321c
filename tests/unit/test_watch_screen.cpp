// SPDX-License-Identifier: ISC
// What a person sees of kelm-watch: on a terminal, in a pipe, and where nobody reads.
#include "watch/screen.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "core/handle.h"

using namespace kelm;

namespace {

struct ends {
    unique_fd ours;
    unique_fd theirs;
};

class screen : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("TERM", "xterm", 1);
        unsetenv("NO_COLOR");
    }

    // columns: 0 for a terminal that does not tell them.
    void open_terminal(unsigned short columns = 0)
    {
        int ours = -1;
        int theirs = -1;
        ASSERT_EQ(openpty(&ours, &theirs, nullptr, nullptr, nullptr), 0);
        ours_.reset(ours);
        theirs_.reset(theirs);
        termios raw = {};
        ASSERT_EQ(tcgetattr(theirs, &raw), 0);
        cfmakeraw(&raw);
        ASSERT_EQ(tcsetattr(theirs, TCSANOW, &raw), 0);
        winsize size = {};
        size.ws_col = columns;
        ASSERT_EQ(ioctl(theirs, TIOCSWINSZ, &size), 0);
    }

    void open_pipe()
    {
        int both[2];
        ASSERT_EQ(pipe2(both, O_CLOEXEC), 0);
        ours_.reset(both[0]);
        theirs_.reset(both[1]);
    }

    // All that a pipe holds; all that came to a terminal, which ends with that: what was written to
    // one arrives in pieces, and only the end says that it was all.
    std::string shown()
    {
        if (isatty(theirs_.get()) == 1)
            theirs_.reset();
        else
            (void)fcntl(ours_.get(), F_SETFL, O_NONBLOCK);
        std::string text;
        char buffer[65536];
        for (;;) {
            const ssize_t count = read(ours_.get(), buffer, sizeof buffer);
            if (count <= 0)
                return text;
            text.append(buffer, static_cast<size_t>(count));
        }
    }

    unique_fd ours_;
    unique_fd theirs_;
    watch_screen screen_;
};

std::string as_shown(const std::string &text)
{
    char buffer[256];
    text_out out(buffer);
    watch_add_shown({text.data(), text.size()}, &out);
    return buffer;
}

}  // namespace

TEST_F(screen, a_pipe_gets_lines_and_nothing_else)
{
    open_pipe();
    screen_.open(theirs_.get(), false, false);
    screen_.line("   0.13 s", "button", "", "the WPS button is pressed");
    screen_.rewrite("   0.20 s", "the end of the attempt");
    screen_.line("   0.69 s", "kelm", "2.4 GHz", "starts the push-button method");
    screen_.clear();
    EXPECT_EQ(shown(),
              "   0.13 s  button             the WPS button is pressed\n"
              "   0.69 s  kelm      2.4 GHz  starts the push-button method\n");
}

TEST_F(screen, a_terminal_has_colours_and_a_line_that_is_rewritten)
{
    open_terminal();
    screen_.open(theirs_.get(), false, false);
    screen_.rewrite("   0.20 s", "a client..");
    screen_.line("   0.69 s", "kelm", "2.4 GHz", "starts the push-button method");
    EXPECT_EQ(
        shown(),
        "\r   0.20 s  ... waiting for a client..\033[K"
        "\r\033[K   0.69 s  \033[36mkelm     \033[0m 2.4 GHz  starts the push-button method\n");
}

struct wish {
    const char *term;      // null: not set
    const char *no_color;  // the same
    bool no_colour;
    bool has_colours;
    bool rewrites;
};

const wish wishes[] = {
    {"xterm", nullptr, false, true, true},  {nullptr, nullptr, false, true, true},
    {"xterm", "", false, true, true},       {"xterm", "1", false, false, true},
    {"xterm", "0", false, false, true},     {"xterm", nullptr, true, false, true},
    {"dumb", nullptr, false, false, false},
};

TEST_F(screen, a_terminal_and_its_owner_may_want_no_colours)
{
    for (const wish &row : wishes) {
        open_terminal();
        row.term != nullptr ? setenv("TERM", row.term, 1) : unsetenv("TERM");
        row.no_color != nullptr ? setenv("NO_COLOR", row.no_color, 1) : unsetenv("NO_COLOR");
        screen_.open(theirs_.get(), false, row.no_colour);
        screen_.rewrite("   0.20 s", "x");
        screen_.line("   0.69 s", "kelm", "", "y");
        const std::string text = shown();
        EXPECT_EQ(text.find("\033[36m") != std::string::npos, row.has_colours);
        EXPECT_EQ(text.find('\r') != std::string::npos, row.rewrites);
    }
}

TEST_F(screen, a_rewritten_line_is_cut_to_the_terminal_and_taken_away)
{
    open_terminal(20);
    screen_.open(theirs_.get(), false, true);
    screen_.rewrite("   0.20 s", "somebody");
    screen_.clear();
    screen_.clear();
    EXPECT_EQ(shown(), "\r   0.20 s  ... wait\033[K\r\033[K");
}

TEST_F(screen, quiet_writes_nothing)
{
    open_terminal();
    screen_.open(theirs_.get(), true, false);
    screen_.rewrite("   0.20 s", "x");
    screen_.line("   0.69 s", "kelm", "", "y");
    screen_.clear();
    EXPECT_EQ(shown(), "");
}

TEST_F(screen, nothing_of_a_strangers_commands_reaches_the_terminal)
{
    EXPECT_EQ(as_shown("a\033[31mb\rc\nd\te"), "a?[31mb?c?d?e");
    EXPECT_EQ(as_shown(std::string("a\0b", 3)), "a?b");
    EXPECT_EQ(as_shown("\x7f\xc2\x9b"), "??");
    EXPECT_EQ(as_shown("\xff"), "\xef\xbf\xbd");
    EXPECT_EQ(as_shown("\xe2\x80\xae"
                       "abc\xe2\x81\xa6"),
              "?abc?");
    EXPECT_EQ(as_shown("\xc3\x96"
                       "ak \xf0\x9f\x8c\xb3"),
              "\xc3\x96"
              "ak \xf0\x9f\x8c\xb3");
}

TEST_F(screen, a_line_that_is_too_long_keeps_its_end)
{
    open_pipe();
    screen_.open(theirs_.get(), false, false);
    screen_.line("   0.69 s", "kelm", "", std::string(5000, 'x').c_str());
    const std::string text = shown();
    EXPECT_LE(text.size(), 1024U);
    EXPECT_EQ(text.substr(text.size() - 2), "x\n");
}

TEST_F(screen, a_reader_who_is_slow_misses_lines_and_is_told)
{
    open_pipe();
    screen_.open(theirs_.get(), false, false);
    for (int i = 0; i < 5000; ++i)
        screen_.line("   0.69 s", "kelm", "", std::string(200, 'x').c_str());
    const std::string first = shown();
    EXPECT_LT(first.size(), 100000U);
    screen_.line("   0.70 s", "kelm", "", "y");
    const std::string text = shown();
    const size_t count = 5000 - static_cast<size_t>(std::count(first.begin(), first.end(), '\n'));
    EXPECT_EQ(text, "(" + std::to_string(count) +
                        " lines are missing here: nobody read them in time)\n"
                        "   0.70 s  kelm               y\n");
}

TEST_F(screen, a_reader_who_is_gone_costs_nothing)
{
    (void)signal(SIGPIPE, SIG_IGN);
    open_pipe();
    screen_.open(theirs_.get(), false, false);
    ours_.reset();
    screen_.line("   0.69 s", "kelm", "", "y");
    // Nothing is written to whatever has the descriptor's number by now.
    open_pipe();
    screen_.line("   0.70 s", "kelm", "", "y");
    EXPECT_EQ(shown(), "");
}
