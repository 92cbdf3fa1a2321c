// SPDX-License-Identifier: ISC
// The event loop. It owns signals and global state, so most tests run in a process of their own.
#include "support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <cstdio>
#include <cstdlib>

extern "C" {
#include <libubox/uloop.h>
}

namespace {
int calls;
unsigned int last_events;
std::string order;

void end_loop(uloop_timeout *)
{
    uloop_end();
}

void note_fd(uloop_fd *u, unsigned int events)
{
    char byte = 0;
    calls++;
    last_events = events;
    while (read(u->fd, &byte, 1) > 0) {
    }
    uloop_end();
}

constexpr int COMMANDS = 20;

using Handler = void (*)(int);

Handler handler_of(int number)
{
    struct sigaction current {};
    sigaction(number, nullptr, &current);
    return current.sa_handler;
}

int flags_of(int number)
{
    struct sigaction current {};
    sigaction(number, nullptr, &current);
    return current.sa_flags & (SA_RESTART | SA_NODEFER | SA_RESETHAND | SA_SIGINFO);
}

void own_handler(int) {}

void default_signals()
{
    uloop_handle_sigchld = true;
    // Whoever starts the tests may have set any of them to be ignored, nohup SIGHUP for one.
    for (int number : {SIGHUP, SIGINT, SIGTERM, SIGCHLD, SIGPIPE})
        signal(number, SIG_DFL);
}

// Delivers the signal to this process after a while, from outside.
pid_t signal_later(int number, int ms)
{
    pid_t target = getpid();
    pid_t pid = fork();
    if (pid == 0) {
        sleep_ms(ms);
        kill(target, number);
        _exit(0);
    }
    return pid;
}

int run_with_end_after(int ms)
{
    uloop_timeout timer{};
    timer.cb = end_loop;
    uloop_timeout_set(&timer, ms);
    int result = uloop_run();
    uloop_timeout_cancel(&timer);
    return result;
}
}  // namespace

TEST(uloop, run_returns_zero_when_ended_by_a_callback)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  CHILD_CHECK(uloop_init() == 0);
                  return run_with_end_after(10);
              }));
}

TEST(uloop, run_returns_the_signal_that_ended_it)
{
    for (int number : {SIGTERM, SIGINT}) {
        EXPECT_EQ(number, in_child([number] {
                      default_signals();
                      uloop_handle_sigchld = false;
                      uloop_init();
                      signal_later(number, 100);
                      return run_with_end_after(5000);
                  }));
    }
}

TEST(uloop, init_can_be_called_again)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  CHILD_CHECK(uloop_init() == 0 && uloop_init() == 0);
                  uloop_done();
                  CHILD_CHECK(uloop_init() == 0);
                  return run_with_end_after(1);
              }));
}

TEST(uloop, init_takes_default_signals_without_restarting_calls)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  for (int number : {SIGINT, SIGTERM, SIGCHLD}) {
                      CHILD_CHECK(handler_of(number) != SIG_DFL && handler_of(number) != SIG_IGN);
                      CHILD_CHECK(flags_of(number) == 0);
                  }
                  CHILD_CHECK(handler_of(SIGPIPE) == SIG_IGN);
                  CHILD_CHECK(handler_of(SIGHUP) == SIG_DFL);
                  return 0;
              }));
}

TEST(uloop, init_leaves_handled_and_ignored_signals_alone)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  signal(SIGTERM, own_handler);
                  signal(SIGINT, SIG_IGN);
                  signal(SIGCHLD, own_handler);
                  signal(SIGPIPE, own_handler);
                  uloop_init();
                  CHILD_CHECK(handler_of(SIGTERM) == own_handler);
                  CHILD_CHECK(handler_of(SIGINT) == SIG_IGN);
                  CHILD_CHECK(handler_of(SIGCHLD) == own_handler);
                  CHILD_CHECK(handler_of(SIGPIPE) == own_handler);
                  uloop_done();
                  CHILD_CHECK(handler_of(SIGTERM) == own_handler);
                  CHILD_CHECK(handler_of(SIGINT) == SIG_IGN);
                  CHILD_CHECK(handler_of(SIGCHLD) == own_handler);
                  return 0;
              }));
}

TEST(uloop, a_second_init_takes_signals_that_have_become_default)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  signal(SIGTERM, own_handler);
                  uloop_init();
                  signal(SIGTERM, SIG_DFL);
                  uloop_init();
                  CHILD_CHECK(handler_of(SIGTERM) != SIG_DFL);
                  return 0;
              }));
}

TEST(uloop, sigchld_is_left_alone_when_told_so)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_handle_sigchld = false;
                  uloop_init();
                  CHILD_CHECK(handler_of(SIGCHLD) == SIG_DFL);
                  return 0;
              }));
}

TEST(uloop, done_gives_signals_back_but_sigpipe_stays_ignored)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  uloop_done();
                  for (int number : {SIGINT, SIGTERM, SIGCHLD})
                      CHILD_CHECK(handler_of(number) == SIG_DFL);
                  CHILD_CHECK(handler_of(SIGPIPE) == SIG_IGN);
                  return 0;
              }));
}

TEST(uloop, done_leaves_a_handler_that_replaced_its_own)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  signal(SIGTERM, own_handler);
                  uloop_done();
                  CHILD_CHECK(handler_of(SIGTERM) == own_handler);
                  CHILD_CHECK(handler_of(SIGINT) == SIG_DFL);
                  return 0;
              }));
}

TEST(uloop, clearing_the_sigchld_flag_before_done_leaves_the_handler_in_place)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  uloop_handle_sigchld = false;
                  uloop_done();
                  CHILD_CHECK(handler_of(SIGCHLD) != SIG_DFL);
                  return 0;
              }));
}

TEST(uloop, a_process_outside_of_run_survives_sigterm_and_forgets_it)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  raise(SIGTERM);
                  raise(SIGINT);
                  int64_t start = now_ms();
                  int result = run_with_end_after(100);
                  CHILD_CHECK(now_ms() - start >= 98);
                  return result;
              }));
}

TEST(uloop, an_end_before_run_is_lost)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  uloop_end();
                  int64_t start = now_ms();
                  CHILD_CHECK(run_with_end_after(100) == 0);
                  CHILD_CHECK(now_ms() - start >= 98);
                  return 0;
              }));
}

TEST(uloop, an_end_from_another_thread_does_not_wake_the_loop)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  uloop_timeout late{};
                  late.cb = end_loop;
                  const int64_t start = now_ms();
                  uloop_timeout_set(&late, 300);
                  // What uloop_end stores, but atomically: the race is known and not the point.
                  std::thread other([] {
                      sleep_ms(50);
                      __atomic_store_n(&uloop_cancelled, true, __ATOMIC_RELAXED);
                  });
                  int result = uloop_run();
                  int64_t took = now_ms() - start;
                  other.join();
                  CHILD_CHECK(result == 0);
                  CHILD_CHECK(took >= 290);
                  return 0;
              }));
}

TEST(uloop, cancelling_is_true_only_inside_a_run_that_ends)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  static bool before, after;
                  uloop_timeout timer{};
                  timer.cb = [](uloop_timeout *) {
                      before = uloop_cancelling();
                      uloop_end();
                      after = uloop_cancelling();
                  };
                  uloop_timeout_set(&timer, 1);
                  uloop_run();
                  CHILD_CHECK(!before && after && uloop_cancelled);
                  CHILD_CHECK(!uloop_cancelling());
                  return 0;
              }));
}

TEST(uloop, run_timeout_is_one_round)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  int64_t start = now_ms();
                  CHILD_CHECK(uloop_run_timeout(50) == 0);
                  CHILD_CHECK(now_ms() - start >= 48 && now_ms() - start < 2000);
                  return 0;
              }));
}

TEST(uloop, timers_fire_in_order_of_time_and_then_of_setting)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  uloop_timeout a{}, b{}, c{}, d{};
                  a.cb = [](uloop_timeout *) {
                      order += 'a';
                      uloop_end();
                  };
                  b.cb = [](uloop_timeout *) { order += 'b'; };
                  c.cb = [](uloop_timeout *) { order += 'c'; };
                  d.cb = [](uloop_timeout *) { order += 'd'; };
                  uloop_timeout_set(&a, 60);
                  uloop_timeout_set(&d, -5);
                  uloop_timeout_set(&b, 20);
                  c.time = b.time;
                  CHILD_CHECK(uloop_timeout_add(&c) == 0);
                  CHILD_CHECK(uloop_timeout_add(&c) == -1);
                  uloop_run();
                  CHILD_CHECK(order == "dbca");
                  return 0;
              }));
}

TEST(uloop, a_timer_is_at_most_a_millisecond_early)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  for (int i = 0; i < 5; i++) {
                      timespec start{}, end{};
                      uloop_timeout other{};  // wakes the loop in between
                      other.cb = [](uloop_timeout *) {};
                      uloop_timeout_set(&other, 25);
                      clock_gettime(CLOCK_MONOTONIC, &start);
                      run_with_end_after(40);
                      clock_gettime(CLOCK_MONOTONIC, &end);
                      int64_t took = (end.tv_sec - start.tv_sec) * 1000000 +
                                     (end.tv_nsec - start.tv_nsec) / 1000;
                      CHILD_CHECK(took >= 38900);
                  }
                  return 0;
              }));
}

TEST(uloop, a_timer_is_one_shot_and_may_set_itself_again)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  static bool pending_inside;
                  static uloop_timeout end;
                  uloop_timeout timer{};
                  end.cb = end_loop;
                  timer.cb = [](uloop_timeout *t) {
                      pending_inside |= t->pending;
                      calls++;
                      uloop_timeout_set(calls < 3 ? t : &end, calls < 3 ? 0 : 50);
                  };
                  uloop_timeout_set(&timer, 0);
                  uloop_timeout_set(&end, 9000);
                  CHILD_CHECK(uloop_timeout_remaining64(&end) <= 9000);
                  uloop_run();
                  CHILD_CHECK(calls == 3 && !pending_inside && !timer.pending);
                  CHILD_CHECK(uloop_timeout_cancel(&timer) == -1);
                  CHILD_CHECK(uloop_timeout_remaining64(&timer) == -1);
                  return 0;
              }));
}

TEST(uloop, a_timer_setting_itself_to_zero_does_not_starve_descriptors)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  int ends[2];
                  CHILD_CHECK(pipe(ends) == 0 && write(ends[1], "x", 1) == 1);
                  uloop_fd fd{};
                  fd.fd = ends[0];
                  fd.cb = note_fd;
                  uloop_fd_add(&fd, ULOOP_READ);
                  uloop_timeout timer{};
                  timer.cb = [](uloop_timeout *t) { uloop_timeout_set(t, 0); };
                  uloop_timeout_set(&timer, 0);
                  uloop_run();
                  CHILD_CHECK(calls == 1);
                  return 0;
              }));
}

TEST(uloop, a_callback_may_cancel_another_timer_that_is_due)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  static uloop_timeout second, end;
                  uloop_timeout first{};
                  first.cb = [](uloop_timeout *) { uloop_timeout_cancel(&second); };
                  second.cb = [](uloop_timeout *) { calls++; };
                  end.cb = end_loop;
                  uloop_timeout_set(&first, 0);
                  uloop_timeout_set(&second, 0);
                  uloop_timeout_set(&end, 30);
                  uloop_run();
                  CHILD_CHECK(calls == 0);
                  return 0;
              }));
}

TEST(uloop, done_cancels_timers)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  uloop_timeout timer{};
                  timer.cb = end_loop;
                  uloop_timeout_set(&timer, 1000);
                  uloop_done();
                  CHILD_CHECK(!timer.pending);
                  return 0;
              }));
}

TEST(uloop, a_descriptor_is_made_non_blocking_by_its_first_add_only)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  int ends[2], blocking[2];
                  CHILD_CHECK(pipe(ends) == 0 && pipe(blocking) == 0);
                  uloop_fd fd{};
                  fd.fd = ends[0];
                  CHILD_CHECK(uloop_fd_add(&fd, ULOOP_READ) == 0 && fd.registered);
                  CHILD_CHECK(fcntl(ends[0], F_GETFL) & O_NONBLOCK);
                  fcntl(ends[0], F_SETFL, 0);
                  CHILD_CHECK(uloop_fd_add(&fd, ULOOP_READ) == 0);
                  CHILD_CHECK(!(fcntl(ends[0], F_GETFL) & O_NONBLOCK));
                  uloop_fd other{};
                  other.fd = blocking[0];
                  CHILD_CHECK(uloop_fd_add(&other, ULOOP_READ | ULOOP_BLOCKING) == 0);
                  CHILD_CHECK(!(fcntl(blocking[0], F_GETFL) & O_NONBLOCK));
                  CHILD_CHECK(uloop_fd_add(&other, ULOOP_BLOCKING) == 0 && !other.registered);
                  CHILD_CHECK(uloop_fd_delete(&other) == 0);
                  return 0;
              }));
}

TEST(uloop, adding_fails_with_the_kernels_reason)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  int ends[2];
                  CHILD_CHECK(pipe(ends) == 0);
                  uloop_fd fd{};
                  fd.fd = ends[0];
                  CHILD_CHECK(uloop_fd_add(&fd, ULOOP_READ) == -1 && errno == EBADF);
                  CHILD_CHECK(fcntl(ends[0], F_GETFL) & O_NONBLOCK);
                  uloop_init();
                  uloop_fd file{};
                  file.fd = open("/proc/self/exe", O_RDONLY);
                  CHILD_CHECK(uloop_fd_add(&file, ULOOP_READ) == -1 && errno == EPERM);
                  CHILD_CHECK(uloop_fd_add(&fd, ULOOP_READ) == 0);
                  uloop_done();
                  CHILD_CHECK(fd.registered);
                  uloop_init();
                  CHILD_CHECK(uloop_fd_add(&fd, ULOOP_READ) == -1 && errno == ENOENT);
                  return 0;
              }));
}

TEST(uloop, a_half_closed_peer_sets_eof_and_stays_in_the_loop)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  int ends[2];
                  CHILD_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
                  uloop_fd fd{};
                  fd.fd = ends[0];
                  fd.cb = note_fd;
                  uloop_fd_add(&fd, ULOOP_READ);
                  shutdown(ends[1], SHUT_WR);
                  uloop_run();
                  CHILD_CHECK(fd.eof && !fd.error && fd.registered);
                  CHILD_CHECK(last_events == ULOOP_READ);
                  return 0;
              }));
}

TEST(uloop, a_hung_up_descriptor_is_removed_before_its_only_callback)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  int ends[2];
                  CHILD_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
                  static bool registered_inside, error_inside;
                  static std::string drained;
                  uloop_fd fd{};
                  fd.fd = ends[0];
                  fd.cb = [](uloop_fd *u, unsigned int) {
                      char bytes[16];
                      calls++;
                      registered_inside = u->registered;
                      error_inside = u->error;
                      ssize_t got = read(u->fd, bytes, sizeof(bytes));
                      drained.assign(bytes, got > 0 ? static_cast<size_t>(got) : 0);
                  };
                  uloop_fd_add(&fd, ULOOP_READ);
                  CHILD_CHECK(write(ends[1], "last", 4) == 4);
                  close(ends[1]);
                  run_with_end_after(100);
                  CHILD_CHECK(calls == 1);
                  CHILD_CHECK(!registered_inside && error_inside && fd.eof);
                  CHILD_CHECK(drained == "last");
                  return 0;
              }));
}

TEST(uloop, a_pure_hang_up_gives_no_event_bits)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  int ends[2];
                  CHILD_CHECK(pipe(ends) == 0);
                  uloop_fd fd{};
                  fd.fd = ends[0];
                  fd.cb = note_fd;
                  uloop_fd_add(&fd, ULOOP_READ);
                  close(ends[1]);
                  last_events = 77;
                  run_with_end_after(1000);
                  CHILD_CHECK(calls == 1 && last_events == 0 && fd.error && !fd.registered);
                  return 0;
              }));
}

TEST(uloop, a_deleted_descriptor_is_not_called_although_its_event_was_fetched)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  static uloop_fd fds[2];
                  int ends[2][2];
                  for (int i = 0; i < 2; i++) {
                      CHILD_CHECK(pipe(ends[i]) == 0 && write(ends[i][1], "x", 1) == 1);
                      fds[i].fd = ends[i][0];
                      fds[i].cb = [](uloop_fd *u, unsigned int) {
                          calls++;
                          uloop_fd_delete(u == &fds[0] ? &fds[1] : &fds[0]);
                          uloop_fd_delete(u);
                      };
                      uloop_fd_add(&fds[i], ULOOP_READ);
                  }
                  run_with_end_after(50);
                  CHILD_CHECK(calls == 1);
                  return 0;
              }));
}

TEST(uloop, write_readiness_is_reported)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  int ends[2];
                  CHILD_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
                  uloop_fd fd{};
                  fd.fd = ends[0];
                  fd.cb = note_fd;
                  uloop_fd_add(&fd, ULOOP_READ | ULOOP_WRITE);
                  uloop_run();
                  CHILD_CHECK(last_events == ULOOP_WRITE);
                  return 0;
              }));
}

TEST(uloop, between_two_descriptors_the_timers_get_their_turn)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  static uloop_timeout timer, end;
                  static uloop_fd fds[2];
                  int ends[2][2];
                  end.cb = end_loop;
                  timer.cb = [](uloop_timeout *) {
                      order += 't';
                      if (order.size() == 4)
                          uloop_timeout_set(&end, 50);
                  };
                  for (int i = 0; i < 2; i++) {
                      CHILD_CHECK(pipe(ends[i]) == 0 && write(ends[i][1], "x", 1) == 1);
                      fds[i].fd = ends[i][0];
                      fds[i].cb = [](uloop_fd *u, unsigned int) {
                          order += 'f';
                          uloop_fd_delete(u);
                          uloop_timeout_set(&timer, 0);
                      };
                      uloop_fd_add(&fds[i], ULOOP_READ);
                  }
                  uloop_timeout_set(&end, 9000);
                  uloop_run();
                  CHILD_CHECK(order == "ftft");
                  return 0;
              }));
}

// The command's number, which is its only output, once it has ended. It is left to be collected.
static pid_t ended_command(FILE *command)
{
    int pid = 0;
    siginfo_t how{};
    if (fscanf(command, "%d", &pid) != 1)
        return -1;
    (void)waitid(P_PID, static_cast<id_t>(pid), &how, WEXITED | WNOWAIT);
    return pid;
}

static bool is_collected(pid_t pid)
{
    return kill(pid, 0) < 0 && errno == ESRCH;
}

// The next two are why a program that starts commands beside a loop has to clear the flag. The loop
// has its chance between a command's end and the question for its status.
static int count_lost_statuses(bool handle_sigchld)
{
    default_signals();
    uloop_handle_sigchld = handle_sigchld;
    uloop_init();
    int stop[2];
    if (pipe(stop) < 0)
        return 250;
    static uloop_fd fd;
    fd.fd = stop[0];
    fd.cb = note_fd;
    uloop_fd_add(&fd, ULOOP_READ);
    std::thread loop([] { uloop_run(); });
    int lost = 0;
    for (int i = 0; i < COMMANDS; i++) {
        FILE *command = popen("echo $$; exit 3", "r");
        CHILD_CHECK(command != nullptr);
        const pid_t pid = ended_command(command);
        CHILD_CHECK(pid > 0);
        if (handle_sigchld)
            CHILD_CHECK(eventually([pid] { return is_collected(pid); }, 30000));
        int status = pclose(command);
        lost += status == -1 && errno == ECHILD ? 1 : 0;
        CHILD_CHECK(handle_sigchld || (WIFEXITED(status) && WEXITSTATUS(status) == 3));
    }
    if (write(stop[1], "x", 1) != 1)
        return 251;
    loop.join();
    return lost;
}

TEST(uloop, the_loop_steals_the_children_of_other_threads)
{
    EXPECT_EQ(COMMANDS, in_child([] { return count_lost_statuses(true); }, 60000));
}

TEST(uloop, without_the_flag_no_child_is_stolen)
{
    EXPECT_EQ(0, in_child([] { return count_lost_statuses(false); }, 60000));
}

// A handler from before the flag was cleared may still be in place and have noted a child.
TEST(uloop, a_child_noted_before_the_flag_was_cleared_is_not_collected)
{
    EXPECT_EQ(0, in_child([] {
                  default_signals();
                  uloop_init();
                  raise(SIGCHLD);
                  uloop_handle_sigchld = false;
                  pid_t pid = fork();
                  if (pid == 0)
                      _exit(5);
                  CHILD_CHECK(run_with_end_after(50) == 0);
                  int status = 0;
                  CHILD_CHECK(waitpid(pid, &status, 0) == pid && WEXITSTATUS(status) == 5);
                  return 0;
              }));
}
