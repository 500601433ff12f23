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

// As inet_ntop: nullptr and errno if `len` bytes do not hold the text.
inline const char* printIp(const ip_addr_t& addr, char* buf, std::uint32_t len) {
    return isIpv4(addr) ? inet_ntop(AF_INET, ipv4Bytes(addr), buf, len)
                        : inet_ntop(AF_INET6, addr.bytes, buf, len);
}

// False, with `addr` as it was, if `text` is no address.
inline bool parseIp(const char* text, ip_addr_t& addr) {
    if (inet_pton(AF_INET6, text, addr.bytes) >= 1) return true;
    std::uint8_t quad[4];
    if (inet_pton(AF_INET, text, quad) < 1) return false;
    std::memcpy(addr.bytes, kIpv4Prefix, sizeof kIpv4Prefix);
    std::memcpy(addr.bytes + sizeof kIpv4Prefix, quad, sizeof quad);
    return true;
}

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_IP_TEXT_H
