// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/ip.h>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fault.h"
#include "ip_texts.h"
#include "random.h"
#include "trail.h"

using namespace tarnutil_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// While set, no block can be allocated with calloc.
std::atomic<bool> callocFails{false};

struct NoCalloc {
    NoCalloc() { callocFails = true; }
    ~NoCalloc() { callocFails = false; }
};

}  // namespace

extern "C" void* callocOfTheTest(std::size_t count, std::size_t size) __asm__("calloc");
extern "C" void* callocOfTheTest(std::size_t count, std::size_t size) {
    static const auto real = reinterpret_cast<decltype(&calloc)>(dlsym(RTLD_NEXT, "calloc"));
    return callocFails ? nullptr : real(count, size);
}

namespace {

// The record of four IPv4 bytes in network order.
ip_addr_t v4(const unsigned char (&quad)[4]) {
    ip_addr_t addr{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, quad[0], quad[1], quad[2], quad[3]}};
    return addr;
}

ip_addr_t v4(const char* text) {
    unsigned char quad[4] = {};
    if (inet_pton(AF_INET, text, quad) != 1) ADD_FAILURE() << text;
    return v4(quad);
}

std::string printed(const ip_addr_t& addr) {
    char text[INET6_ADDRSTRLEN] = "nothing";
    EXPECT_EQ(ip_ntop_r(&addr, text, sizeof text), text);
    return text;
}

const ip_addr_t kUntouched = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};

ip_addr_t parsed(const char* text) {
    ip_addr_t addr = kUntouched;
    ip_pton_r(text, &addr);
    return addr;
}

}  // namespace

// ---- Text ----

class IpTextTest : public testing::TestWithParam<IpText> {};
INSTANTIATE_TEST_SUITE_P(All, IpTextTest, testing::ValuesIn(kIpTexts));

TEST_P(IpTextTest, IsParsedAndPrinted) {
    const IpText& row = GetParam();
    EXPECT_EQ(parsed(row.text), v6(row.address)) << row.says;
    EXPECT_EQ(*ip_pton(row.text), v6(row.address)) << row.says;
    EXPECT_EQ(printed(v6(row.address)), row.printed) << row.says;
    const ip_addr_t addr = v6(row.address);
    EXPECT_STREQ(ip_ntop(&addr), row.printed) << row.says;
}

const char* const kNoAddresses[] = {"",           "x",
                                    "10",         "10.1.2",
                                    "10.1.2.3.4", "256.0.0.1",
                                    "10.1.2.3 ",  " 10.1.2.3",
                                    ":",          ":::",
                                    "1:2:3",      "::1%lo",
                                    "[::1]",      "::ffff:1.2.3",
                                    "01.2.3.4",   "0x1.2.3.4",
                                    "1.2.3.4/8",  "12345::",
                                    "localhost",  "1:2:3:4:5:6:7:8:9"};

TEST(IpParseTest, TextThatIsNoAddressLeavesTheRecordAsItWas) {
    for (const char* text : kNoAddresses) {
        EXPECT_EQ(parsed(text), kUntouched) << text;
        (void)ip_pton("1.2.3.4");
        EXPECT_EQ(*ip_pton(text), v4("1.2.3.4")) << text;
    }
}

TEST(IpParseTest, AsksForIpv6FirstAndThenForIpv4) {
    const Trail trail({Call::inet_pton});
    (void)parsed("::1");
    (void)parsed("1.2.3.4");
    (void)parsed("x");
    const std::string as_v4 = "inet_pton(" + std::to_string(AF_INET) + ")";
    const std::string as_v6 = "inet_pton(" + std::to_string(AF_INET6) + ")";
    EXPECT_THAT(trail.ofParent(), ElementsAre(as_v6, as_v6, as_v4, as_v6, as_v4));
}

TEST(IpParseTest, AFailingFamilyIsAFamilyThatDoesNotMatch) {
    const ip_addr_t expected = v4("1.2.3.4");
    {
        const Fault fault(Call::inet_pton, -1);
        EXPECT_EQ(parsed("1.2.3.4"), expected);
    }
    const Fault fault(Call::inet_pton, -1, 1, Fault::fromThenOn);
    EXPECT_EQ(parsed("1.2.3.4"), kUntouched);
    EXPECT_EQ(parsed("::1"), kUntouched);
}

TEST(IpParseTest, ReturnsTheSameStaticRecordEachTime) {
    ip_addr_t* const first = ip_pton("1.2.3.4");
    EXPECT_EQ(ip_pton("::1"), first);
    EXPECT_EQ(*first, v6("::1"));
}

TEST(IpParseTest, TheReentrantFormLeavesTheStaticRecord) {
    const ip_addr_t* const record = ip_pton("1.2.3.4");
    EXPECT_EQ(parsed("::1"), v6("::1"));
    EXPECT_EQ(*record, v4("1.2.3.4"));
}

// In a process of its own, in which nothing was parsed yet.
TEST(IpParseDeathTest, TheStaticRecordIsAllZeroAtFirst) {
    EXPECT_EXIT(std::exit(*ip_pton("x") == ip_addr_t{} ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(IpPrintTest, ATextThatDoesNotFitIsNull) {
    struct {
        ip_addr_t addr;
        std::uint32_t needed;
    } const cases[] = {{v4("10.1.2.3"), 9}, {v6("::1"), 4}, {v6("::"), 3}};
    for (const auto& row : cases) {
        char text[INET6_ADDRSTRLEN];
        EXPECT_EQ(ip_ntop_r(&row.addr, text, row.needed), text) << row.addr;
        errno = 0;
        EXPECT_EQ(ip_ntop_r(&row.addr, text, row.needed - 1), nullptr) << row.addr;
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(ip_ntop_r(&row.addr, text, 0), nullptr) << row.addr;
    }
}

TEST(IpPrintTest, AFailedConversionPassesOnNullAndErrno) {
    char text[INET6_ADDRSTRLEN];
    const ip_addr_t addr = v6("::1");
    const Fault fault(Call::inet_ntop, EAFNOSUPPORT);
    EXPECT_EQ(ip_ntop_r(&addr, text, sizeof text), nullptr);
    EXPECT_EQ(errno, EAFNOSUPPORT);
}

TEST(IpPrintTest, TheStaticBufferIsReturnedEvenAfterAFailure) {
    const ip_addr_t first = v4("1.2.3.4");
    const ip_addr_t second = v6("::1");
    char* const text = ip_ntop(&first);
    {
        const Fault fault(Call::inet_ntop, ENOSPC);
        EXPECT_EQ(ip_ntop(&second), text);
        EXPECT_STREQ(text, "1.2.3.4");
    }
    EXPECT_EQ(ip_ntop(&second), text);
    EXPECT_STREQ(text, "::1");
}

// ---- Address with port ----

struct PortCase {
    const char* says;
    const char* address;  // as IPv6 text
    unsigned port;
    const char* printed;
};

// clang-format off
const PortCase kPortCases[] = {
    // says                                   address           port       printed
    {"a colon after IPv4",                    "::ffff:a01:203", 80,        "10.1.2.3:80"},
    {"a dot after IPv6",                      "::1",            80,        "::1.80"},
    {"port 0",                                "::ffff:a01:203", 0,         "10.1.2.3:0"},
    {"the highest port",                      "::1",            65535,     "::1.65535"},
    {"the first port beyond is 0",            "::1",            65536,     "::1.0"},
    {"only the low 16 bits of a port count",  "::ffff:a01:203", 65616,     "10.1.2.3:80"},
    {"all bits set is the highest port",      "::ffff:a01:203", UINT_MAX,  "10.1.2.3:65535"},
};
// clang-format on

class IpPortTest : public testing::TestWithParam<PortCase> {};
INSTANTIATE_TEST_SUITE_P(All, IpPortTest, testing::ValuesIn(kPortCases));

TEST_P(IpPortTest, PrintsAddressAndPort) {
    const PortCase& row = GetParam();
    const ip_addr_t addr = v6(row.address);
    const int length = static_cast<int>(std::strlen(row.printed));
    char text[64];
    EXPECT_EQ(ip_nptop_r(&addr, row.port, text, sizeof text), length) << row.says;
    EXPECT_STREQ(text, row.printed) << row.says;
    EXPECT_STREQ(ip_nptop(&addr, row.port), row.printed) << row.says;
}

TEST(IpPortTextTest, IsCutToItsBufferAndTellsItsWholeLength) {
    const ip_addr_t addr = v4("10.1.2.3");
    char text[] = "################";
    EXPECT_EQ(ip_nptop_r(&addr, 80, text, 5), 11);
    EXPECT_STREQ(text, "10.1");
    EXPECT_EQ(text[5], '#');
    EXPECT_EQ(ip_nptop_r(&addr, 80, nullptr, 0), 11);
}

TEST(IpPortTextTest, TheStaticFormsOverwriteEachOther) {
    const ip_addr_t first = v4("1.2.3.4");
    const ip_addr_t second = v6("::2");
    char* const alone = ip_ntop(&first);
    char* const withPort = ip_nptop(&second, 5);
    EXPECT_NE(alone, withPort);
    EXPECT_STREQ(alone, "::2");
    EXPECT_EQ(ip_nptop(&first, 6), withPort);
    EXPECT_STREQ(withPort, "1.2.3.4:6");
}

TEST(IpPortTextTest, TheReentrantFormsLeaveTheStaticBuffer) {
    const ip_addr_t first = v4("1.2.3.4");
    const ip_addr_t second = v6("::2");
    const char* const text = ip_ntop(&first);
    char buffer[64];
    EXPECT_EQ(ip_nptop_r(&second, 5, buffer, sizeof buffer), 5);
    EXPECT_STREQ(text, "1.2.3.4");
    EXPECT_EQ(ip_ntop_r(&second, buffer, sizeof buffer), buffer);
    EXPECT_STREQ(text, "1.2.3.4");
}

TEST(IpPortTextTest, AFailedConversionLeavesTheAddressOutOrStale) {
    const ip_addr_t addr = v4("1.2.3.4");
    char text[64];
    {
        const Fault fault(Call::inet_ntop, ENOSPC);
        EXPECT_EQ(ip_nptop_r(&addr, 80, text, sizeof text), 3);
        EXPECT_STREQ(text, ":80");
    }
    const ip_addr_t last = v6("::9");
    (void)ip_ntop(&last);
    const Fault fault(Call::inet_ntop, ENOSPC);
    EXPECT_STREQ(ip_nptop(&addr, 80), "::9:80");
}

TEST(IpPortTextTest, TheBracketedFormIsTwoCallsAway) {
    const ip_addr_t addr = v6("2001:db8::1");
    char text[INET6_ADDRSTRLEN];
    ASSERT_NE(ip_ntop_r(&addr, text, sizeof text), nullptr);
    EXPECT_EQ("[" + std::string(text) + "]:" + std::to_string(80), "[2001:db8::1]:80");
}

// ---- Against libc's own conversions ----

namespace {

// Each byte is one at a boundary as often as any other.
ip_addr_t randomAddress(Random& random) {
    static constexpr unsigned char kBoundaries[] = {0, 1, 0x7F, 0x80, 0xFE, 0xFF};
    ip_addr_t addr;
    for (unsigned char& byte : addr.bytes) {
        byte = random.upTo(1) == 0 ? kBoundaries[random.upTo(sizeof kBoundaries - 1)]
                                   : static_cast<unsigned char>(random.upTo(255));
    }
    if (random.upTo(1) == 0) std::memset(addr.bytes, 0, 10);
    if (random.upTo(1) == 0) std::memset(addr.bytes + 10, 0xFF, 2);
    return addr;
}

// What the library promises to print, said in another way: the text of libc for IPv6, except that
// what it prints as ::ffff: and a quad is the quad alone.
std::string modelText(const ip_addr_t& addr) {
    char text[INET6_ADDRSTRLEN];
    const std::string whole = inet_ntop(AF_INET6, addr.bytes, text, sizeof text);
    const std::string mapped = "::ffff:";
    const bool isQuad = whole.rfind(mapped, 0) == 0 && whole.find('.') != std::string::npos;
    return isQuad ? whole.substr(mapped.size()) : whole;
}

}  // namespace

TEST(IpRandomTest, AddressesPrintAsLibcPrintsThemAndComeBack) {
    Random random;
    for (int i = 0; i < 100000; ++i) {
        const ip_addr_t addr = randomAddress(random);
        const std::string text = printed(addr);
        ASSERT_EQ(text, modelText(addr));
        ASSERT_EQ(parsed(text.c_str()), addr) << text;
    }
}

TEST(IpRandomTest, TextsAreAddressesIfLibcSaysSo) {
    Random random;
    for (int i = 0; i < 100000; ++i) {
        std::string text = printed(randomAddress(random));
        for (std::size_t damage = random.upTo(2); damage != 0; --damage) {
            text.replace(random.upTo(text.size() - 1), random.upTo(2), random.text(2, ".:01fg% "));
            if (text.empty()) text = ":";
        }
        ip_addr_t expected = kUntouched;
        unsigned char quad[4];
        if (inet_pton(AF_INET, text.c_str(), quad) == 1) expected = v4(quad);
        unsigned char whole[16];
        if (inet_pton(AF_INET6, text.c_str(), whole) == 1) {
            std::memcpy(expected.bytes, whole, sizeof whole);
        }
        ASSERT_EQ(parsed(text.c_str()), expected) << text;
    }
}

// ---- Hosts ----

namespace {

struct Free {
    void operator()(ip_addr_t* hosts) const { std::free(hosts); }
};

struct Hosts {
    std::uint32_t count = 12345;
    std::unique_ptr<ip_addr_t, Free> records;

    Hosts(const ip_addr_t& network, const ip_addr_t& mask)
        : records(hosts_on_network(&network, &mask, &count)) {}

    std::vector<ip_addr_t> list() const {
        if (records == nullptr) return {};
        return {records.get(), records.get() + count};
    }
};

// The bits of the quad that the mask leaves to the hosts, as (byte, bit), in the order in which
// they are counted: the byte of lower address first, in it the lowest bit first.
std::vector<std::pair<int, int>> hostBits(const ip_addr_t& mask) {
    std::vector<std::pair<int, int>> bits;
    for (int byte = 12; byte < 16; ++byte) {
        for (int bit = 0; bit < 8; ++bit) {
            if ((mask.bytes[byte] >> bit & 1) == 0) bits.emplace_back(byte, bit);
        }
    }
    return bits;
}

// Every address of the network, one bit at a time.
std::vector<ip_addr_t> modelHosts(const ip_addr_t& network, const ip_addr_t& mask) {
    const auto bits = hostBits(mask);
    std::vector<ip_addr_t> hosts;
    for (unsigned i = 0; i < 1U << bits.size(); ++i) {
        ip_addr_t host = network;
        for (std::size_t j = 0; j < bits.size(); ++j) {
            const auto [byte, bit] = bits[j];
            const auto one = static_cast<unsigned char>(1 << bit);
            host.bytes[byte] = static_cast<unsigned char>(
                (i >> j & 1) != 0 ? host.bytes[byte] | one : host.bytes[byte] & ~one);
        }
        hosts.push_back(host);
    }
    return hosts;
}

}  // namespace

struct HostsCase {
    const char* says;
    const char* network;
    const char* mask;
    std::vector<const char*> first;  // the first addresses
    std::uint32_t count;
    const char* last;
};

// clang-format off
const HostsCase kHostsCases[] = {
    {"no host bits: the network itself", "10.1.2.3", "255.255.255.255", {"10.1.2.3"}, 1, "10.1.2.3"},
    {"one host bit: two addresses", "10.1.2.2", "255.255.255.254", {"10.1.2.2", "10.1.2.3"}, 2, "10.1.2.3"},
    {"a free last byte runs in order", "10.1.2.0", "255.255.255.0", {"10.1.2.0", "10.1.2.1", "10.1.2.2"}, 256, "10.1.2.255"},
    {"host bits of the network are cleared", "10.0.0.77", "255.255.255.0", {"10.0.0.0", "10.0.0.1"}, 256, "10.0.0.255"},
    {"the byte of lower address runs faster", "10.0.0.0", "255.255.0.0", {"10.0.0.0", "10.0.1.0", "10.0.2.0"}, 65536, "10.0.255.255"},
    {"within a byte the lowest bit runs fastest", "10.0.0.0", "255.255.240.255", {"10.0.0.0", "10.0.1.0", "10.0.2.0"}, 16, "10.0.15.0"},
    {"a mask need not be contiguous", "10.0.0.7", "127.255.255.253", {"10.0.0.5", "138.0.0.5", "10.0.0.7", "138.0.0.7"}, 4, "138.0.0.7"},
    {"sixteen bits anywhere", "1.2.3.4", "0.255.255.0", {"0.2.3.0", "1.2.3.0", "2.2.3.0"}, 65536, "255.2.3.255"},
    {"a network of which nothing is left", "0.0.0.9", "255.255.255.240", {"0.0.0.0", "0.0.0.1"}, 16, "0.0.0.15"},
};
// clang-format on

class HostsTest : public testing::TestWithParam<HostsCase> {};
INSTANTIATE_TEST_SUITE_P(All, HostsTest, testing::ValuesIn(kHostsCases));

TEST_P(HostsTest, AreListed) {
    const HostsCase& row = GetParam();
    const Hosts hosts(v4(row.network), v4(row.mask));
    EXPECT_EQ(hosts.count, row.count) << row.says;
    const std::vector<ip_addr_t> list = hosts.list();
    ASSERT_EQ(list.size(), row.count) << row.says;
    for (std::size_t i = 0; i < row.first.size(); ++i) {
        EXPECT_EQ(list[i], v4(row.first[i])) << row.says << ", " << i;
    }
    EXPECT_EQ(list.back(), v4(row.last)) << row.says;
}

TEST(HostsOrderTest, ThirdByteWrapsIntoTheFourth) {
    const Hosts hosts(v4("10.0.0.0"), v4("255.255.0.0"));
    const std::vector<ip_addr_t> list = hosts.list();
    ASSERT_EQ(list.size(), 65536U);
    EXPECT_EQ(list[255], v4("10.0.255.0"));
    EXPECT_EQ(list[256], v4("10.0.0.1"));
    EXPECT_EQ(list[257], v4("10.0.1.1"));
}

struct NoHostsCase {
    const char* says;
    const char* network;  // as IPv6 text
    const char* mask;
};

// clang-format off
const NoHostsCase kNoHostsCases[] = {
    // says                                        network              mask
    {"the network is 0.0.0.0",                     "::ffff:0:0",        "::ffff:ffff:ff00"},
    {"the mask is 0.0.0.0",                        "::ffff:a00:0",      "::ffff:0:0"},
    {"the network is IPv6",                        "fe80::1",           "::ffff:ffff:ff00"},
    {"the network's first word is not 0",          "0:1::ffff:a00:0",   "::ffff:ffff:ff00"},
    {"the network's second word is not 0",         "::1:0:ffff:a00:0",  "::ffff:ffff:ff00"},
    {"the network's third word is not 0000ffff",   "::1:ffff:a00:0",    "::ffff:ffff:ff00"},
    {"the network is IPv4-compatible",             "::a00:0",           "::ffff:ffff:ff00"},
    {"seventeen host bits",                        "::ffff:a00:0",      "::ffff:fffe:0"},
    {"seventeen scattered host bits",              "::ffff:a00:0",      "::ffff:aaaa:aaa2"},
    {"thirty-one host bits",                       "::ffff:a00:0",      "::ffff:8000:0"},
};
// clang-format on

TEST(NoHostsTest, IsNullAndLeavesTheCount) {
    for (const NoHostsCase& row : kNoHostsCases) {
        const Hosts hosts(v6(row.network), v6(row.mask));
        EXPECT_EQ(hosts.records, nullptr) << row.says;
        EXPECT_EQ(hosts.count, 12345U) << row.says;
    }
}

TEST(NoHostsTest, AnArgumentIsNull) {
    const ip_addr_t network = v4("10.0.0.0");
    const ip_addr_t mask = v4("255.255.255.0");
    std::uint32_t count = 5;
    EXPECT_EQ(hosts_on_network(nullptr, &mask, &count), nullptr);
    EXPECT_EQ(hosts_on_network(&network, nullptr, &count), nullptr);
    EXPECT_EQ(hosts_on_network(&network, &mask, nullptr), nullptr);
    EXPECT_EQ(count, 5U);
}

TEST(NoHostsTest, AFailedAllocationLeavesTheCountSet) {
    std::uint32_t count = 5;
    const ip_addr_t network = v4("10.0.0.0");
    const ip_addr_t mask = v4("255.255.255.0");
    const NoCalloc noMemory;
    EXPECT_EQ(hosts_on_network(&network, &mask, &count), nullptr);
    EXPECT_EQ(count, 256U);
}

TEST(HostsMaskTest, OnlyTheLastFourBytesOfTheMaskCount) {
    ip_addr_t mask = v4("255.255.255.252");
    std::memset(mask.bytes, 0x5A, 12);
    EXPECT_EQ(Hosts(v4("10.0.0.0"), mask).list(), modelHosts(v4("10.0.0.0"), mask));
}

TEST(HostsModelTest, EveryContiguousMask) {
    const ip_addr_t network = v4("172.31.201.77");
    for (unsigned bits = 0; bits <= 16; ++bits) {
        const std::uint32_t word = htonl(~((1U << bits) - 1));
        ip_addr_t mask{};
        std::memcpy(mask.bytes + 12, &word, sizeof word);
        const Hosts hosts(network, mask);
        ASSERT_EQ(hosts.list(), modelHosts(network, mask)) << bits << " host bits";
    }
}

TEST(HostsModelTest, EveryPairOfHostBits) {
    const ip_addr_t network = v4("172.31.201.77");
    for (unsigned i = 0; i < 32; ++i) {
        for (unsigned j = 0; j < 32; ++j) {
            const std::uint32_t word = ~(1U << i | 1U << j);
            ip_addr_t mask{};
            std::memcpy(mask.bytes + 12, &word, sizeof word);
            ASSERT_EQ(Hosts(network, mask).list(), modelHosts(network, mask)) << i << ", " << j;
        }
    }
}

TEST(HostsModelTest, RandomMasksOfEachNumberOfHostBits) {
    Random random;
    for (unsigned bits = 0; bits <= 16; ++bits) {
        for (int repeat = 0; repeat < 8; ++repeat) {
            std::uint32_t word = ~0U;
            while (__builtin_popcount(~word) < static_cast<int>(bits)) {
                word &= ~(1U << random.upTo(31));
            }
            ip_addr_t mask{};
            std::memcpy(mask.bytes + 12, &word, sizeof word);
            ip_addr_t network = v4("0.0.0.1");
            for (int byte = 12; byte < 16; ++byte) {
                network.bytes[byte] |= static_cast<unsigned char>(random.upTo(255));
            }
            ASSERT_EQ(Hosts(network, mask).list(), modelHosts(network, mask))
                << "network " << network << ", mask " << mask;
        }
    }
}
