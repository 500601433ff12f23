/* SPDX-License-Identifier: Apache-2.0 */
/* Every function of ip.h called from C99. Exits with the number of what went wrong, 0 if nothing.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tarnutil/ip.h>

static int failures = 0;

static void expect(int holds, const char* what) {
    if (holds) return;
    ++failures;
    fprintf(stderr, "does not hold: %s\n", what);
}

static void expect_text(const char* actual, const char* expected) {
    if (actual != NULL && strcmp(actual, expected) == 0) return;
    ++failures;
    fprintf(stderr, "%s instead of %s\n", actual != NULL ? actual : "NULL", expected);
}

static void test_text(void) {
    static const uint8_t mapped[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 10, 1, 2, 3};
    ip_addr_t addr;
    char text[64];

    ip_pton_r("10.1.2.3", &addr);
    expect(memcmp(addr.bytes, mapped, sizeof mapped) == 0, "10.1.2.3 is held mapped");
    ip_pton_r("nonsense", &addr);
    expect(memcmp(addr.bytes, mapped, sizeof mapped) == 0, "nonsense leaves the record");
    expect(ip_ntop_r(&addr, text, sizeof text) == text, "ip_ntop_r returns its buffer");
    expect_text(text, "10.1.2.3");
    expect(ip_ntop_r(&addr, text, 3) == NULL, "ip_ntop_r is NULL if the text does not fit");
    expect_text(ip_ntop(ip_pton("fe80::1")), "fe80::1");
    expect(ip_nptop_r(&addr, 80, text, sizeof text) == 11, "the length with the port");
    expect_text(text, "10.1.2.3:80");
    expect_text(ip_nptop(ip_pton("::1"), 65616), "::1.80");
}

static void test_hosts(void) {
    ip_addr_t network, mask;
    ip_addr_t* hosts;
    uint32_t count = 0;

    ip_pton_r("10.0.0.0", &network);
    ip_pton_r("255.255.0.0", &mask);
    hosts = hosts_on_network(&network, &mask, &count);
    expect(hosts != NULL && count == 65536, "65536 hosts");
    if (hosts == NULL) return;
    expect_text(ip_ntop(&hosts[0]), "10.0.0.0");
    expect_text(ip_ntop(&hosts[1]), "10.0.1.0");
    expect_text(ip_ntop(&hosts[256]), "10.0.0.1");
    expect_text(ip_ntop(&hosts[65535]), "10.0.255.255");
    free(hosts);
    expect(hosts_on_network(NULL, &mask, &count) == NULL, "no hosts without a network");
}

int main(void) {
    test_text();
    test_hosts();
    return failures;
}
