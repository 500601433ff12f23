// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/ProcessExecutor.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <tarnutil/Exception.h>

#include "boundary.h"
#include "uncancelled.h"

namespace tarnutil {
namespace {

constexpr int kEndedBySignal = -127;

// A null-terminated vector of pointers to the texts of `args`, which must outlive it.
std::vector<const char*> argumentVector(const std::vector<std::string>& args) {
    std::vector<const char*> argv;
    argv.reserve(args.size() + 1);
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    return argv;
}

}  // namespace

ProcessExecutor::ProcessExecutor(const std::string& program) : path(program) {}

ProcessExecutor::~ProcessExecutor() {
    const Uncancelled uncancelled;
    dropExceptions([&] { kill(SIGTERM); });
    dropExceptions([&] { (void)wait(); });
}

void ProcessExecutor::exec(const char** argv) {
    admitOnly<Exception>([&] {
        if (pid != -1) throw Exception("Process already running");
        // Quirk: the pipes that opened before one that failed stay open, so that the next exec
        // finds them "Already opened". Pinned by
        // ProcessExecutorTest.FailedOpenLeavesEarlierPipesOpen.
        stdinPipe.open();
        stdoutPipe.open();
        stderrPipe.open();
        pid = ::fork();
        if (pid == -1) {
            closePipes();
            throw ErrnoException("Error creating new process");
        }
        if (pid == 0) becomeProgram(argv);
        stdinPipe.close(Pipe::READ);
        stdoutPipe.close(Pipe::WRITE);
        stderrPipe.close(Pipe::WRITE);
    });
}

void ProcessExecutor::exec(const std::vector<std::string>& args) {
    admitOnly<Exception>([&] { exec(argumentVector(args).data()); });
}

int ProcessExecutor::wait() {
    return admitOnly<ErrnoException>([&] {
        if (pid == -1) return exitStatus;
        int status = 0;
        if (::waitpid(pid, &status, 0) == -1) {
            throw ErrnoException("Error waiting for child process");
        }
        exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : kEndedBySignal;
        pid = -1;
        closePipes();
        return exitStatus;
    });
}

void ProcessExecutor::kill(int signal) {
    admitOnly<ErrnoException>([&] {
        if (pid == -1) return;
        if (::kill(pid, signal) != 0) {
            throw ErrnoException("Error sending a signal to child process");
        }
    });
}

// What the child does: returns never, and throws if a stream cannot be taken over.
//
// The object first forgets that it owns a child. It is in the child itself here, where pid is 0,
// and a destructor that ran with that would send SIGTERM to the whole process group.
void ProcessExecutor::becomeProgram(const char** argv) {
    pid = -1;
    stdinPipe.substitute(fileno(stdin), Pipe::READ);
    stdoutPipe.substitute(fileno(stdout), Pipe::WRITE);
    stderrPipe.substitute(fileno(stderr), Pipe::WRITE);
    closePipes();
    (void)::execv(path.c_str(), const_cast<char* const*>(argv));
    // Quirk: exit, not _exit, so the handlers of atexit run in the child too. Pinned by
    // ProcessExecutorTest.ExitHandlersRunInAChildThatCannotBeExecuted.
    std::exit(-errno);
}

void ProcessExecutor::closePipes() noexcept {
    stdinPipe.close(Pipe::READ | Pipe::WRITE);
    stdoutPipe.close(Pipe::READ | Pipe::WRITE);
    stderrPipe.close(Pipe::READ | Pipe::WRITE);
}

}  // namespace tarnutil
