/* SPDX-License-Identifier: ISC */
/* Circular doubly linked lists, for the loop, the bus client and the broker. */
#ifndef HOSTLIBS_LINK_H
#define HOSTLIBS_LINK_H

#include <libubox/uloop.h>
#include <stdbool.h>
#include <stddef.h>

#define LINK_EMPTY(name) \
    {                    \
        &(name), &(name) \
    }
#define link_entry(ptr, type, member) ((type *)(void *)((char *)(ptr)-offsetof(type, member)))
#define link_each(pos, head) for ((pos) = (head)->next; (pos) != (head); (pos) = (pos)->next)

static inline void link_init(struct list_head *head)
{
    head->next = head;
    head->prev = head;
}

static inline bool link_is_empty(const struct list_head *head)
{
    return head->next == head;
}

/* Puts item in front of where. If where is a list's head, that is the end of the list. */
static inline void link_before(struct list_head *where, struct list_head *item)
{
    item->prev = where->prev;
    item->next = where;
    where->prev->next = item;
    where->prev = item;
}

/* Leaves item pointing at itself, so removing it twice is harmless. Only items that were removed
   are freed; the analyzer does not see that. */
static inline void link_remove(struct list_head *item)
{
    /* NOLINTNEXTLINE(clang-analyzer-unix.Malloc) */
    item->prev->next = item->next;
    item->next->prev = item->prev;
    link_init(item);
}

#endif
