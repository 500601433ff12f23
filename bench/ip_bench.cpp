// SPDX-License-Identifier: Apache-2.0
// Addresses and their text beside libc's conversions and two libraries' address classes.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>

#include <Poco/Net/IPAddress.h>
#include <boost/asio/ip/address.hpp>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <tarnutil/StringUtil.h>
#include <tarnutil/ip.h>

#include "bench.h"

using tarnutil::StringUtil;

namespace {

// One row of the report: what `work` does with an input of that size.
template <class Work>
void row(const std::string& operation, std::size_t size, const char* who, Work work) {
    tarnutil_bench::addWork("ip/" + operation + "/" + std::to_string(size) + "/" + who, /*bytes=*/0,
                            std::move(work));
}

ip_addr_t parsed(const std::string& text) {
    ip_addr_t addr{};
    ip_pton_r(text.c_str(), &addr);
    return addr;
}

// Reading `text` with ip_pton_r and with StringUtil, each beside the calls of libc that are
// promised. StringUtil promises to fail for other text, and the mapped form of IPv4, besides.
void addParse(const std::string& family, const std::string& text, bool isIpv6) {
    const auto libc = [text, isIpv6] {
        ip_addr_t addr{};
        if (inet_pton(AF_INET6, text.c_str(), addr.bytes) < 1 && !isIpv6) {
            (void)inet_pton(AF_INET, text.c_str(), addr.bytes);
        }
        return addr;
    };
    row("parse_" + family, text.size(), "tarnutil", [text] { return parsed(text); });
    row("parse_" + family, text.size(), "inet_pton", libc);

    const std::string operation = "string_to_ip_" + family;
    row(operation, text.size(), "tarnutil", [text] { return StringUtil::stringToIp(text); });
    row(operation, text.size(), "inet_pton", libc);
    row(operation, text.size(), "promised_steps", [text] {
        ip_addr_t addr{};
        if (inet_pton(AF_INET6, text.c_str(), addr.bytes) == 1) return addr;
        if (inet_pton(AF_INET, text.c_str(), addr.bytes + 12) != 1) std::abort();
        addr.bytes[10] = addr.bytes[11] = 0xFF;
        return addr;
    });
    row(operation, text.size(), "boost::asio",
        [text] { return boost::asio::ip::make_address(text); });
    row(operation, text.size(), "Poco::Net", [text] { return Poco::Net::IPAddress::parse(text); });
}

// Printing `addr` with ip_ntop_r and with StringUtil, each beside the call of libc that is
// promised. StringUtil promises a zeroed buffer of 256 bytes and a string besides.
void addPrint(const std::string& family, const std::string& text, bool isIpv6) {
    const ip_addr_t addr = parsed(text);
    const auto libc = [addr, isIpv6] {
        char buf[INET6_ADDRSTRLEN];
        benchmark::DoNotOptimize(isIpv6 ? inet_ntop(AF_INET6, addr.bytes, buf, sizeof buf)
                                        : inet_ntop(AF_INET, addr.bytes + 12, buf, sizeof buf));
        return buf[0];
    };
    row("print_" + family, text.size(), "tarnutil", [addr] {
        char buf[INET6_ADDRSTRLEN];
        benchmark::DoNotOptimize(ip_ntop_r(&addr, buf, sizeof buf));
        return buf[0];
    });
    row("print_" + family, text.size(), "inet_ntop", libc);

    const std::string operation = "ip_to_string_" + family;
    const auto asio = boost::asio::ip::make_address(text);
    const Poco::Net::IPAddress poco = Poco::Net::IPAddress::parse(text);
    row(operation, text.size(), "tarnutil", [addr] { return StringUtil::ipToString(addr); });
    row(operation, text.size(), "inet_ntop", libc);
    row(operation, text.size(), "promised_steps", [addr, isIpv6] {
        const std::unique_ptr<char[]> buf(new char[256]());
        benchmark::DoNotOptimize(isIpv6 ? inet_ntop(AF_INET6, addr.bytes, buf.get(), 256)
                                        : inet_ntop(AF_INET, addr.bytes + 12, buf.get(), 256));
        return std::string(buf.get());
    });
    row(operation, text.size(), "boost::asio", [asio] { return asio.to_string(); });
    row(operation, text.size(), "Poco::Net", [poco] { return poco.toString(); });
}

// Every host of 10.0.0.0 under a mask of that many bytes of hosts, beside making zeroed memory of
// that size and writing it once.
void addHosts(std::uint32_t hosts, const char* maskText) {
    const ip_addr_t network = parsed("10.0.0.0");
    const ip_addr_t mask = parsed(maskText);
    const std::size_t size = hosts * sizeof(ip_addr_t);
    row("hosts", hosts, "tarnutil", [network, mask] {
        std::uint32_t count = 0;
        ip_addr_t* const list = hosts_on_network(&network, &mask, &count);
        benchmark::DoNotOptimize(list);
        benchmark::ClobberMemory();
        std::free(list);
        return count;
    });
    row("hosts", hosts, "calloc_memset", [size] {
        void* const block = std::calloc(1, size);
        benchmark::DoNotOptimize(block);
        std::memset(block, 1, size);
        benchmark::ClobberMemory();
        std::free(block);
        return size;
    });
    row("hosts", hosts, "memcpy", [source = std::string(size, 'x')] {
        void* const block = std::malloc(source.size());
        benchmark::DoNotOptimize(block);
        std::memcpy(block, source.data(), source.size());
        benchmark::ClobberMemory();
        std::free(block);
        return source.size();
    });
}

void addAll() {
    addParse("ipv4", "192.168.117.201", /*isIpv6=*/false);
    addParse("ipv6", "2001:db8:85a3::8a2e:370:7334", /*isIpv6=*/true);
    addPrint("ipv4", "192.168.117.201", /*isIpv6=*/false);
    addPrint("ipv6", "2001:db8:85a3::8a2e:370:7334", /*isIpv6=*/true);
    addHosts(16, "255.255.255.240");
    addHosts(256, "255.255.255.0");
    addHosts(4096, "255.255.240.0");
    addHosts(65536, "255.255.0.0");
}

const tarnutil_bench::Added added(addAll);

}  // namespace
