/* SPDX-License-Identifier: ISC */
/* The event loop of a process: descriptors, one-shot timers, and signals that end it. */
#ifndef HOSTLIBS_LIBUBOX_ULOOP_H
#define HOSTLIBS_LIBUBOX_ULOOP_H

#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef HOSTLIBS_LIST_HEAD
#define HOSTLIBS_LIST_HEAD
struct list_head {
    struct list_head *next;
    struct list_head *prev;
};
#endif

struct uloop_fd;
struct uloop_timeout;

typedef void (*uloop_fd_handler)(struct uloop_fd *u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *t);

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EDGE_TRIGGER (1 << 2)
#define ULOOP_BLOCKING (1 << 3)
#define ULOOP_ERROR_CB (1 << 6)

/* All zero except cb and fd. Must stay at one address until it is deleted. */
struct uloop_fd {
    uloop_fd_handler cb;
    int fd;
    bool eof;
    bool error;
    bool registered;
    uint8_t flags;
};

/* All zero except cb. */
struct uloop_timeout {
    struct list_head list;
    bool pending;
    uloop_timeout_handler cb;
    struct timeval time;
};

extern bool uloop_cancelled;
extern bool uloop_handle_sigchld; /* set once, before the first uloop_init */

int uloop_init(void);
/* 0 when ended by uloop_end, else the signal that ended it. */
int uloop_run(void);
int uloop_run_timeout(int timeout);
void uloop_done(void);
bool uloop_cancelling(void);

/* Does not wake a sleeping loop: call it from a callback. */
static inline void uloop_end(void)
{
    uloop_cancelled = true;
}

int uloop_fd_add(struct uloop_fd *sock, unsigned int flags);
int uloop_fd_delete(struct uloop_fd *sock);

int uloop_timeout_add(struct uloop_timeout *timeout);
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);
int uloop_timeout_cancel(struct uloop_timeout *timeout);
int uloop_timeout_remaining(struct uloop_timeout *timeout);
int64_t uloop_timeout_remaining64(struct uloop_timeout *timeout);

#ifdef __cplusplus
}
#endif

#endif
