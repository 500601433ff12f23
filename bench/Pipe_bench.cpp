// SPDX-License-Identifier: Apache-2.0
// Putting a pipe in the place of a stream and taking it away again, beside the bare system calls.
#include <fcntl.h>
#include <unistd.h>

#include <tarnutil/Pipe.h>

#include "bench.h"

namespace {

using tarnutil::Pipe;

// A stream to substitute: the report goes to the real ones.
int stream() {
    static const int fd = open("/dev/null", O_WRONLY);
    return fd;
}

void withPipe(int fd) {
    Pipe pipe;
    pipe.open();
    pipe.substitute(fd, Pipe::WRITE);
    pipe.restore();
    pipe.close(Pipe::READ | Pipe::WRITE);
}

void withBareCalls(int fd) {
    int ends[2];
    if (pipe(ends) != 0) return;
    const int saved = dup(fd);
    (void)dup2(ends[1], fd);
    (void)dup2(saved, fd);
    (void)close(saved);
    (void)close(ends[1]);
    (void)close(ends[0]);
}

template <class Work>
void row(const char* who, Work work) {
    tarnutil_bench::add(std::string("Pipe/substitute/1/") + who, [work](benchmark::State& state) {
        const int fd = stream();
        for (auto _ : state) work(fd);
    });
}

void addAll() {
    row("tarnutil", withPipe);
    row("bare_calls", withBareCalls);
}

const tarnutil_bench::Added added(addAll);

}  // namespace
