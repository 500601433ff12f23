// SPDX-License-Identifier: Apache-2.0
#include "pristine.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

namespace tarnutil_test {
namespace {

constexpr std::size_t kAlignment = 64;

void require(bool good, const char* what) {
    if (good) return;
    std::perror(what);
    std::abort();
}

// All blocks of a bitmap with room for their alignment.
std::size_t bytesNeeded(std::uint64_t positions) {
    const std::size_t perTop = sizeof(eb_top_t) + 64 + 65536 + 3 * kAlignment;
    return positions / (512 * 1024) * perTop + (std::size_t{1} << 20);
}

}  // namespace

// The bitmap is built in a memory file, which is then mapped privately in the same place: what is
// written later goes to copies of the file's pages, and dropping those is all it takes to go back.
PristineBitmap::PristineBitmap(unsigned exponent)
    : positions(std::uint64_t{1} << exponent), size(bytesNeeded(positions)) {
    constexpr int kReadWrite = PROT_READ | PROT_WRITE;
    const int fd = memfd_create("bitmap", MFD_CLOEXEC);
    require(fd >= 0 && ftruncate(fd, static_cast<off_t>(size)) == 0, "memfd");
    void* const mapped = mmap(nullptr, size, kReadWrite, MAP_SHARED, fd, 0);
    require(mapped != MAP_FAILED, "mmap");
    memory = static_cast<char*>(mapped);
    require(eb_init(&eb, positions, this, take, giveBack) == 0, "eb_init");
    require(mmap(memory, size, kReadWrite, MAP_PRIVATE | MAP_FIXED, fd, 0) == mapped, "mmap");
    close(fd);
}

PristineBitmap::~PristineBitmap() { munmap(memory, size); }

void PristineBitmap::restore() { require(madvise(memory, size, MADV_DONTNEED) == 0, "madvise"); }

void* PristineBitmap::take(void* self, std::size_t bytes) {
    auto* const own = static_cast<PristineBitmap*>(self);
    const std::size_t at = own->used;
    own->used += (bytes + kAlignment - 1) / kAlignment * kAlignment;
    return own->used <= own->size ? own->memory + at : nullptr;
}

PristineBitmap& sharedPristine(unsigned exponent) {
    static std::map<unsigned, std::unique_ptr<PristineBitmap>> made;
    std::unique_ptr<PristineBitmap>& bitmap = made[exponent];
    if (!bitmap) bitmap = std::make_unique<PristineBitmap>(exponent);
    return *bitmap;
}

}  // namespace tarnutil_test
