// SPDX-License-Identifier: Apache-2.0
// A pipe that can stand in for a standard stream of the process, and puts the stream back.
//
// Errors:  a failed system call throws ErrnoException with the call's errno, a call out of turn
//          throws Exception; each with the message given below. restore, close and the destructor
//          drop what fails. A failed allocation ends the process (std::terminate).
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
    // stream descriptor" if the end is not open or dup2 fails in any other way. In every failure
    // `fd` stays as it was. If closing the duplicate fails as well, the exception holds the errno
    // of that close.
    void substitute(int fd, Type type);

    // Makes the substituted descriptor refer to the file that it referred to before; if it was
    // close-on-exec, it is so no more. Without a substitution, does nothing.
    void restore() noexcept;

    // Closes the open ones of `ends`, a sum of Type values, the write end first. A substituted
    // stream keeps its own reference to the pipe.
    void close(int ends) noexcept;

    // The descriptor of an end, which the pipe goes on owning: -1 if that end is not open, and for
    // any `type` that is not exactly one end.
    int getDescriptor(Type type) const noexcept;

private:
    // The end last asked of substitute; indeterminate before. Nothing reads it: it keeps its place
    // because the layout of the class is part of the binary interface.
    int side;
    // A descriptor of -1 is none.
    int substituted = -1;
    int saved = -1;
    int readEnd = -1;
    int writeEnd = -1;
};

}  // namespace tarnutil
#endif  // TARNUTIL_PIPE_H
