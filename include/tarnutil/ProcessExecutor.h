// SPDX-License-Identifier: Apache-2.0
// One child program at a time, behind three pipes.
//
// Errors:  a failed system call throws ErrnoException with the call's errno, a call out of turn
//          throws Exception; each with the message given below.
//          In the constructor: A failed allocation throws std::bad_alloc. In everything else:
//          A failed allocation ends the process (std::terminate).
// Threads: one object belongs to one thread at a time.
#ifndef TARNUTIL_PROCESSEXECUTOR_H
#define TARNUTIL_PROCESSEXECUTOR_H

#include <sys/types.h>

#include <string>
#include <vector>

#include <tarnutil/Pipe.h>
#include <tarnutil/export.h>

namespace tarnutil {

class TARNUTIL_API ProcessExecutor {
public:
    // Starts nothing yet. `program` goes to execv as it is: PATH is not searched.
    explicit ProcessExecutor(const std::string& program);

    // Sends a running child SIGTERM and waits for it: a child that ignores the signal holds the
    // destructor up until it exits. Never throws; a child that cannot be waited for is left.
    virtual ~ProcessExecutor();

    ProcessExecutor(const ProcessExecutor&) = delete;
    ProcessExecutor& operator=(const ProcessExecutor&) = delete;

    // Starts the program and returns while it runs. `argv` ends in a null pointer; its first
    // element, or that of `args`, is the child's argv[0]. Neither may change until exec returns.
    //
    // The child's pipes take the descriptors of stdio's stdin, stdout and stderr (fileno): 0 to 2,
    // unless the caller made these streams stand for other files. They have to be open: otherwise
    // an end of a pipe takes such a number, and the child closes its own stream with it.
    //
    // The child inherits every descriptor of the caller that is not close-on-exec: also the
    // parent's ends of the pipes of other running children, and duplicates of what the caller's
    // own standard streams are. Flush the streams of stdio first, or a child that cannot be
    // executed writes out its copy of what they hold.
    //
    // Throws Exception "Process already running"; ErrnoException "Error creating new process", for
    // which the pipes are closed first, and a close that fails replaces the errno of fork; and what
    // Pipe::open throws, which leaves the pipes opened before it open: close them before the next
    // exec. A program that cannot be executed is no error here: see wait.
    //
    // If the child cannot take over its standard streams, the exception of Pipe::substitute leaves
    // exec in the child process, which then is a copy of the caller. The object has no child there;
    // its pipes stay open until it is destroyed. A caller that is to go on only in the parent
    // catches directly around exec, before any other object is unwound, and compares getpid():
    // another executor would end its child, and a TmpFile remove its file, from there too.
    void exec(const char** argv);
    void exec(const std::vector<std::string>& args);

    // Waits for the child to end, closes the pipes and returns the exit status: the exit code, or
    // -127 if a signal ended the child. Without a child, returns the last exit status, 0 before
    // any. A program that could not be executed ends with 256 less the errno of execv: 254 if it
    // is missing, 243 if it may not be executed.
    //
    // Read all output first: a child that finds a pipe full never ends.
    //
    // Throws ErrnoException "Error waiting for child process", with EINTR if a signal handler ran;
    // the child and the pipes are then as before, and the call can be repeated.
    int wait();

    // Sends the child a signal; without a child, does nothing. The child has to be waited for even
    // if it ends. Throws ErrnoException "Error sending a signal to child process".
    void kill(int signal);

private:
    void becomeProgram(const char** argv);
    void closePipes() noexcept;

    std::string path;
    pid_t pid = -1;  // -1 without a child
    int exitStatus = 0;

public:
    // The child's streams. While it runs, the caller's ends are open: WRITE of stdinPipe, READ of
    // stdoutPipe and of stderrPipe. Closing WRITE gives the child its end of file. Once the child
    // has ended, writing there raises SIGPIPE, or fails with EPIPE where that signal is ignored.
    Pipe stdinPipe;
    Pipe stdoutPipe;
    Pipe stderrPipe;
};

}  // namespace tarnutil
#endif  // TARNUTIL_PROCESSEXECUTOR_H
