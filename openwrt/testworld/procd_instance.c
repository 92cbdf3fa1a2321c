/* SPDX-License-Identifier: ISC */
#include "procd_instance.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "procd_output.h"

#define ARGUMENTS_MAX 64
#define TERM_TIMEOUT_S 5
#define BOOT_PATH "/usr/sbin:/usr/bin:/sbin:/bin"

struct respawn {
    unsigned int threshold_s;
    unsigned int timeout_s;
    unsigned int retry;
};

static const char *text_of(struct json_object *config, const char *key)
{
    struct json_object *value;

    return json_object_object_get_ex(config, key, &value) ? json_object_get_string(value) : NULL;
}

static bool truth_of(struct json_object *config, const char *key)
{
    struct json_object *value;

    return json_object_object_get_ex(config, key, &value) && json_object_get_boolean(value);
}

static int number_of(struct json_object *config, const char *key, int other)
{
    struct json_object *value;

    return json_object_object_get_ex(config, key, &value) ? json_object_get_int(value) : other;
}

/* A member of another type is as good as none. */
static struct json_object *member_of(struct json_object *config, const char *key,
                                     enum json_type type)
{
    struct json_object *value;

    return json_object_object_get_ex(config, key, &value) && json_object_is_type(value, type)
               ? value
               : NULL;
}

/* Not there: it is not started again. */
static bool respawn_of(struct json_object *config, struct respawn *respawn)
{
    struct json_object *words = member_of(config, "respawn", json_type_array);
    unsigned int *const numbers[] = {&respawn->threshold_s, &respawn->timeout_s, &respawn->retry};

    *respawn = (struct respawn){3600, 5, 5};
    if (!words)
        return false;
    for (size_t i = 0; i < 3 && i < json_object_array_length(words); i++) {
        const char *word = json_object_get_string(json_object_array_get_idx(words, i));

        if (word)
            *numbers[i] = (unsigned int)strtoul(word, NULL, 10);
    }
    return true;
}

/* FNV-1a of what is in a file; a missing one has a digest too. */
static int64_t digest_of(const char *path)
{
    FILE *file = fopen(path, "re");
    uint64_t digest = 0xcbf29ce484222325U;
    int byte;

    while (file && (byte = fgetc(file)) != EOF)
        digest = (digest ^ (unsigned int)byte) * 0x100000001b3U;
    if (file)
        fclose(file);
    return (int64_t)(digest & INT64_MAX);
}

/* So that a file that changes makes another message. */
static struct json_object *with_digests(struct json_object *config)
{
    struct json_object *digests = json_object_new_array();
    struct json_object *files = member_of(config, "file", json_type_array);

    for (size_t i = 0; files && i < json_object_array_length(files); i++) {
        const char *path = json_object_get_string(json_object_array_get_idx(files, i));

        json_object_array_add(digests, json_object_new_int64(path ? digest_of(path) : 0));
    }
    json_object_object_add(config, "file_digests", digests);
    return config;
}

struct instance *instance_new(const char *service, const char *name, struct json_object *config)
{
    struct instance *instance = calloc(1, sizeof(*instance));

    if (!instance)
        abort();
    instance->service = strdup(service);
    instance->name = strdup(name);
    instance->config = with_digests(json_object_get(config));
    return instance;
}

void instance_free(struct instance *instance)
{
    json_object_put(instance->config);
    free(instance->service);
    free(instance->name);
    free(instance);
}

static bool fill_arguments(struct json_object *config, char **arguments)
{
    struct json_object *words = member_of(config, "command", json_type_array);
    size_t count = words ? json_object_array_length(words) : 0;

    if (count == 0 || count >= ARGUMENTS_MAX)
        return false;
    for (size_t i = 0; i < count; i++) {
        arguments[i] =
            (char *)(uintptr_t)json_object_get_string(json_object_array_get_idx(words, i));
        if (!arguments[i])
            return false;
    }
    arguments[count] = NULL;
    return true;
}

/* A name that nobody has changes nothing: the process is root's then. */
static void change_user(struct json_object *config)
{
    const char *user = text_of(config, "user");
    struct passwd *account = user ? getpwnam(user) : NULL;
    const char *group = text_of(config, "group");
    struct group *named = group ? getgrnam(group) : NULL;

    if (named || account) {
        gid_t gid = named ? named->gr_gid : account->pw_gid;

        if (setgroups(1, &gid) != 0 || setgid(gid) != 0)
            _exit(127);
    }
    if (account && setuid(account->pw_uid) != 0)
        _exit(127);
}

static void become(struct json_object *config, char **arguments, int out, int err)
{
    struct json_object *variables = member_of(config, "env", json_type_object);
    int none = open("/dev/null", O_RDWR);
    sigset_t all;

    dup2(none, STDIN_FILENO);
    dup2(out >= 0 ? out : none, STDOUT_FILENO);
    dup2(err >= 0 ? err : none, STDERR_FILENO);
    if (none > STDERR_FILENO)
        close(none);
    sigemptyset(&all);
    sigprocmask(SIG_SETMASK, &all, NULL);
    /* nohup has it ignored, and a shell cannot trap what was ignored when it began. */
    signal(SIGHUP, SIG_DFL);
    setenv("PATH", BOOT_PATH, 1);
    if (variables) {
        json_object_object_foreach(variables, name, value)
        {
            if (value)
                setenv(name, json_object_get_string(value), 1);
        }
    }
    change_user(config);
    if (chdir("/") == 0)
        execvp(arguments[0], arguments);
    _exit(127);
}

static void write_pid_file(const struct instance *instance)
{
    const char *path = text_of(instance->config, "pidfile");
    FILE *file = path ? fopen(path, "we") : NULL;

    if (file) {
        fprintf(file, "%d\n", (int)instance->pid);
        fclose(file);
    }
}

static int open_stream(struct json_object *config, const char *key, int ends[2])
{
    ends[0] = ends[1] = -1;
    return truth_of(config, key) ? pipe2(ends, O_CLOEXEC) : 0;
}

static void keep_stream(const struct instance *instance, const int ends[2], bool is_error,
                        const char *program)
{
    if (ends[1] < 0)
        return;
    close(ends[1]);
    output_add(ends[0], program, instance->pid, is_error);
}

static void launch(struct instance *instance)
{
    char *arguments[ARGUMENTS_MAX];
    int out[2];
    int err[2];

    if (!fill_arguments(instance->config, arguments) ||
        open_stream(instance->config, "stdout", out) != 0 ||
        open_stream(instance->config, "stderr", err) != 0)
        return;
    instance->pid = fork();
    if (instance->pid == 0)
        become(instance->config, arguments, out[1], err[1]);
    instance->started = procd_now();
    keep_stream(instance, out, false, arguments[0]);
    keep_stream(instance, err, true, arguments[0]);
    write_pid_file(instance);
}

void instance_start(struct instance *instance)
{
    instance->is_going = false;
    instance->wanted = true;
    instance->start_at = 0;
    if (instance->pid > 0)
        instance->start_again = true;
    else
        launch(instance);
}

void instance_stop(struct instance *instance)
{
    instance->wanted = false;
    instance->start_again = false;
    instance->start_at = 0;
    if (instance->pid <= 0 || instance->kill_at != 0)
        return;
    kill(instance->pid, SIGTERM);
    instance->kill_at =
        procd_now() + number_of(instance->config, "term_timeout", TERM_TIMEOUT_S) * 1000L;
}

void instance_update(struct instance *instance, struct json_object *config)
{
    struct json_object *fresh = with_digests(json_object_get(config));
    bool changed = !json_object_equal(instance->config, fresh);
    int reload_signal = number_of(fresh, "reload_signal", 0);
    struct json_object *old = instance->config;

    if (instance->pid <= 0 || instance->is_going) {
        instance->config = fresh;
        if (!instance->start_at || instance->is_going)
            instance_start(instance);
    } else if (changed && reload_signal > 0) {
        instance->config = fresh;
        kill(instance->pid, reload_signal);
    } else if (changed) {
        instance_stop(instance); /* by the old settings */
        instance->config = fresh;
        instance_start(instance);
    } else {
        old = fresh;
    }
    json_object_put(old);
}

static void respawn(struct instance *instance)
{
    procd_time_t now = procd_now();
    struct respawn rule;

    if (!respawn_of(instance->config, &rule)) {
        instance->wanted = false;
        return;
    }
    if (now - instance->started < rule.threshold_s * 1000L)
        instance->crashes++;
    else
        instance->crashes = 0;
    if (rule.retry > 0 && instance->crashes > rule.retry) {
        output_log("Instance %s::%s s in a crash loop %u crashes, %ld seconds since last crash",
                   instance->service, instance->name, instance->crashes,
                   (now - instance->started) / 1000);
        instance->wanted = false;
        return;
    }
    instance->start_at = now + rule.timeout_s * 1000L;
}

void instance_ended(struct instance *instance, int status)
{
    const char *pid_file = text_of(instance->config, "pidfile");

    if (pid_file)
        (void)unlink(pid_file);
    instance->exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    instance->pid = 0;
    instance->kill_at = 0;
    if (instance->start_again) {
        instance->start_again = false;
        launch(instance);
    } else if (instance->wanted) {
        respawn(instance);
    }
}

procd_time_t instance_tick(struct instance *instance, procd_time_t now)
{
    if (procd_time_is_up(&instance->kill_at, now) && instance->pid > 0)
        kill(instance->pid, SIGKILL);
    if (procd_time_is_up(&instance->start_at, now) && instance->pid <= 0)
        launch(instance);
    return procd_earlier(instance->kill_at, instance->start_at);
}

static void add_respawn(struct json_object *state, struct json_object *config)
{
    struct respawn rule;
    struct json_object *shown;

    if (!respawn_of(config, &rule))
        return;
    shown = json_object_new_object();
    json_object_object_add(shown, "threshold", json_object_new_int((int)rule.threshold_s));
    json_object_object_add(shown, "timeout", json_object_new_int((int)rule.timeout_s));
    json_object_object_add(shown, "retry", json_object_new_int((int)rule.retry));
    json_object_object_add(state, "respawn", shown);
}

struct json_object *instance_state(const struct instance *instance)
{
    static const char *const copied[] = {"command", "env", "data", "pidfile", "user", "group"};
    struct json_object *state = json_object_new_object();
    bool runs = instance->pid > 0;

    json_object_object_add(state, "running", json_object_new_boolean(runs));
    if (runs)
        json_object_object_add(state, "pid", json_object_new_int(instance->pid));
    else
        json_object_object_add(state, "exit_code", json_object_new_int(instance->exit_code));
    json_object_object_add(
        state, "term_timeout",
        json_object_new_int(number_of(instance->config, "term_timeout", TERM_TIMEOUT_S)));
    for (size_t i = 0; i < sizeof(copied) / sizeof(copied[0]); i++) {
        struct json_object *value;

        if (json_object_object_get_ex(instance->config, copied[i], &value))
            json_object_object_add(state, copied[i], json_object_get(value));
    }
    add_respawn(state, instance->config);
    return state;
}
