/* SPDX-License-Identifier: Apache-2.0 */
/* Prints what a server offers under a cipher string, best first, as the rows of a table.
 *
 *     cipher_offer 'default:!rc4:@strength'
 */
#include <stdio.h>
#include <string.h>

#include <tarnutil/ssl_suite.h>

static int say_unknown(void* arg, ssl_suite_ctx_t* ctx, const char* term) {
    (void)ctx;
    (void)fprintf((FILE*)arg, "not a cipher keyword or suite: \"%s\"\n", term);
    return 0;
}

static void print_offer(const ssl_suite_ctx_t* ctx) {
    const ssl_suite_entry_t* entry;
    for (entry = ctx->first; entry != NULL; entry = entry->next) {
        char row[SSL_SUITE_ROW_SIZE];
        if ((entry->flags & SSL_SUITE_ENTRY_ENABLED) == 0) continue;
        puts(ssl_cipher_suite(row, sizeof row, &ssl_suite[entry->suite]));
    }
}

int main(int argc, char** argv) {
    const char* text = argc > 1 ? argv[1] : "default";
    ssl_suite_ctx_t ctx;

    ssl_suite_ctx_init(&ctx);
    ctx.default_string = "tlsv1_3:ecdhe+aes-gcm:ecdhe_ecdsa+aes-gcm:@strength";
    ctx.report = "on";
    if (ssl_suite_cmd(&ctx, text, (unsigned)strlen(text), 1, say_unknown, stderr) != 1) return 1;
    print_offer(&ctx);
    return 0;
}
