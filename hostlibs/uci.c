/* SPDX-License-Identifier: ISC */
/* Loading configuration packages and looking things up. Uncommitted changes are not seen. */
#include <uci.h>

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "uci_parse.h"

#define READ_STEP 4096

static const char *const error_texts[] = {
    "Success",   "Out of memory", "Invalid argument", "Entry not found",
    "I/O error", "Parse error",   "Duplicate entry",  "Unknown error",
};
_Static_assert(sizeof(error_texts) / sizeof(error_texts[0]) == UCI_ERR_LAST, "one text per code");

static void list_init(struct uci_list *list)
{
    list->next = list;
    list->prev = list;
}

static void list_append(struct uci_list *list, struct uci_list *item)
{
    item->next = list;
    item->prev = list->prev;
    list->prev->next = item;
    list->prev = item;
}

static void list_remove(struct uci_list *item)
{
    item->prev->next = item->next;
    item->next->prev = item->prev;
    list_init(item);
}

static void *from_member(const void *member, size_t offset)
{
    return (char *)(uintptr_t)member - offset;
}

struct uci_element *list_to_element(const struct uci_list *list)
{
    return from_member(list, offsetof(struct uci_element, list));
}

struct uci_package *uci_to_package(const struct uci_element *e)
{
    return from_member(e, offsetof(struct uci_package, e));
}

struct uci_section *uci_to_section(const struct uci_element *e)
{
    return from_member(e, offsetof(struct uci_section, e));
}

struct uci_option *uci_to_option(const struct uci_element *e)
{
    return from_member(e, offsetof(struct uci_option, e));
}

static int set_error(struct uci_context *ctx, int code)
{
    ctx->err = code;
    return code;
}

/* A zeroed block with the element in front; its name is a copy. NULL without memory. */
static struct uci_element *new_element(size_t size, enum uci_type type, const char *name)
{
    struct uci_element *e = calloc(1, size);

    if (!e)
        return NULL;
    e->name = strdup(name);
    if (!e->name) {
        free(e);
        return NULL;
    }
    e->type = type;
    list_init(&e->list);
    return e;
}

static void free_element(struct uci_element *e)
{
    list_remove(&e->list);
    free(e->name);
    free(e);
}

/* The loops below free only what was removed from its list first. The analyzer does not see that.
   NOLINTBEGIN(clang-analyzer-unix.Malloc) */
static void free_items(struct uci_list *list)
{
    while (list->next != list)
        free_element(list_to_element(list->next));
}

static void drop_value(struct uci_option *o)
{
    if (o->type == UCI_TYPE_LIST)
        free_items(&o->v.list);
    else
        free(o->v.string);
}

static void free_option(struct uci_option *o)
{
    drop_value(o);
    free_element(&o->e);
}

static void free_section(struct uci_section *s)
{
    while (s->options.next != &s->options)
        free_option(uci_to_option(list_to_element(s->options.next)));
    free(s->type);
    free_element(&s->e);
}

static void free_package(struct uci_package *p)
{
    while (p->sections.next != &p->sections)
        free_section(uci_to_section(list_to_element(p->sections.next)));
    free(p->path);
    free_element(&p->e);
}
/* NOLINTEND(clang-analyzer-unix.Malloc) */

static struct uci_element *find(struct uci_list *list, const char *name)
{
    struct uci_element *e;

    uci_foreach_element(list, e)
    {
        if (strcmp(e->name, name) == 0)
            return e;
    }
    return NULL;
}

struct uci_context *uci_alloc_context(void)
{
    struct uci_context *ctx = calloc(1, sizeof(*ctx));

    if (!ctx)
        return NULL;
    list_init(&ctx->root);
    ctx->confdir = strdup(UCI_CONFDIR);
    ctx->savedir = strdup(UCI_SAVEDIR);
    if (!ctx->confdir || !ctx->savedir) {
        uci_free_context(ctx);
        return NULL;
    }
    return ctx;
}

void uci_free_context(struct uci_context *ctx)
{
    while (ctx->root.next != &ctx->root)
        free_package(uci_to_package(list_to_element(ctx->root.next)));
    free(ctx->confdir);
    free(ctx->savedir);
    free(ctx);
}

static int replace_text(struct uci_context *ctx, char **text, const char *value)
{
    char *copy;

    if (!value)
        return set_error(ctx, UCI_ERR_INVAL);
    copy = strdup(value);
    if (!copy)
        return set_error(ctx, UCI_ERR_MEM);
    free(*text);
    *text = copy;
    return UCI_OK;
}

int uci_set_confdir(struct uci_context *ctx, const char *dir)
{
    return replace_text(ctx, &ctx->confdir, dir);
}

int uci_set_savedir(struct uci_context *ctx, const char *dir)
{
    return replace_text(ctx, &ctx->savedir, dir);
}

static unsigned int hash_type(const char *type)
{
    unsigned int hash = 5381;

    for (; *type; type++)
        hash = hash * 33 + (unsigned char)*type;
    return hash & 0x7fffffff;
}

/* People type these names into their shells, so they must be the same on every machine. */
static void made_up_name(char *name, size_t size, int ordinal, const char *type)
{
    snprintf(name, size, "cfg%02x%04x", (unsigned int)ordinal, hash_type(type) & 0xffff);
}

static struct uci_section *new_section(struct uci_package *p, const char *type, const char *name)
{
    struct uci_element *e = new_element(sizeof(struct uci_section), UCI_TYPE_SECTION, name);
    struct uci_section *s;

    if (!e)
        return NULL;
    s = uci_to_section(e);
    list_init(&s->options);
    s->package = p;
    s->type = strdup(type);
    if (!s->type) {
        free_section(s);
        return NULL;
    }
    list_append(&p->sections, &s->e.list);
    return s;
}

static int reopen_section(struct uci_section *s, const char *type, struct uci_section **section)
{
    if (strcmp(s->type, type) != 0)
        return UCI_ERR_DUPLICATE;
    *section = s;
    return UCI_OK;
}

int uci_put_section(struct uci_package *p, const char *type, const char *name,
                    struct uci_section **section)
{
    struct uci_element *known = name[0] ? find(&p->sections, name) : NULL;
    struct uci_section *s;
    char made_up[32];

    if (known)
        return reopen_section(uci_to_section(known), type, section);
    p->n_section++;
    made_up_name(made_up, sizeof(made_up), p->n_section, type);
    s = new_section(p, type, name[0] ? name : made_up);
    if (!s)
        return UCI_ERR_MEM;
    s->anonymous = !name[0];
    *section = s;
    return UCI_OK;
}

static struct uci_option *new_option(struct uci_section *s, const char *name)
{
    struct uci_element *e = new_element(sizeof(struct uci_option), UCI_TYPE_OPTION, name);
    struct uci_option *o;

    if (!e)
        return NULL;
    o = uci_to_option(e);
    o->section = s;
    o->type = UCI_TYPE_STRING;
    list_append(&s->options, &e->list);
    return o;
}

static struct uci_option *get_option(struct uci_section *s, const char *name)
{
    struct uci_element *known = find(&s->options, name);

    return known ? uci_to_option(known) : new_option(s, name);
}

/* A string replaces the earlier value, even a whole list. The option stays at its place. */
int uci_put_option(struct uci_section *s, const char *name, const char *value)
{
    char *copy = strdup(value);
    struct uci_option *o = copy ? get_option(s, name) : NULL;

    if (!o) {
        free(copy);
        return UCI_ERR_MEM;
    }
    drop_value(o);
    o->type = UCI_TYPE_STRING;
    o->v.string = copy;
    return UCI_OK;
}

static int append_item(struct uci_option *o, const char *value)
{
    struct uci_element *item = new_element(sizeof(*item), UCI_TYPE_ITEM, value);

    if (!item)
        return UCI_ERR_MEM;
    list_append(&o->v.list, &item->list);
    return UCI_OK;
}

/* A string that the option had before becomes the first item of the list. */
static int become_list(struct uci_option *o)
{
    char *old = o->v.string;
    int code = UCI_OK;

    o->type = UCI_TYPE_LIST;
    list_init(&o->v.list);
    if (old)
        code = append_item(o, old);
    free(old);
    return code;
}

int uci_put_list_item(struct uci_section *s, const char *name, const char *value)
{
    struct uci_option *o = get_option(s, name);
    int code = UCI_OK;

    if (!o)
        return UCI_ERR_MEM;
    if (o->type != UCI_TYPE_LIST)
        code = become_list(o);
    return code == UCI_OK ? append_item(o, value) : code;
}

static bool is_package_name(const char *name)
{
    if (!name[0])
        return false;
    for (; *name; name++) {
        if (*name < 33 || *name > 126)
            return false;
    }
    return true;
}

/*
 * The path of a package's file. A name like "/..." or "./..." is the path itself. The caller frees
 * it.
 */
static int find_path(const struct uci_context *ctx, const char *name, char **path)
{
    size_t size = strlen(ctx->confdir) + strlen(name) + 2;

    if (name[0] == '.' && name[1] != '/')
        return UCI_ERR_NOTFOUND;
    if (name[0] != '/' && name[0] != '.' && !is_package_name(name))
        return UCI_ERR_INVAL;
    *path = malloc(size);
    if (!*path)
        return UCI_ERR_MEM;
    if (name[0] == '/' || name[0] == '.')
        snprintf(*path, size, "%s", name);
    else
        snprintf(*path, size, "%s/%s", ctx->confdir, name);
    return UCI_OK;
}

static const char *package_name(const char *name)
{
    const char *slash = strrchr(name, '/');

    return (name[0] == '/' || name[0] == '.') && slash ? slash + 1 : name;
}

static int code_of_errno(int number)
{
    return number == ENOENT || number == ENOTDIR || number == EISDIR ? UCI_ERR_NOTFOUND
                                                                     : UCI_ERR_IO;
}

/* Looks at the file before it opens it: to open a pipe that nobody writes to would never return. */
static int open_file(const char *path, int *fd)
{
    struct stat st;

    if (stat(path, &st) < 0)
        return code_of_errno(errno);
    if (!S_ISREG(st.st_mode))
        return UCI_ERR_NOTFOUND;
    *fd = open(path, O_RDONLY | O_CLOEXEC);
    if (*fd < 0)
        return code_of_errno(errno);
    /*
     * While another program writes the file, this waits until it has finished. A signal ends the
     * wait.
     */
    if (flock(*fd, LOCK_SH) < 0 && errno != ENOSYS) {
        close(*fd);
        return UCI_ERR_IO;
    }
    return UCI_OK;
}

static int read_all(int fd, char **text, size_t *len)
{
    size_t size = 0;

    *text = NULL;
    *len = 0;
    for (;;) {
        ssize_t got;

        if (size - *len < READ_STEP) {
            char *grown = realloc(*text, size += size + READ_STEP);

            if (!grown)
                return UCI_ERR_MEM;
            *text = grown;
        }
        got = read(fd, *text + *len, size - *len);
        if (got == 0)
            return UCI_OK;
        if (got < 0 && errno != EINTR)
            return UCI_ERR_IO;
        *len += got > 0 ? (size_t)got : 0;
    }
}

static struct uci_package *new_package(struct uci_context *ctx, const char *name, const char *path)
{
    struct uci_element *e = new_element(sizeof(struct uci_package), UCI_TYPE_PACKAGE, name);
    struct uci_package *p;

    if (!e)
        return NULL;
    p = uci_to_package(e);
    list_init(&p->sections);
    p->ctx = ctx;
    p->path = strdup(path);
    if (!p->path) {
        free_package(p);
        return NULL;
    }
    return p;
}

static int parse_file(struct uci_context *ctx, struct uci_package *p, int fd)
{
    char *text;
    size_t len;
    int code = read_all(fd, &text, &len);

    if (code == UCI_OK)
        code = uci_parse_text(ctx, p, text, len);
    free(text);
    return code;
}

static int load_package(struct uci_context *ctx, struct uci_package *p)
{
    int fd = -1;
    int code = open_file(p->path, &fd);

    if (code != UCI_OK)
        return code;
    code = parse_file(ctx, p, fd);
    close(fd);
    return code;
}

static int load_path(struct uci_context *ctx, const char *name, const char *path,
                     struct uci_package **package)
{
    struct uci_package *p;
    int code;

    if (find(&ctx->root, package_name(name)))
        return UCI_ERR_DUPLICATE;
    p = new_package(ctx, package_name(name), path);
    if (!p)
        return UCI_ERR_MEM;
    p->has_delta = name[0] != '/' && name[0] != '.';
    code = load_package(ctx, p);
    if (code != UCI_OK) {
        free_package(p);
        return code;
    }
    list_append(&ctx->root, &p->e.list);
    if (package)
        *package = p;
    return UCI_OK;
}

int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package)
{
    char *path = NULL;
    int code;

    if (!ctx)
        return UCI_ERR_INVAL;
    ctx->reason = NULL;
    code = find_path(ctx, name, &path);
    if (code == UCI_OK)
        code = load_path(ctx, name, path, package);
    free(path);
    return set_error(ctx, code);
}

int uci_unload(struct uci_context *ctx, struct uci_package *p)
{
    if (!p)
        return set_error(ctx, UCI_ERR_INVAL);
    free_package(p);
    return UCI_OK;
}

int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list,
                    const char *name)
{
    *e = find(list, name);
    return *e ? UCI_OK : set_error(ctx, UCI_ERR_NOTFOUND);
}

struct uci_package *uci_lookup_package(struct uci_context *ctx, const char *name)
{
    struct uci_element *e;

    return uci_lookup_next(ctx, &e, &ctx->root, name) == UCI_OK ? uci_to_package(e) : NULL;
}

struct uci_section *uci_lookup_section(struct uci_context *ctx, struct uci_package *p,
                                       const char *name)
{
    struct uci_element *e;

    return uci_lookup_next(ctx, &e, &p->sections, name) == UCI_OK ? uci_to_section(e) : NULL;
}

struct uci_option *uci_lookup_option(struct uci_context *ctx, struct uci_section *s,
                                     const char *name)
{
    struct uci_element *e;

    return uci_lookup_next(ctx, &e, &s->options, name) == UCI_OK ? uci_to_option(e) : NULL;
}

const char *uci_lookup_option_string(struct uci_context *ctx, struct uci_section *s,
                                     const char *name)
{
    struct uci_option *o = uci_lookup_option(ctx, s, name);

    return o && o->type == UCI_TYPE_STRING ? o->v.string : NULL;
}

static void describe(const struct uci_context *ctx, char *text, size_t size)
{
    int code = ctx->err >= 0 && ctx->err < UCI_ERR_LAST ? ctx->err : UCI_ERR_UNKNOWN;

    if (code == UCI_ERR_PARSE && ctx->reason)
        snprintf(text, size, "%s (%s) at line %d, byte %d", error_texts[code], ctx->reason,
                 ctx->line, ctx->byte);
    else
        snprintf(text, size, "%s", error_texts[code]);
}

void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *str)
{
    const char *prefix = str ? str : "";
    const char *colon = str ? ": " : "";
    char text[256];

    describe(ctx, text, sizeof(text));
    if (!dest)
        fprintf(stderr, "%s%s%s\n", prefix, colon, text);
    else if (asprintf(dest, "%s%s%s", prefix, colon, text) < 0)
        *dest = NULL;
}

void uci_perror(struct uci_context *ctx, const char *str)
{
    uci_get_errorstr(ctx, NULL, str);
}
