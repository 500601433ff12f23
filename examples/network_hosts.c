/* SPDX-License-Identifier: Apache-2.0 */
/* Lists the hosts of a network: network_hosts 10.0.0.0 255.255.255.0 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tarnutil/ip.h>

/* Parses `text`; 0 if it is no address, which ip_pton_r does not tell by itself. */
static int parse(const char* text, ip_addr_t* addr) {
    ip_addr_t again;
    memset(addr->bytes, 0, sizeof addr->bytes);
    memset(again.bytes, 0xFF, sizeof again.bytes);
    ip_pton_r(text, addr);
    ip_pton_r(text, &again);
    return memcmp(addr->bytes, again.bytes, sizeof addr->bytes) == 0;
}

int main(int argc, char** argv) {
    ip_addr_t network, mask;
    ip_addr_t* hosts;
    uint32_t count, i;
    char text[64];

    if (argc != 3 || !parse(argv[1], &network) || !parse(argv[2], &mask)) {
        fprintf(stderr, "usage: network_hosts NETWORK MASK\n");
        return 2;
    }
    hosts = hosts_on_network(&network, &mask, &count);
    if (hosts == NULL) {
        fprintf(stderr, "no hosts to list\n");
        return 1;
    }
    for (i = 0; i < count; ++i) {
        puts(ip_ntop_r(&hosts[i], text, sizeof text)); /* no address takes more than 46 bytes */
    }
    free(hosts);
    return 0;
}
