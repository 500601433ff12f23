// SPDX-License-Identifier: Apache-2.0
// Gives a child program a deadline: past it SIGTERM, and SIGKILL if that does not help.
//
// wait has no deadline of its own. But a child that ends closes its end of every pipe, so the end
// of its output is the event to wait for, with poll. (A child that closes its output and runs on is
// not caught by this; wait then waits.)
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>
#include <string>

#include <tarnutil/Exception.h>
#include <tarnutil/ProcessExecutor.h>

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tarnutil::ErrnoException;
using tarnutil::Pipe;
using tarnutil::ProcessExecutor;

namespace {

// Reads the child's output until it ends, true, or the deadline passes, false.
//
// A grandchild that keeps the output open counts as the child: give it an output of its own, or the
// end that is waited for never comes.
bool endsBefore(ProcessExecutor& child, steady_clock::time_point deadline, std::string& output) {
    pollfd out{child.stdoutPipe.getDescriptor(Pipe::READ), POLLIN, 0};
    for (;;) {
        const auto left =
            std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now()).count();
        const int ready = poll(&out, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready == -1 && errno == EINTR) continue;
        if (ready == -1) throw ErrnoException("Could not wait for the child");
        if (ready == 0) return false;
        std::array<char, 4096> buffer;
        const ssize_t size = read(out.fd, buffer.data(), buffer.size());
        if (size == -1 && errno == EINTR) continue;
        if (size <= 0) return true;
        output.append(buffer.data(), static_cast<std::size_t>(size));
    }
}

// Starts the child. Where it cannot take over its streams, the exception leaves exec in the child,
// which is a copy of this program then and must not go on as one.
void start(ProcessExecutor& child, const std::string& script) {
    const pid_t caller = getpid();
    try {
        child.exec({"sh", "-c", script});
    } catch (const tarnutil::Exception&) {
        if (getpid() != caller) _exit(127);
        throw;
    }
}

enum Ending { inTime, terminated, killed };

struct Outcome {
    Ending ending;
    int status;
    std::string output;
};

Outcome runFor(milliseconds time, milliseconds grace, const std::string& script) {
    ProcessExecutor child("/bin/sh");
    start(child, script);
    child.stdinPipe.close(Pipe::WRITE);
    Outcome outcome{inTime, 0, ""};
    if (!endsBefore(child, steady_clock::now() + time, outcome.output)) {
        outcome.ending = terminated;
        child.kill(SIGTERM);
        if (!endsBefore(child, steady_clock::now() + grace, outcome.output)) {
            outcome.ending = killed;
            child.kill(SIGKILL);
        }
    }
    outcome.status = child.wait();
    return outcome;
}

struct Example {
    const char* says;
    milliseconds time;
    milliseconds grace;
    const char* script;
    Ending ending;
    int status;
};

const milliseconds kLong(30000);

const Example kExamples[] = {
    // clang-format off
    // says                            time                grace              script                                      ending      status
    {"a quick child ends in time",     kLong,              kLong,             "echo done; exit 3",                        inTime,     3},
    {"a slow one is ended",            milliseconds(100),  kLong,             "exec sleep 1000",                          terminated, -127},
    {"a polite one says how it went",  milliseconds(1000), kLong,             "trap 'exit 5' TERM; while :; do :; done",  terminated, 5},
    {"a stubborn one is killed",       milliseconds(1000), milliseconds(100), "trap '' TERM; while :; do :; done",        killed,     -127},
    // clang-format on
};

bool holds(const Example& example) {
    const Outcome outcome = runFor(example.time, example.grace, example.script);
    const bool good = outcome.ending == example.ending && outcome.status == example.status;
    std::cout << (good ? "ok: " : "not so: ") << example.says << ", status " << outcome.status
              << '\n';
    return good;
}

}  // namespace

int main() {
    try {
        bool good = true;
        for (const Example& example : kExamples) good = holds(example) && good;
        return good ? 0 : 1;
    } catch (const tarnutil::Exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
}
