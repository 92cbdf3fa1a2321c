/* SPDX-License-Identifier: ISC */
/* Reading configuration files: packages, sections, options. */
#ifndef HOSTLIBS_UCI_H
#define HOSTLIBS_UCI_H

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define UCI_CONFDIR "/etc/config"
#define UCI_SAVEDIR "/tmp/.uci"

enum {
    UCI_OK,
    UCI_ERR_MEM,
    UCI_ERR_INVAL,
    UCI_ERR_NOTFOUND,
    UCI_ERR_IO,
    UCI_ERR_PARSE,
    UCI_ERR_DUPLICATE,
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7,
    UCI_TYPE_HOOK = 8
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

/* First member of package, section and option. For a list item the name is the value. */
struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name;
};

struct uci_context {
    struct uci_list root; /* loaded packages */
    int err;              /* code of the last failed call */
    char *confdir;
    char *savedir;

    /* private: where and why the last parse failed */
    const char *reason;
    int line;
    int byte;
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    bool has_delta;
    char *path;
    int n_section; /* private: sections counted so far */
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package *package;
    bool anonymous;
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list list; /* UCI_TYPE_LIST */
        char *string;         /* UCI_TYPE_STRING */
    } v;
};

struct uci_context *uci_alloc_context(void);
void uci_free_context(struct uci_context *ctx);
int uci_set_confdir(struct uci_context *ctx, const char *dir);
int uci_set_savedir(struct uci_context *ctx, const char *dir);

/* Reads the file anew. *package stays as it was on failure. */
int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);
/* Every pointer into the package is invalid afterwards. */
int uci_unload(struct uci_context *ctx, struct uci_package *p);

int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list,
                    const char *name);
struct uci_package *uci_lookup_package(struct uci_context *ctx, const char *name);
struct uci_section *uci_lookup_section(struct uci_context *ctx, struct uci_package *p,
                                       const char *name);
struct uci_option *uci_lookup_option(struct uci_context *ctx, struct uci_section *s,
                                     const char *name);
/* NULL for a list as well. */
const char *uci_lookup_option_string(struct uci_context *ctx, struct uci_section *s,
                                     const char *name);

/* Prints the last error to stderr. */
void uci_perror(struct uci_context *ctx, const char *str);
/* Stores a malloc'ed text in *dest; with a NULL dest it prints to stderr. */
void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *str);

struct uci_element *list_to_element(const struct uci_list *list);
struct uci_package *uci_to_package(const struct uci_element *e);
struct uci_section *uci_to_section(const struct uci_element *e);
struct uci_option *uci_to_option(const struct uci_element *e);

#define uci_foreach_element(_list, _ptr)                                    \
    for ((_ptr) = list_to_element((_list)->next); &(_ptr)->list != (_list); \
         (_ptr) = list_to_element((_ptr)->list.next))

#define uci_foreach_element_safe(_list, _tmp, _ptr)                                            \
    for ((_ptr) = list_to_element((_list)->next), (_tmp) = list_to_element((_ptr)->list.next); \
         &(_ptr)->list != (_list); (_ptr) = (_tmp), (_tmp) = list_to_element((_ptr)->list.next))

#ifdef __cplusplus
}
#endif

#endif
