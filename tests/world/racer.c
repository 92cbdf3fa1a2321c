/* SPDX-License-Identifier: ISC */
/*
 * Races the daemon for the names in /tmp: watches the folder and does what it was told as soon as a
 * name goes or comes, then again at the next time.
 *
 * usage: racer RULE ...
 *   WHEN NAME DO PATH [WORD]   as five (four) arguments separated by ',' in one
 * WHEN   gone   NAME went from /tmp          made   it came (created, renamed or linked to)
 *        told   it was written and closed    ever   without waiting, all the time
 * DO     folder a folder, mode 777, with a link in it to WORD (DIR/NAME=TARGET) when there is one
 *        link   a symbolic link to WORD      hard   a hard link to WORD
 *        file   a file of mode 666 with the text WORD, whole at once
 *        fifo   a FIFO                       away   PATH is renamed to WORD
 *        over   file, renamed over PATH      read   reads PATH and tells its text
 * Each success is told on standard output: "DO PATH", with " TEXT" for read.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { MAX_RULES = 64, MAX_WORDS = 5, TEXT_SIZE = 4096 };

struct rule {
    const char *when, *name, *act, *path, *word;
};

static const struct {
    const char *name;
    unsigned mask;
} whens[] = {
    {"gone", IN_DELETE | IN_MOVED_FROM},
    {"made", IN_CREATE | IN_MOVED_TO},
    {"told", IN_CLOSE_WRITE},
    {"ever", 0},
};

static int put_folder(const struct rule *rule)
{
    if (mkdir(rule->path, 0777) != 0)
        return -1;
    (void)chmod(rule->path, 0777);
    if (rule->word == NULL)
        return 0;
    char inner[PATH_MAX];
    const char *equals = strchr(rule->word, '=');
    if (equals == NULL)
        return -1;
    snprintf(inner, sizeof inner, "%s/%.*s", rule->path, (int)(equals - rule->word), rule->word);
    return symlink(equals + 1, inner);
}

static int put_link(const struct rule *rule)
{
    return symlink(rule->word, rule->path);
}

static int put_hard(const struct rule *rule)
{
    return link(rule->word, rule->path);
}

/* Written under a name of its own, so that nobody sees it half. */
static int make_file(const struct rule *rule, char *own, size_t size)
{
    static unsigned count;
    snprintf(own, size, "/tmp/.racer-%d-%u", (int)getpid(), count++);
    int fd = open(own, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0)
        return -1;
    const char *text = rule->word == NULL ? "" : rule->word;
    const int bad = write(fd, text, strlen(text)) < 0;
    (void)close(fd);
    return bad ? -1 : 0;
}

static int put_file(const struct rule *rule)
{
    char own[64];
    if (make_file(rule, own, sizeof own) != 0)
        return -1;
    /* Never takes the place of what is there. musl has no renameat2(). */
    const int result =
        (int)syscall(SYS_renameat2, AT_FDCWD, own, AT_FDCWD, rule->path, RENAME_NOREPLACE);
    if (result != 0)
        (void)unlink(own);
    return result;
}

static int put_over(const struct rule *rule)
{
    char own[64];
    if (make_file(rule, own, sizeof own) != 0)
        return -1;
    const int result = rename(own, rule->path);
    if (result != 0)
        (void)unlink(own);
    return result;
}

static int put_fifo(const struct rule *rule)
{
    return mkfifo(rule->path, 0666);
}

static int put_away(const struct rule *rule)
{
    return rename(rule->path, rule->word);
}

static int tell_text(const struct rule *rule)
{
    int fd = open(rule->path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return -1;
    char text[TEXT_SIZE];
    const ssize_t length = read(fd, text, sizeof text - 1);
    (void)close(fd);
    if (length <= 0)
        return -1;
    text[length] = '\0';
    for (char *at = text; *at != '\0'; ++at)
        if (*at == '\n')
            *at = ' ';
    printf("read %s %s\n", rule->path, text);
    return 1;
}

static const struct {
    const char *name;
    int (*act)(const struct rule *rule);
} acts[] = {
    {"folder", put_folder}, {"link", put_link}, {"hard", put_hard}, {"file", put_file},
    {"fifo", put_fifo},     {"away", put_away}, {"over", put_over}, {"read", tell_text},
};

static void act(const struct rule *rule)
{
    for (size_t i = 0; i < sizeof acts / sizeof *acts; ++i)
        if (strcmp(acts[i].name, rule->act) == 0 && acts[i].act(rule) == 0)
            printf("%s %s\n", rule->act, rule->path);
    fflush(stdout);
}

static unsigned mask_of(const char *when)
{
    for (size_t i = 0; i < sizeof whens / sizeof *whens; ++i)
        if (strcmp(whens[i].name, when) == 0)
            return whens[i].mask;
    fprintf(stderr, "racer: no moment '%s'\n", when);
    exit(2);
}

static int knows(const char *name)
{
    for (size_t i = 0; i < sizeof acts / sizeof *acts; ++i)
        if (strcmp(acts[i].name, name) == 0)
            return 1;
    return 0;
}

static void parse(char *text, struct rule *rule)
{
    const char *words[MAX_WORDS] = {0};
    for (int i = 0; i < MAX_WORDS - 1; ++i)
        words[i] = strsep(&text, ",");
    words[MAX_WORDS - 1] = text; /* commas and all */
    *rule = (struct rule){words[0], words[1], words[2], words[3], words[4]};
    if (rule->path == NULL || !knows(rule->act)) {
        fprintf(stderr, "racer: a rule is WHEN,NAME,DO,PATH[,WORD]\n");
        exit(2);
    }
    (void)mask_of(rule->when);
}

static void serve(const struct inotify_event *event, const struct rule *rules, int count)
{
    for (int i = 0; i < count; ++i)
        if (event->len > 0 && strcmp(event->name, rules[i].name) == 0 &&
            (event->mask & mask_of(rules[i].when)) != 0)
            act(&rules[i]);
}

int main(int argc, char **argv)
{
    static struct rule rules[MAX_RULES];
    const int count = argc - 1;
    if (count < 1 || count > MAX_RULES)
        return 2;
    int restless = 0;
    for (int i = 0; i < count; ++i) {
        parse(argv[i + 1], &rules[i]);
        restless |= mask_of(rules[i].when) == 0;
    }
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watch < 0 || inotify_add_watch(watch, "/tmp",
                                       IN_DELETE | IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO |
                                           IN_CLOSE_WRITE) < 0) {
        perror("racer: /tmp");
        return 1;
    }
    puts("ready");
    fflush(stdout);
    for (;;) {
        char buffer[16 * (sizeof(struct inotify_event) + NAME_MAX + 1)]
            __attribute__((aligned(__alignof__(struct inotify_event))));
        struct pollfd wait = {watch, POLLIN, 0};
        if (!restless)
            (void)poll(&wait, 1, -1);
        const ssize_t length = read(watch, buffer, sizeof buffer);
        for (const char *at = buffer; length > 0 && at < buffer + length;) {
            const struct inotify_event *event = (const struct inotify_event *)at;
            serve(event, rules, count);
            at += sizeof *event + event->len;
        }
        for (int i = 0; i < count; ++i)
            if (mask_of(rules[i].when) == 0)
                act(&rules[i]);
    }
}
