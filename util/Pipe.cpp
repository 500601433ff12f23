// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Pipe.h>

#include <unistd.h>

#include <tarnutil/Exception.h>

#include "boundary.h"
#include "uncancelled.h"

namespace tarnutil {
namespace {

// Closes `fd` unless it is none, and makes it none.
void release(int& fd) noexcept {
    if (fd != -1) (void)::close(fd);
    fd = -1;
}

}  // namespace

Pipe::Pipe() noexcept = default;

// Quirk: a substitution that fails leaves both ends open, for no destructor runs. This constructor
// must therefore not delegate to the other. Pinned by
// PipeTest.FailedConstructionLeavesBothEndsOpen.
Pipe::Pipe(int fd, Type type) {
    open();
    substitute(fd, type);
}

Pipe::~Pipe() {
    restore();
    close(READ | WRITE);
}

void Pipe::open() {
    admitOnly<Exception>([&] {
        if (readEnd >= 0 || writeEnd >= 0) throw Exception("Already opened");
        int ends[2];
        if (::pipe(ends) != 0) throw ErrnoException("Failed creating new pipe");
        readEnd = ends[0];
        writeEnd = ends[1];
    });
}

void Pipe::substitute(int fd, Type type) {
    admitOnly<Exception>([&] {
        if (saved >= 0) throw Exception("Already substituted");
        side = type;
        saved = ::dup(fd);
        if (saved == -1) throw ErrnoException("Failed saving stream descriptor");
        if (::dup2(type == READ ? readEnd : writeEnd, fd) == -1) {
            const Uncancelled uncancelled;
            release(saved);
            throw ErrnoException("Failed to substitute stream descriptor");
        }
        substituted = fd;
    });
}

void Pipe::restore() noexcept {
    if (substituted < 0) return;
    const Uncancelled uncancelled;
    (void)::dup2(saved, substituted);
    release(saved);
    substituted = -1;
}

void Pipe::close(int ends) noexcept {
    const Uncancelled uncancelled;
    if ((ends & WRITE) != 0) release(writeEnd);
    if ((ends & READ) != 0) release(readEnd);
}

int Pipe::getDescriptor(Type type) const noexcept {
    switch (type) {
        case READ:
            return readEnd;
        case WRITE:
            return writeEnd;
    }
    return -1;
}

}  // namespace tarnutil
