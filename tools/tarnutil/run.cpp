// SPDX-License-Identifier: Apache-2.0
// tarnutil run: a program as a child, with its streams passed through and a deadline.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tarnutil/Exception.h>
#include <tarnutil/Pipe.h>
#include <tarnutil/ProcessExecutor.h>

#include "commands.h"
#include "standard_streams.h"

namespace tarnutil_command {
namespace {

using std::chrono::steady_clock;
using tarnutil::ErrnoException;
using tarnutil::Pipe;
using tarnutil::ProcessExecutor;

constexpr const char* kExample = R"(Example:
  tarnutil run --timeout 5 -- /bin/sh -c 'wc -l' </etc/passwd
)";
constexpr std::chrono::seconds kGrace(2);  // from SIGTERM to SIGKILL

void setFlag(int fd, int get, int set, int flag) {
    const int flags = fcntl(fd, get);
    if (flags == -1 || fcntl(fd, set, flags | flag) == -1) {
        throw ErrnoException("Could not set up a pipe");
    }
}

// Something that happens once, as a byte in a pipe: poll can wait for it, a signal handler and
// another process can tell it. A program that the process becomes does not inherit it.
class Event {
public:
    Event() {
        pipe.open();
        for (const Pipe::Type end : {Pipe::READ, Pipe::WRITE}) {
            setFlag(pipe.getDescriptor(end), F_GETFD, F_SETFD, FD_CLOEXEC);
        }
    }

    void happen() const { (void)!write(pipe.getDescriptor(Pipe::WRITE), "", 1); }
    int descriptor() const { return pipe.getDescriptor(Pipe::READ); }
    bool hasHappened() const {
        pollfd fd{descriptor(), POLLIN, 0};
        return poll(&fd, 1, /*timeout=*/0) == 1;
    }

private:
    Pipe pipe;
};

// What handlers have to reach. Set before the child exists.
const Event* childEnded = nullptr;
const Event* execFailed = nullptr;
pid_t parent = -1;

void handleChild(int) {
    const int error = errno;
    childEnded->happen();
    errno = error;
}

// A child that cannot become the program leaves through exit, so this runs in it, and tells its
// status from the same one of a program.
void leaveChild() {
    if (getpid() != parent) execFailed->happen();
}

// A handler, and not SIG_IGN, which the program would inherit.
void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
    sigaction(signal, &action, nullptr);
}

// Lets a signal in that whoever started the command may have blocked.
void unblock(int signal) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    (void)sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

bool writeAll(int fd, const char* text, std::size_t size) {
    while (size > 0) {
        const ssize_t done = write(fd, text, size);
        if (done >= 0) {
            text += done;
            size -= static_cast<std::size_t>(done);
        } else if (errno == EAGAIN) {
            pollfd writable{fd, POLLOUT, 0};
            (void)poll(&writable, 1, /*timeout=*/-1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// One run of a program, from its start to its end.
class Run {
public:
    Run(const std::vector<std::string>& programAndArguments, std::optional<double> seconds)
        : command(programAndArguments), child(command.front()) {
        if (!seconds) return;
        deadline = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                             std::chrono::duration<double>(*seconds));
    }

    ~Run() { handle(SIGCHLD, SIG_DFL); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    // The child's exit status.
    int finish() {
        childEnded = &ended;
        execFailed = &failed;
        parent = getpid();
        (void)std::atexit(leaveChild);
        handle(SIGCHLD, handleChild);
        handle(SIGPIPE, [](int) {});
        start();
        unblock(SIGCHLD);  // not before: the program inherits the mask that the command was given
        setFlag(child.stdinPipe.getDescriptor(Pipe::WRITE), F_GETFL, F_SETFL, O_NONBLOCK);
        while (step()) {
        }
        return child.wait();
    }

    bool hasFailedToStart() const { return failed.hasHappened(); }
    bool hasMissedItsDeadline() const { return signals > 0; }

private:
    // A child that cannot take over its streams gets the exception, and leaves as one does that
    // cannot become the program.
    void start() {
        try {
            child.exec(command);
        } catch (const ErrnoException& e) {
            if (getpid() != parent) std::exit(-e.getErrorNumber());
            throw;
        }
    }

    // Waits for what comes next and passes it on. False once the child has ended and all that it
    // wrote has been passed on.
    bool step() {
        enum { kEnd, kSource, kSink, kOutput, kErrors, kCount };
        const bool hasEnded = ended.hasHappened();
        const int sink = child.stdinPipe.getDescriptor(Pipe::WRITE);
        const bool fed = hasEnded || sink == -1;
        std::array<pollfd, kCount> all{{
            {hasEnded ? -1 : ended.descriptor(), POLLIN, 0},
            {fed || !pending.empty() ? -1 : STDIN_FILENO, POLLIN, 0},
            {fed || pending.empty() ? -1 : sink, POLLOUT, 0},
            {child.stdoutPipe.getDescriptor(Pipe::READ), POLLIN, 0},
            {child.stderrPipe.getDescriptor(Pipe::READ), POLLIN, 0},
        }};
        const int ready = poll(all.data(), all.size(), hasEnded ? 0 : millisecondsLeft());
        if (ready == -1 && errno != EINTR) throw ErrnoException("Could not wait for the program");
        if (ready == -1) return true;
        if (ready == 0 && hasEnded) return false;
        if (ready == 0) insist();
        if (all[kSource].revents != 0) fetchInput();
        if (all[kSink].revents != 0) feed(sink);
        if (all[kOutput].revents != 0) passOn(child.stdoutPipe, STDOUT_FILENO);
        if (all[kErrors].revents != 0) passOn(child.stderrPipe, STDERR_FILENO);
        return true;
    }

    // Until the next deadline; -1 if there is none.
    int millisecondsLeft() const {
        if (!deadline) return -1;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*deadline - steady_clock::now());
        return static_cast<int>(std::clamp<long long>(left.count(), 0, 1000000));
    }

    // Past a deadline: SIGTERM first, SIGKILL past the next.
    void insist() {
        if (!deadline || steady_clock::now() < *deadline) return;
        child.kill(signals == 0 ? SIGTERM : SIGKILL);
        ++signals;
        deadline.reset();
        if (signals == 1) deadline = steady_clock::now() + kGrace;
    }

    void fetchInput() {
        const ssize_t size = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (size > 0) {
            pending.assign(buffer.data(), static_cast<std::size_t>(size));
        } else {
            child.stdinPipe.close(Pipe::WRITE);
        }
    }

    void feed(int sink) {
        const ssize_t size = write(sink, pending.data(), pending.size());
        if (size >= 0) {
            pending.erase(0, static_cast<std::size_t>(size));
        } else if (errno != EAGAIN) {
            child.stdinPipe.close(Pipe::WRITE);  // nobody reads it
        }
    }

    void passOn(Pipe& from, int to) {
        const ssize_t size = read(from.getDescriptor(Pipe::READ), buffer.data(), buffer.size());
        if (size <= 0 || !writeAll(to, buffer.data(), static_cast<std::size_t>(size))) {
            from.close(Pipe::READ);
        }
    }

    const std::vector<std::string> command;
    const Event ended;
    const Event failed;
    ProcessExecutor child;
    std::optional<steady_clock::time_point> deadline;
    int signals = 0;
    std::string pending;  // input that the child has not taken yet
    std::array<char, 65536> buffer;
};

std::string ending(int status) {
    return status < 0 ? "ended by a signal" : "exit status " + std::to_string(status);
}

void run(const std::vector<std::string>& command, std::optional<double> seconds) {
    openStandardStreams();
    const auto process = std::make_unique<Run>(command, seconds);
    const int status = process->finish();
    if (process->hasFailedToStart()) {
        throw Unusable(command.front() + ": " + tarnutil::Exception::getStrerror(256 - status) +
                       " (" + ending(status) + ")");
    }
    if (process->hasMissedItsDeadline()) throw Refused("deadline passed, " + ending(status));
    if (status != 0) throw Refused(ending(status));
    std::cerr << "tarnutil: " << ending(status) << '\n';
}

// What is wrong with a number of seconds: nothing if empty. CLI::Range would let NaN pass, which is
// neither below the one end nor above the other.
std::string objection(const std::string& text) {
    const double seconds = std::strtod(text.c_str(), nullptr);
    return seconds >= 0 && seconds <= 1e9 ? "" : "not from 0 to 1e9: " + text;
}

struct Arguments {
    std::vector<std::string> command;
    std::optional<double> seconds;
};

}  // namespace

void addRunCommand(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App* sub = app.add_subcommand(
        "run", "Run a program, pass its streams through and say on standard error how it ended");
    sub->add_option("command", arguments->command, "-- and the program, a path, then its arguments")
        ->required();
    sub->add_option("--timeout", arguments->seconds,
                    "Send SIGTERM after so many seconds, and SIGKILL 2 seconds later")
        ->check(objection);
    sub->footer(kExample);
    sub->callback([arguments] { run(arguments->command, arguments->seconds); });
}

}  // namespace tarnutil_command
