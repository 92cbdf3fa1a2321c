/* SPDX-License-Identifier: ISC */
/*
 * What the two halves of the configuration reader share: one reads the text, one keeps the
 * elements.
 */
#ifndef HOSTLIBS_UCI_PARSE_H
#define HOSTLIBS_UCI_PARSE_H

#include <uci.h>

/*
 * Parses len bytes of text, which it may change, into the package. Strict: the first error
 * ends it, is noted in ctx and returned. The caller then throws the package away.
 */
int uci_parse_text(struct uci_context *ctx, struct uci_package *p, char *text, size_t len);

/*
 * Carry out one statement. They return 0, UCI_ERR_MEM, or UCI_ERR_DUPLICATE when the section exists
 * with another type. An empty name makes an anonymous section. *section is set on success.
 */
int uci_put_section(struct uci_package *p, const char *type, const char *name,
                    struct uci_section **section);
int uci_put_option(struct uci_section *s, const char *name, const char *value);
int uci_put_list_item(struct uci_section *s, const char *name, const char *value);

#endif
