// SPDX-License-Identifier: Apache-2.0
// tarnutil ip: addresses and the hosts of a network.
#include <tarnutil/ip.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tarnutil/Exception.h>
#include <tarnutil/StringUtil.h>

#include "commands.h"

namespace tarnutil_command {
namespace {

using tarnutil::StringUtil;

constexpr const char* kHostsExample =
    R"(Addresses come in the library's order: the byte of lower address runs fastest, so that
10.0.0.0 with 255.255.0.0 begins 10.0.0.0, 10.0.1.0, 10.0.2.0. --sorted orders them by number.

Examples:
  tarnutil ip hosts 192.168.7.0 255.255.255.248
  tarnutil ip hosts 10.0.0.0/20 --sorted
)";

constexpr const char* kShowExample = R"(Example:
  tarnutil ip show 2001:db8::1 443
)";

constexpr const char* kExample = R"(Examples:
  tarnutil ip hosts 10.0.0.0/24
  tarnutil ip show ::ffff:10.1.2.3
)";

struct HostsOptions {
    std::string network;
    std::string mask;
    bool isSorted = false;
};

struct ShowOptions {
    std::string address;
    std::optional<unsigned> port;
};

ip_addr_t addressOf(const std::string& text) {
    try {
        return StringUtil::stringToIp(text);
    } catch (const tarnutil::Exception& e) {
        std::throw_with_nested(Unusable(e.what()));
    }
}

// The mask whose first `bits` bits are one.
ip_addr_t maskOf(unsigned bits) {
    ip_addr_t mask = addressOf("0.0.0.0");
    for (unsigned bit = 0; bit < bits; ++bit) {
        mask.bytes[12 + bit / 8] |= static_cast<std::uint8_t>(0x80 >> bit % 8);
    }
    return mask;
}

unsigned prefixLength(const std::string& text) {
    const bool isNumber = !text.empty() && text.size() <= 2 &&
                          text.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long bits = isNumber ? std::stoul(text) : 99;
    if (bits > 32) throw Unusable("a prefix has 0 to 32 bits, not \"" + text + "\"");
    return static_cast<unsigned>(bits);
}

struct Free {
    void operator()(ip_addr_t* hosts) const { std::free(hosts); }
};

void printHosts(const ip_addr_t& network, const ip_addr_t& mask, bool isSorted) {
    std::uint32_t count = 0;
    const std::unique_ptr<ip_addr_t, Free> hosts(hosts_on_network(&network, &mask, &count));
    if (hosts == nullptr) {
        throw Refused(
            "no hosts: the network has to be IPv4, neither it nor the mask 0.0.0.0, and the mask "
            "may leave at most 16 host bits");
    }
    ip_addr_t* const end = hosts.get() + count;
    if (isSorted) {
        std::sort(hosts.get(), end, [](const ip_addr_t& a, const ip_addr_t& b) {
            return std::memcmp(a.bytes, b.bytes, sizeof a.bytes) < 0;
        });
    }
    for (const ip_addr_t* host = hosts.get(); host != end; ++host) {
        std::cout << StringUtil::ipToString(*host) << '\n';
    }
}

void listHosts(const HostsOptions& options) {
    const std::size_t slash = options.network.find('/');
    const bool hasPrefix = slash != std::string::npos;
    if (hasPrefix == !options.mask.empty()) {
        throw Unusable("give a network and a mask, or a network with its prefix: A.B.C.D/NN");
    }
    const ip_addr_t network = addressOf(options.network.substr(0, slash));
    const ip_addr_t mask = hasPrefix ? maskOf(prefixLength(options.network.substr(slash + 1)))
                                     : addressOf(options.mask);
    printHosts(network, mask, options.isSorted);
}

void show(const ShowOptions& options) {
    const ip_addr_t addr = addressOf(options.address);
    const std::string text = StringUtil::ipToString(addr);
    const bool isIpv4 = text.find(':') == std::string::npos;
    std::cout << "address    " << text << '\n'
              << "family     " << (isIpv4 ? "IPv4" : "IPv6") << '\n'
              << "record     "
              << StringUtil::toHexString({std::begin(addr.bytes), std::end(addr.bytes)}) << '\n';
    if (!options.port) return;
    char withPort[256];
    (void)ip_nptop_r(&addr, *options.port, withPort, sizeof withPort);
    const std::string bracketed =
        (isIpv4 ? text : "[" + text + "]") + ":" + std::to_string(*options.port & 0xFFFF);
    std::cout << "with port  " << withPort << '\n' << "in a URL   " << bracketed << '\n';
}

void addHosts(CLI::App& ip) {
    auto options = std::make_shared<HostsOptions>();
    CLI::App* const hosts = ip.add_subcommand("hosts", "List every address of an IPv4 network");
    hosts->add_option("NETWORK", options->network, "The network: A.B.C.D, or A.B.C.D/NN")
        ->required();
    hosts->add_option("MASK", options->mask, "The mask, which need not be contiguous");
    hosts->add_flag("--sorted", options->isSorted, "Order the addresses by number");
    hosts->footer(kHostsExample);
    hosts->callback([options] { listHosts(*options); });
}

void addShow(CLI::App& ip) {
    auto options = std::make_shared<ShowOptions>();
    CLI::App* const shown = ip.add_subcommand("show", "Show an address as the library holds it");
    shown->add_option("ADDRESS", options->address, "An IPv4 or IPv6 address")->required();
    shown->add_option("PORT", options->port, "A port; only its low 16 bits count");
    shown->footer(kShowExample);
    shown->callback([options] { show(*options); });
}

}  // namespace

void addIpCommand(CLI::App& app) {
    CLI::App* const ip = app.add_subcommand("ip", "Addresses and the hosts of a network");
    ip->require_subcommand(1);
    ip->footer(kExample);
    addHosts(*ip);
    addShow(*ip);
}

}  // namespace tarnutil_command
