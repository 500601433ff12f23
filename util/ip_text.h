// SPDX-License-Identifier: Apache-2.0
// What text is which address: the rules that the two faces of the library, ip_* and StringUtil,
// share.
#ifndef TARNUTIL_UTIL_IP_TEXT_H
#define TARNUTIL_UTIL_IP_TEXT_H

#include <arpa/inet.h>
#include <tarnutil/ip.h>

#include <cstdint>
#include <cstring>

namespace tarnutil {

static_assert(sizeof(ip_addr_t) == sizeof(in6_addr), "the record is what inet_pton writes");

// The first twelve bytes of every IPv4 address.
constexpr std::uint8_t kIpv4Prefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

inline bool isIpv4(const ip_addr_t& addr) {
    return std::memcmp(addr.bytes, kIpv4Prefix, sizeof kIpv4Prefix) == 0;
}

// The dotted quad of an IPv4 address lies here, in network byte order.
inline const std::uint8_t* ipv4Bytes(const ip_addr_t& addr) {
    return addr.bytes + sizeof kIpv4Prefix;
}

// Addresses are handled as the machine's own integers, whose byte of lowest address counts least.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "a word is in memory as it is in the record");

// Makes `addr` the IPv4 address whose bytes in memory are those of `word`.
inline void setIpv4(ip_addr_t& addr, std::uint32_t word) {
    const std::uint64_t halves[] = {0, std::uint64_t{word} << 32 | 0xFFFF0000};
    std::memcpy(addr.bytes, halves, sizeof halves);
}

// More than the text of any address, or address with a port, needs.
constexpr std::uint32_t kIpTextSize = 256;

// As inet_ntop: nullptr and errno if `len` bytes do not hold the text.
inline const char* printIp(const ip_addr_t& addr, char* buf, std::uint32_t len) {
    return isIpv4(addr) ? inet_ntop(AF_INET, ipv4Bytes(addr), buf, len)
                        : inet_ntop(AF_INET6, addr.bytes, buf, len);
}

// False, with `addr` as it was, if `text` is no address.
inline bool parseIp(const char* text, ip_addr_t& addr) {
    if (inet_pton(AF_INET6, text, addr.bytes) >= 1) return true;
    std::uint32_t word;
    if (inet_pton(AF_INET, text, &word) < 1) return false;
    setIpv4(addr, word);
    return true;
}

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_IP_TEXT_H
