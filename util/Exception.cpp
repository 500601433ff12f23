// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Exception.h>

#include <execinfo.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <typeinfo>

#include "trace_line.h"

// A function that keeps a frame of its own. g++ forgets [[gnu::noinline]] where constructors of one
// file call each other.
#ifdef __clang__
#define TARNUTIL_OWN_FRAME [[gnu::noinline]]
#else
#define TARNUTIL_OWN_FRAME [[gnu::noipa]]
#endif

namespace {

constexpr int kMaxFrames = 64;
constexpr std::size_t kStrerrorSize = 256;

enum TraceStatus {
    kCaptured = 0,
    kNoFrames = 1,
    kNoSymbols = 2,
    kStandardException = 10,
    kOtherException = 11,
};

std::string traceLine(const char* symbol) {
    const auto parsed = tarnutil::parseTraceLine(symbol);
    return parsed ? tarnutil::formatTraceLine(*parsed) : symbol;
}

// One line for each of `count` symbols; a null among them ends the walk.
std::vector<std::string> traceLines(char* const* symbols, int count) {
    std::vector<std::string> lines;
    lines.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count && symbols[i] != nullptr; ++i) {
        lines.push_back(traceLine(symbols[i]));
    }
    return lines;
}

// Replaces `trace` by the stack of the calling thread, this function's own frame first, then
// those of the constructors. A trace that cannot be had is empty.
TARNUTIL_OWN_FRAME int traceStack(std::vector<std::string>& trace) noexcept {
    std::array<void*, kMaxFrames> frames{};
    const int count = backtrace(frames.data(), kMaxFrames);
    if (count < 1) {
        trace.clear();
        return kNoFrames;
    }
    const std::unique_ptr<char*, tarnutil::Free> symbols(backtrace_symbols(frames.data(), count));
    if (symbols == nullptr) {
        trace.clear();
        return kNoSymbols;
    }
    try {
        traceLines(symbols.get(), count).swap(trace);
        return kCaptured;
    } catch (const std::exception&) {
        trace.clear();
        return kStandardException;
    } catch (...) {
        trace.clear();
        return kOtherException;
    }
}

}  // namespace

TARNUTIL_OWN_FRAME TraceableException::TraceableException() { (void)traceStack(stackTrace); }
TraceableException::~TraceableException() noexcept = default;

std::string TraceableException::kind() const {
    const char* name = typeid(*this).name();
    if (*name == '*') ++name;  // marks a name that only one module knows
    const auto readable = tarnutil::demangled(name);
    return readable ? readable.get() : "generic";
}

namespace tarnutil {

TARNUTIL_OWN_FRAME Exception::Exception(const std::string& msg) : message(msg) {}
Exception::~Exception() noexcept = default;

const char* Exception::what() const noexcept { return message.c_str(); }

std::string Exception::getStrerror(int errnum) {
    const auto buf = std::make_unique<char[]>(kStrerrorSize);
    const char* text = check_error(strerror_r(errnum, buf.get(), kStrerrorSize), buf.get(), errnum);
    return text != nullptr ? text : "strerror_r returned NULL";
}

// errno is read twice on purpose: what the message says was true when the failure was described,
// the number is what is left after that.
TARNUTIL_OWN_FRAME ErrnoException::ErrnoException(const std::string& msg, int errnum)
    : Exception(createMsg(msg, errnum == -1 ? errno : errnum)),
      errorNumber(errnum == -1 ? errno : errnum) {}
ErrnoException::~ErrnoException() noexcept = default;

std::string ErrnoException::createMsg(const std::string& msg, int errnum) {
    const std::string number = std::to_string(errnum);
    const std::string text = getStrerror(errnum);
    std::string composed;
    composed.reserve(msg.size() + number.size() + text.size() + 10);
    composed.append(msg).append(": errno ").append(number).append(": ").append(text);
    return composed;
}

IOException::~IOException() noexcept = default;

}  // namespace tarnutil

char* check_error(int result, char* buf, int errnum) {
    if (result != 0) std::sprintf(buf, "unknown error: %d", errnum);
    return buf;
}

char* check_error(char* result, char*, int) { return result; }
