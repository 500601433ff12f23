// SPDX-License-Identifier: Apache-2.0
// operator new of the test program and of every library in it: fails when Call::operator_new is
// due.
#include <cstdlib>
#include <new>

#include "fault.h"

using tarnutil_test::Call;
using tarnutil_test::Fault;

void* operator new(std::size_t size) {
    if (Fault::due(Call::operator_new)) throw std::bad_alloc();
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size) { return operator new(size); }

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (Fault::due(Call::operator_new)) return nullptr;
    return std::malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
