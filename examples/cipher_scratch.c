/* SPDX-License-Identifier: Apache-2.0 */
/* Keeps a server's offer as it is when a new cipher string fails half way.
 *
 * The string is applied to a scratch context and copied on success, so that the tokens in front of
 * an unknown word leave no trace.
 */
#include <stdio.h>
#include <string.h>

#include <tarnutil/ssl_suite.h>

/* A context's list points into its own entries: a copy is linked anew, in the same order. */
static void copy_selection(ssl_suite_ctx_t* to, const ssl_suite_ctx_t* from) {
    const ssl_suite_entry_t* entry;
    *to = *from;
    to->last = &to->first;
    for (entry = from->first; entry != NULL; entry = entry->next) {
        ssl_suite_entry_t* const copy = &to->entries[entry - from->entries];
        copy->prev = to->last;
        *to->last = copy;
        to->last = &copy->next;
    }
    *to->last = NULL;
}

static int apply_or_leave(ssl_suite_ctx_t* ctx, const char* text) {
    ssl_suite_ctx_t scratch;
    copy_selection(&scratch, ctx);
    if (ssl_suite_cmd(&scratch, text, (unsigned)strlen(text), 1, NULL, NULL) != 1) return 0;
    copy_selection(ctx, &scratch);
    return 1;
}

static unsigned offered(const ssl_suite_ctx_t* ctx) {
    const ssl_suite_entry_t* entry;
    unsigned count = 0;
    for (entry = ctx->first; entry != NULL; entry = entry->next) {
        count += entry->flags & SSL_SUITE_ENTRY_ENABLED;
    }
    return count;
}

int main(void) {
    ssl_suite_ctx_t ctx;
    unsigned before;

    ssl_suite_ctx_init(&ctx);
    if (!apply_or_leave(&ctx, "ecdhe+aes-gcm:@strength")) return 1;
    before = offered(&ctx);
    printf("%u suites offered\n", before);
    if (apply_or_leave(&ctx, "!ecdhe:aes, rc4")) return 1;
    printf("%u after a string that fails\n", offered(&ctx));
    return before == 2 && offered(&ctx) == before ? 0 : 1;
}
