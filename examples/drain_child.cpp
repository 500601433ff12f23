// SPDX-License-Identifier: Apache-2.0
// Feeds a child program its input while reading both of its outputs, without a deadlock.
//
//   drain_child PROGRAM [ARGUMENT...] <INPUT
//
// Writing everything first and reading afterwards works only as long as a pipe holds it all (64
// KiB): then the child waits for its reader, and the reader for the child. poll tells which of the
// three can go on.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <tarnutil/Exception.h>
#include <tarnutil/ProcessExecutor.h>

using tarnutil::ErrnoException;
using tarnutil::Pipe;
using tarnutil::ProcessExecutor;

namespace {

struct Outcome {
    int status = 0;
    std::string output;
    std::string errors;
};

// Appends what can be read at once to `text`; false at the end of file.
bool readSome(int fd, std::string& text) {
    std::array<char, 65536> buffer;
    const ssize_t size = read(fd, buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) return true;
    if (size < 0) throw ErrnoException("Could not read from the child");
    text.append(buffer.data(), static_cast<std::size_t>(size));
    return size > 0;
}

// Writes what fits of `text` from `done` on; false once there is no more to write, or nobody to
// read it.
bool writeSome(int fd, const std::string& text, std::size_t& done) {
    const ssize_t size = write(fd, text.data() + done, text.size() - done);
    if (size < 0 && errno == EPIPE) return false;
    if (size < 0 && errno != EAGAIN && errno != EINTR)
        throw ErrnoException("Could not write to the child");
    if (size > 0) done += static_cast<std::size_t>(size);
    return done < text.size();
}

// Starts the child. Where it cannot take over its streams, the exception leaves exec in the child,
// which is a copy of this program then and must not go on as one.
void start(ProcessExecutor& child, const std::vector<std::string>& command) {
    const pid_t caller = getpid();
    try {
        child.exec(command);
    } catch (const tarnutil::Exception&) {
        if (getpid() != caller) _exit(127);
        throw;
    }
}

Outcome runWith(const std::string& input, const std::vector<std::string>& command) {
    ProcessExecutor child(command[0]);
    start(child, command);

    // poll skips a negative descriptor: that is how a stream that is done leaves the loop.
    pollfd in{child.stdinPipe.getDescriptor(Pipe::WRITE), POLLOUT, 0};
    pollfd out{child.stdoutPipe.getDescriptor(Pipe::READ), POLLIN, 0};
    pollfd err{child.stderrPipe.getDescriptor(Pipe::READ), POLLIN, 0};
    // A pipe that takes one byte may not take all: without this, write would wait for the rest.
    if (fcntl(in.fd, F_SETFL, O_NONBLOCK) == -1) throw ErrnoException("Could not set the input up");

    Outcome outcome;
    std::size_t done = 0;
    while (in.fd != -1 || out.fd != -1 || err.fd != -1) {
        pollfd all[] = {in, out, err};
        if (poll(all, 3, /*timeout=*/-1) == -1) {
            if (errno == EINTR) continue;
            throw ErrnoException("Could not wait for the child");
        }
        if (all[0].revents != 0 && !writeSome(in.fd, input, done)) {
            child.stdinPipe.close(Pipe::WRITE);
            in.fd = -1;
        }
        if (all[1].revents != 0 && !readSome(out.fd, outcome.output)) out.fd = -1;
        if (all[2].revents != 0 && !readSome(err.fd, outcome.errors)) err.fd = -1;
    }
    outcome.status = child.wait();
    return outcome;
}

// More than any pipe holds, through a program that writes it to both of its outputs.
bool megabytesSurvive() {
    const std::string input(8U << 20, 'x');
    const Outcome outcome = runWith(input, {"/bin/sh", "-c", "exec tee /dev/stderr"});
    return outcome.status == 0 && outcome.output == input && outcome.errors == input;
}

}  // namespace

int main(int argc, char** argv) {
    // A child may end before it has read everything. A handler, for the child inherits SIG_IGN.
    std::signal(SIGPIPE, [](int) {});
    try {
        if (argc < 2) return megabytesSurvive() ? 0 : 1;
        const std::string input((std::istreambuf_iterator<char>(std::cin)), {});
        const Outcome outcome = runWith(input, {argv + 1, argv + argc});
        std::cout << outcome.output;
        std::cerr << outcome.errors;
        return outcome.status < 0 ? 1 : outcome.status;
    } catch (const tarnutil::Exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
}
