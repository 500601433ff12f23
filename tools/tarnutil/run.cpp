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
#include "passage.h"
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

void setCloseOnExec(int fd) {
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) == -1) throw ErrnoException("Could not set up a pipe");
}

// Something that happens once, as a byte in a pipe: poll can wait for it, a signal handler and
// another process can tell it. A program that the process becomes does not inherit it.
class Event {
public:
    Event() {
        pipe.open();
        for (const Pipe::Type end : {Pipe::READ, Pipe::WRITE}) {
            setCloseOnExec(pipe.getDescriptor(end));
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
        while (step()) {
        }
        return child.wait();
    }

    bool hasFailedToStart() const { return failed.hasHappened(); }
    bool hasLostInput() const { return input.hasFailed(); }
    bool hasLostOutput() const { return output.hasFailed() || errors.hasFailed(); }
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
        enum { kEnd, kInput, kOutput, kErrors, kCount };
        const bool hasEnded = ended.hasHappened();
        std::array<pollfd, kCount> all{
            {{ended.descriptor(), POLLIN, 0}, input.awaited(), output.awaited(), errors.awaited()}};
        if (hasEnded) all[kEnd].fd = all[kInput].fd = -1;
        const int ready =
            poll(all.data(), all.size(), hasEnded ? timeToPassOn() : millisecondsLeft());
        if (ready == -1 && errno != EINTR) throw ErrnoException("Could not wait for the program");
        if (ready == 0 && hasEnded) return false;
        if (!hasEnded) insist();
        if (ready == -1) return true;
        if (all[kInput].revents != 0) input.advance();
        if (all[kOutput].revents != 0) output.advance();
        if (all[kErrors].revents != 0) errors.advance();
        return true;
    }

    // For poll: without an end while something was read and not written, else none.
    int timeToPassOn() const { return output.isLaden() || errors.isLaden() ? -1 : 0; }

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

    const std::vector<std::string> command;
    const Event ended;
    const Event failed;
    ProcessExecutor child;
    std::optional<steady_clock::time_point> deadline;
    int signals = 0;
    Passage input{child.stdinPipe, Pipe::WRITE, STDIN_FILENO};
    Passage output{child.stdoutPipe, Pipe::READ, STDOUT_FILENO};
    Passage errors{child.stderrPipe, Pipe::READ, STDERR_FILENO};
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
    if (process->hasLostInput()) throw Unusable("cannot read standard input");
    if (process->hasLostOutput()) throw Unusable("cannot write the output");
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
    sub->add_option("COMMAND", arguments->command, "-- and the program, a path, then its arguments")
        ->required();
    sub->add_option("--timeout", arguments->seconds,
                    "Send SIGTERM after so many seconds, and SIGKILL 2 seconds later")
        ->check(objection);
    sub->footer(kExample);
    sub->callback([arguments] { run(arguments->command, arguments->seconds); });
}

}  // namespace tarnutil_command
