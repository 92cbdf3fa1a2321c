/* SPDX-License-Identifier: ISC */
/* Configuration packages with their uncommitted changes: read, changed, written. */
#ifndef TESTWORLD_UCI_STORE_H
#define TESTWORLD_UCI_STORE_H

#include <stdio.h>
#include <uci.h>

#define STORE_SEARCH_MAX 4

struct uci_store {
    struct uci_context *ctx;
    const char *confdir;
    const char *savedir;                  /* where changes go */
    const char *search[STORE_SEARCH_MAX]; /* where changes are read from before those */
    int searches;
};

/* What a path such as wireless.@wifi-iface[-1].ssid names; the texts live in the argument. */
struct uci_place {
    struct uci_package *package;
    struct uci_section *section; /* NULL: there is none yet, or none is named */
    struct uci_option *option;
    char *package_name;
    char *section_name; /* as in the file or made up, never @type[n]; NULL: none is named */
    char *option_name;
};

/* Each returns UCI_OK or a code of uci.h. */

/* The package with all its changes; loaded once. */
int store_open(struct uci_store *store, const char *name, struct uci_package **package);

/* Changes path, which is then split. A section or an option that is not there is no error. */
int store_find(struct uci_store *store, char *path, struct uci_place *place);

/*
 * Makes a change and notes it among the uncommitted ones. operation: "set", "delete", "add_list",
 * "del_list" or "add", whose value is the type, and whose place has the new name.
 */
int store_change(struct uci_store *store, const char *operation, struct uci_place *place,
                 const char *value);

/* The name that the next anonymous section of this type will have. The caller frees it. */
char *store_next_name(const struct uci_package *package, const char *type);

/* Writes the package's file and forgets the changes; nothing where there are none. */
int store_commit(struct uci_store *store, const char *name);

/* Forgets the changes at and below a place. */
int store_revert(struct uci_store *store, const struct uci_place *place);

/* Prints the uncommitted changes of a package. */
int store_print_changes(struct uci_store *store, const char *name);

/* Prints the package as a file; with names the anonymous sections have theirs. */
void store_export(FILE *out, struct uci_package *package, bool names);

#endif
