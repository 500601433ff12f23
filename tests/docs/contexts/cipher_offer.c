/* SPDX-License-Identifier: Apache-2.0 */
/* Offers what a cipher string selects. */
#include <string.h>

#include <tarnutil/ssl_suite.h>

static unsigned offered;

static void offer(const ssl_suite_t* suite) {
    if (strstr(ssl_cipher_suite_name(suite), "GCM") != NULL) ++offered;
}

static int apply(const char* text) {
    /* snippet */
    return 0;
}

int main(void) {
    if (apply("no-such-suite") != 1 || offered != 0) return 1;
    if (apply("default:!tlsv1_3") != 0) return 1;
    return offered == 2 ? 0 : 1;
}
