// SPDX-License-Identifier: Apache-2.0
// Texts and the addresses that they stand for, the same for both faces of the library.
#ifndef TARNUTIL_TESTS_IP_TEXTS_H
#define TARNUTIL_TESTS_IP_TEXTS_H

#include <arpa/inet.h>
#include <tarnutil/ip.h>

#include <cstring>
#include <ostream>
#include <stdexcept>
#include <string>

inline bool operator==(const ip_addr_t& a, const ip_addr_t& b) {
    return std::memcmp(a.bytes, b.bytes, sizeof a.bytes) == 0;
}

inline std::ostream& operator<<(std::ostream& out, const ip_addr_t& addr) {
    char text[INET6_ADDRSTRLEN];
    return out << inet_ntop(AF_INET6, addr.bytes, text, sizeof text);
}

namespace tarnutil_test {

// The record of an IPv6 text, made without the library.
inline ip_addr_t v6(const char* text) {
    ip_addr_t addr{};
    if (inet_pton(AF_INET6, text, addr.bytes) != 1) throw std::invalid_argument(text);
    return addr;
}

struct IpText {
    const char* says;
    const char* text;
    const char* address;  // as IPv6 text
    const char* printed;
};

// clang-format off
const IpText kIpTexts[] = {
    // says                                      text                address               printed
    {"IPv4 is held mapped",                      "10.1.2.3",         "::ffff:a01:203",     "10.1.2.3"},
    {"IPv4-mapped IPv6 text prints as IPv4",     "::ffff:10.1.2.3",  "::ffff:a01:203",     "10.1.2.3"},
    {"mapped in hexadecimal too",                "::ffff:a01:203",   "::ffff:a01:203",     "10.1.2.3"},
    {"the fourth word is not examined",          "0.0.0.0",          "::ffff:0:0",         "0.0.0.0"},
    {"broadcast",                                "255.255.255.255",  "::ffff:ffff:ffff",   "255.255.255.255"},
    {"IPv6 loopback",                            "::1",              "::1",                "::1"},
    {"IPv6 unspecified",                         "::",               "::",                 "::"},
    {"link-local IPv6",                          "fe80::1",          "fe80::1",            "fe80::1"},
    {"capitals are read, not written",           "FE80::ABCD",       "fe80::abcd",         "fe80::abcd"},
    {"IPv4-compatible is IPv6",                  "::10.1.2.3",       "::a01:203",          "::10.1.2.3"},
    {"a first word other than 0 is IPv6",        "1::ffff:a01:203",  "1::ffff:a01:203",    "1::ffff:a01:203"},
    {"the last bit of the first word counts",    "0:1::ffff:1:2",    "0:1::ffff:1:2",      "0:1::ffff:1:2"},
    {"a second word other than 0 is IPv6",       "::1:0:ffff:1:2",   "::1:0:ffff:1:2",     "::1:0:ffff:1:2"},
    {"the last bit of the second word counts",   "::1:0:ffff:a:b",   "::1:0:ffff:a:b",     "::1:0:ffff:a:b"},
    {"bytes 8 and 9 have to be 0",               "::1:ffff:1:2",     "::1:ffff:1:2",       "::1:ffff:1:2"},
    {"byte 10 has to be ff",                     "::fe:ffff:1:2",    "::fe:ffff:1:2",      "::fe:ffff:1:2"},
    {"bytes 10 and 11 both have to be ff",       "::fffe:1:2",       "::fffe:1:2",         "::fffe:1:2"},
    {"byte 10 alone is not enough",              "::ff00:1:2",       "::ff00:1:2",         "::ff00:1:2"},
    {"the longest text",                         "fff0:fff1:fff2:fff3:fff4:fff5:fff6:fff7",
                                                 "fff0:fff1:fff2:fff3:fff4:fff5:fff6:fff7",
                                                 "fff0:fff1:fff2:fff3:fff4:fff5:fff6:fff7"},
};
// clang-format on

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_IP_TEXTS_H
