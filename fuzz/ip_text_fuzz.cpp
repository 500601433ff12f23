// SPDX-License-Identifier: Apache-2.0
// Text read as an address, beside libc, and the way back.
#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <string>

#include <tarnutil/Exception.h>
#include <tarnutil/StringUtil.h>
#include <tarnutil/ip.h>

#include "ip_texts.h"
#include "require.h"

using tarnutil::StringUtil;

namespace {

// Whether libc takes the text for an address of either family.
bool isAddress(const char* text) {
    unsigned char room[16];
    return inet_pton(AF_INET6, text, room) == 1 || inet_pton(AF_INET, text, room) == 1;
}

void requireRoundTrip(const ip_addr_t& addr) {
    char text[INET6_ADDRSTRLEN];
    require(ip_ntop_r(&addr, text, sizeof text) == text);
    require(StringUtil::ipToString(addr) == text);
    require(StringUtil::stringToIp(text) == addr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    ip_addr_t untouched;
    std::memset(untouched.bytes, 0x5A, sizeof untouched.bytes);
    ip_addr_t addr = untouched;
    ip_pton_r(text.c_str(), &addr);
    if (isAddress(text.c_str())) {
        require(StringUtil::stringToIp(text) == addr);
        requireRoundTrip(addr);
    } else {
        require(addr == untouched);
        try {
            (void)StringUtil::stringToIp(text);
            require(false);
        } catch (const tarnutil::Exception& e) {
            const std::string whole = "Could not convert string to IP address: \"" + text + "\"";
            require(std::strcmp(e.what(), whole.c_str()) == 0);
        }
    }

    // The same bytes as a record.
    if (size >= sizeof addr.bytes) {
        std::memcpy(addr.bytes, data, sizeof addr.bytes);
        requireRoundTrip(addr);
    }
    return 0;
}
