// SPDX-License-Identifier: Apache-2.0
#include "record.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <typeinfo>

#include <tarnutil/Exception.h>

namespace tarnutil_test {
namespace {

constexpr char kVariable[] = "TARNUTIL_TEST_RECORD";

// Opens the record, or returns -1 if none is wanted. Calls the kernel itself, as all here does:
// tests count and fail the calls of libc that a program makes, and the blocks that it allocates.
int openRecord(int flags) {
    const char* const path = std::getenv(kVariable);
    if (path == nullptr) return -1;
    return static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0666));
}

// One line, written as a whole. A line break within the text is written as a space.
class Line {
public:
    Line& operator<<(const char* piece) {
        const std::size_t length = std::min(std::strlen(piece), sizeof text - 1 - size);
        std::replace_copy(piece, piece + length, text + size, '\n', ' ');
        size += length;
        return *this;
    }

    void writeTo(int fd) {
        text[size++] = '\n';
        (void)syscall(SYS_write, fd, text, size);
    }

private:
    char text[8192];
    std::size_t size = 0;
};

void writeLine(const char* kind, const char* text) {
    const int error = errno;
    const int fd = openRecord(O_APPEND);
    if (fd != -1) {
        (Line() << kind << "\t" << text).writeTo(fd);
        (void)syscall(SYS_close, fd);
    }
    errno = error;
}

struct Class {
    const std::type_info* type;
    const char* name;
};
const Class kClasses[] = {
    {&typeid(tarnutil::Exception), "Exception"},
    {&typeid(tarnutil::ErrnoException), "ErrnoException"},
    {&typeid(tarnutil::IOException), "IOException"},
};

bool isLibrary(const void* code) {
    Dl_info module;
    return dladdr(code, &module) != 0 &&
           std::strstr(module.dli_fname, "/libtarnutil.so") != nullptr;
}

// Records `object`, thrown at `code`, if it is one of the library's.
void recordThrown(const void* object, const std::type_info& type, const void* code) {
    const auto* const found =
        std::find_if(std::begin(kClasses), std::end(kClasses),
                     [&](const Class& candidate) { return *candidate.type == type; });
    if (found == std::end(kClasses) || !isLibrary(code)) return;
    writeLine(found->name, static_cast<const tarnutil::Exception*>(object)->what());
}

}  // namespace

void startRecord() {
    const int fd = openRecord(O_TRUNC);
    if (fd != -1) (void)syscall(SYS_close, fd);
}

void record(const char* kind, const std::string& text) { writeLine(kind, text.c_str()); }

}  // namespace tarnutil_test

// Stands in front of the runtime's own, as the functions of interpose.cpp do in front of libc's.
extern "C" [[noreturn]] void tarnutil_test_throw(void* object, std::type_info* type,
                                                 void (*destroy)(void*)) __asm__("__cxa_throw");
extern "C" void tarnutil_test_throw(void* object, std::type_info* type, void (*destroy)(void*)) {
    using Throw = void(void*, std::type_info*, void (*)(void*));
    static std::atomic<void*> found{nullptr};
    if (found == nullptr) found = dlsym(RTLD_NEXT, "__cxa_throw");
    if (std::getenv(tarnutil_test::kVariable) != nullptr) {
        tarnutil_test::recordThrown(object, *type, __builtin_return_address(0));
    }
    reinterpret_cast<Throw*>(found.load())(object, type, destroy);
    std::abort();  // it does not return
}
