// SPDX-License-Identifier: Apache-2.0
// A pipe that can stand in for a standard stream of the process, and puts the stream back.
//
// Errors:  a failed system call throws ErrnoException with the call's errno, a call out of turn
//          throws Exception; each with the message given below. restore, close and the destructor
//          drop what fails. Want of memory ends the process.
// Threads: one object belongs to one thread at a time. A substitution changes the descriptor table,
//          which all threads of the process share.
#ifndef TARNUTIL_PIPE_H
#define TARNUTIL_PIPE_H

#include <tarnutil/export.h>

namespace tarnutil {

class TARNUTIL_API Pipe {
public:
    // An end of the pipe. READ | WRITE names both.
    enum Type : int { READ = 1, WRITE = 2 };

    // Holds no pipe yet.
    Pipe() noexcept;

    // As open followed by substitute.
    //
    // If the substitution fails, the two ends stay open and nobody owns them: open and substitute
    // in turn where that matters.
    Pipe(int fd, Type type);

    // Restores a substituted stream, then closes both ends.
    virtual ~Pipe();

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    // Makes a new pipe, whose ends programs started later inherit (no close-on-exec).
    //
    // Throws Exception "Already opened" while either end is open; ErrnoException "Failed creating
    // new pipe".
    void open();

    // Makes the descriptor `fd`, 0 to 2 for a standard stream, refer to one end of the open pipe,
    // the write end for any `type` but READ. A duplicate of what `fd` was is kept for restore, and
    // is inherited like the ends. The end itself stays open too.
    //
    // Throws Exception "Already substituted" until restore is called; ErrnoException "Failed saving
    // stream descriptor" if `fd` is not open or too many descriptors are, "Failed to substitute
    // stream descriptor" if the end is not open or dup2 fails in any other way; its number is that
    // of closing the duplicate if that fails too. `fd` is then as it was.
    void substitute(int fd, Type type);

    // Makes the substituted descriptor what it was before. Without a substitution, does nothing.
    void restore() noexcept;

    // Closes the open ones of `ends`, a sum of Type values, the write end first. A substituted
    // stream keeps its own reference to the pipe.
    void close(int ends) noexcept;

    // The descriptor of an end, which the pipe goes on owning: -1 if that end is not open, and for
    // any `type` that is not exactly one end.
    int getDescriptor(Type type) const noexcept;

private:
    // A descriptor of -1 is none.
    int side;  // the end last asked of substitute; indeterminate before
    int substituted;
    int saved;
    int readEnd;
    int writeEnd;
};

}  // namespace tarnutil
#endif  // TARNUTIL_PIPE_H
