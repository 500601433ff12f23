// SPDX-License-Identifier: Apache-2.0
// The exceptions that the class face of the library throws. Each carries a message and the stack
// trace of the place where it was built.
//
// Errors:  a stack that cannot be walked is no error, whatever the reason: the trace is then empty.
//          In the constructors with a message, in copying, kind, getStrerror and createMsg:
//          A failed allocation throws std::bad_alloc.
// Threads: safe on any thread; an object is immutable once built.
#ifndef TARNUTIL_EXCEPTION_H
#define TARNUTIL_EXCEPTION_H

#include <exception>
#include <string>
#include <vector>

#include <tarnutil/export.h>

// The base of all: a stack trace, and the name of the class that was thrown.
class TARNUTIL_API TraceableException : public std::exception {
public:
    // Captures the stack of the calling thread. A copy keeps the trace of its original.
    TraceableException();
    ~TraceableException() noexcept override;
    TraceableException(const TraceableException&) = default;
    TraceableException& operator=(const TraceableException&) = default;

    // The demangled name of the object's own class, namespace included; "generic" if that name
    // cannot be demangled.
    std::string kind() const;

    // One line per frame, at most 64, innermost first; the first are the capture itself and those
    // constructors that are not inline. A line is "module(function+offset)" with the function
    // demangled, its "+" always written, without blanks in front and the address behind, or else
    // the platform's own line where that has another form.
    const std::vector<std::string>& getStackTrace() const { return stackTrace; }

private:
    std::vector<std::string> stackTrace;
};

namespace tarnutil {

// A failure described by a message.
class TARNUTIL_API Exception : public TraceableException {
public:
    // Its message is `msg`.
    Exception(const std::string& msg);
    ~Exception() noexcept override;
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;

    // The message, valid as long as the object lives.
    const char* what() const noexcept override;

    // The system's text for the error number `errnum`, also for one that it does not know;
    // "strerror_r returned NULL" if it has none.
    static std::string getStrerror(int errnum);

private:
    std::string message;
};

// The failure of a system call that sets errno.
class TARNUTIL_API ErrnoException : public Exception {
public:
    // The message is createMsg(msg, errnum). An `errnum` of -1 stands for the current errno, which
    // is read once for the message and once more, after it was built, for the number.
    ErrnoException(const std::string& msg, int errnum = -1);
    ~ErrnoException() noexcept override;
    ErrnoException(const ErrnoException&) = default;
    ErrnoException& operator=(const ErrnoException&) = default;

    // The `errnum` that it was built with, or the errno that stood for -1.
    int getErrorNumber() const { return errorNumber; }

    // `msg` + ": errno " + `errnum` in decimal + ": " + the system's text for it.
    static std::string createMsg(const std::string& msg, int errnum);

private:
    int errorNumber;
};

// The failure of a file operation.
class TARNUTIL_API IOException : public Exception {
public:
    // Its message is `msg`.
    IOException(const std::string& msg) : Exception(msg) {}
    ~IOException() noexcept override;
    IOException(const IOException&) = default;
    IOException& operator=(const IOException&) = default;
};

}  // namespace tarnutil

// The text that strerror_r(errnum, buf, size) stands for, whichever of its two forms libc has:
// check_error(strerror_r(errnum, buf, size), buf, errnum).
//
// The POSIX form returns an int and fills `buf`; if it failed, `buf` is made to hold
// "unknown error: " and the number, for which it needs 27 bytes. The GNU form returns the text
// itself, in `buf` or not, or null.
TARNUTIL_API char* check_error(int result, char* buf, int errnum);
TARNUTIL_API char* check_error(char* result, char* buf, int errnum);

#endif  // TARNUTIL_EXCEPTION_H
