// SPDX-License-Identifier: Apache-2.0
// Nothing of ssl_suite.h allocates. Not built under the sanitizers, which bring allocators of their
// own.
#include <tarnutil/ssl_suite.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "ssl_suite_selection.h"

using namespace tarnutil_test;

// This program's allocation functions, in front of libc's: they count.
namespace {
std::atomic<unsigned long> allocations{0};
}

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) noexcept {
    ++allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) noexcept {
    ++allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) noexcept {
    ++allocations;
    return __libc_realloc(block, size);
}
}

namespace {

TEST(SslSuiteAllocationTest, TheCountCounts) {
    const unsigned long before = allocations;
    volatile std::size_t size = 10;
    std::free(std::malloc(size));
    EXPECT_EQ(allocations, before + 1);
}

TEST(SslSuiteAllocationTest, NoCommandAllocates) {
    Selection selection;
    selection->default_string = "all:!null:@strength";
    selection->fips_string = "aes+nonsense";
    const std::string texts[] = {
        "default:!rc4:-3des:+sha:AES128-SHA:ecdhe+aes-gcm:@speed:@strength:@fips:draftdtls", "fips",
        "aes::rc4", std::string(5000, 'x')};
    const unsigned long before = allocations;
    for (const std::string& text : texts) {
        (void)ssl_suite_cmd(
            selection.get(), text.data(), static_cast<unsigned>(text.size()), 1,
            [](void*, ssl_suite_ctx_t*, const char*) { return 0; }, nullptr);
    }
    EXPECT_EQ(allocations, before);
}

TEST(SslSuiteAllocationTest, NamingFindingAndPrintingASuiteAllocateNothing) {
    char row[SSL_SUITE_ROW_SIZE];
    const unsigned long before = allocations;
    for (unsigned i = 0; i < SSL_SUITE_COUNT; ++i) {
        (void)ssl_cipher_suite(row, sizeof row, &ssl_suite[i]);
        (void)ssl_cipher_suite_from_id(ssl_suite[i].id);
    }
    for (unsigned code = 0; code < 20; ++code) {
        for (const auto name :
             {ssl_protocol_name, ssl_cipher_name, ssl_mac_name, ssl_keyxchg_name}) {
            (void)name(code);
        }
    }
    EXPECT_EQ(allocations, before);
}

}  // namespace
