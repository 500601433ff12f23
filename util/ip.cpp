// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/ip.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "block.h"
#include "ip_text.h"

using tarnutil::Block;
using tarnutil::isIpv4;

namespace {

constexpr int kMaxHostBits = 16;

std::uint32_t ipv4_word(const ip_addr_t& addr) {
    std::uint32_t word;
    std::memcpy(&word, tarnutil::ipv4Bytes(addr), sizeof word);
    return word;
}

// Appends to the first `size` records of a list the same ones with `bit` of their IPv4 word set.
void append_with_bit(ip_addr_t* list, std::uint32_t size, std::uint32_t bit) {
    ip_addr_t mask;
    tarnutil::setIpv4(mask, bit);
    const Block set = Block::at(mask.bytes);
    for (std::uint32_t i = 0; i < size; ++i) {
        (Block::at(list[i].bytes) | set).storeTo(list[size + i].bytes);
    }
}

// Quirk: a dot before the port of an IPv6 address. Pinned by IpPortTest.PrintsAddressAndPort.
int print_with_port(const ip_addr_t& addr, const char* text, unsigned port, char* buf,
                    std::size_t size) {
    const char* format = isIpv4(addr) ? "%s:%u" : "%s.%u";
    return std::snprintf(buf, size, format, text, unsigned{static_cast<std::uint16_t>(port)});
}

}  // namespace

const char* ip_ntop_r(const ip_addr_t* addr, char* buf, std::uint32_t len) {
    return tarnutil::printIp(*addr, buf, len);
}

char* ip_ntop(const ip_addr_t* addr) {
    static char text[tarnutil::kIpTextSize];
    (void)ip_ntop_r(addr, text, sizeof text);
    return text;
}

void ip_pton_r(const char* text, ip_addr_t* out) { (void)tarnutil::parseIp(text, *out); }

ip_addr_t* ip_pton(const char* text) {
    static ip_addr_t addr;
    ip_pton_r(text, &addr);
    return &addr;
}

int ip_nptop_r(const ip_addr_t* addr, unsigned port, char* buf, std::size_t size) {
    char text[tarnutil::kIpTextSize];
    text[0] = '\0';
    (void)ip_ntop_r(addr, text, sizeof text);
    return print_with_port(*addr, text, port, buf, size);
}

char* ip_nptop(const ip_addr_t* addr, unsigned port) {
    static char text[tarnutil::kIpTextSize];
    (void)print_with_port(*addr, ip_ntop(addr), port, text, sizeof text);
    return text;
}

ip_addr_t* hosts_on_network(const ip_addr_t* network, const ip_addr_t* mask, std::uint32_t* count) {
    if (network == nullptr || mask == nullptr || count == nullptr) return nullptr;
    if (ipv4_word(*network) == 0 || ipv4_word(*mask) == 0 || !isIpv4(*network)) return nullptr;

    const std::uint32_t host_bits = ~ipv4_word(*mask);
    const int bits = __builtin_popcount(host_bits);
    if (bits > kMaxHostBits) return nullptr;
    *count = std::uint32_t{1} << bits;

    auto* hosts = static_cast<ip_addr_t*>(std::calloc(*count, sizeof(ip_addr_t)));
    if (hosts == nullptr) return nullptr;
    tarnutil::setIpv4(*hosts, ipv4_word(*network) & ~host_bits);
    std::uint32_t size = 1;
    for (std::uint32_t rest = host_bits; rest != 0; rest &= rest - 1) {
        append_with_bit(hosts, size, rest & -rest);
        size *= 2;
    }
    return hosts;
}
