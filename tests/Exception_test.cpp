// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Exception.h>

#include <cxxabi.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <locale>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <tarnutil/Pipe.h>
#include <tarnutil/ProcessExecutor.h>
#include <tarnutil/TmpFile.h>

#include "fault.h"
#include "leaks.h"
#include "record.h"
#include "thrown.h"

using namespace tarnutil;
using namespace tarnutil_test;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

static_assert(sizeof(IOException) == sizeof(Exception));
static_assert(std::is_convertible_v<std::string, Exception>);
static_assert(std::is_convertible_v<std::string, ErrnoException>);
static_assert(std::is_convertible_v<std::string, IOException>);

// What stands in for the platform's symbol lines, its demangler and its texts while a test has set
// it.
std::function<char**()> crafted_symbols;
std::function<char*()> crafted_demangling;
std::function<char*(int errnum, char* buf, std::size_t size)> crafted_text;

// The block that backtrace_symbols would return: pointers, a null among them for each null line,
// and the text behind them.
char** symbolBlock(const std::vector<const char*>& lines) {
    std::size_t size = lines.size() * sizeof(char*);
    for (const char* line : lines) size += line != nullptr ? std::strlen(line) + 1 : 0;
    char** const block = static_cast<char**>(std::malloc(size));
    char* text = reinterpret_cast<char*>(block + lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        block[i] = lines[i] != nullptr ? std::strcpy(text, lines[i]) : nullptr;
        if (lines[i] != nullptr) text += std::strlen(lines[i]) + 1;
    }
    return block;
}

class StackTraceTest : public testing::Test {
protected:
    ~StackTraceTest() override {
        crafted_symbols = nullptr;
        crafted_demangling = nullptr;
    }
};

// The trace of an exception for whose innermost frames the platform prints `lines`.
std::vector<std::string> traceOf(std::vector<const char*> lines) {
    const Fault frames(Call::backtrace, static_cast<int>(lines.size()));
    crafted_symbols = [&] { return symbolBlock(lines); };
    const TraceableException e;
    crafted_symbols = nullptr;
    return e.getStackTrace();
}

}  // namespace

extern "C" char** crafted_backtrace_symbols(void* const* frames,
                                            int count) __asm__("backtrace_symbols");
extern "C" char** crafted_backtrace_symbols(void* const* frames, int count) {
    if (crafted_symbols) return crafted_symbols();
    return reinterpret_cast<char** (*)(void* const*, int)>(dlsym(RTLD_NEXT, "backtrace_symbols"))(
        frames, count);
}

extern "C" char* crafted_cxa_demangle(const char* name, char* out, std::size_t* size,
                                      int* status) __asm__("__cxa_demangle");
extern "C" char* crafted_cxa_demangle(const char* name, char* out, std::size_t* size, int* status) {
    if (crafted_demangling) return crafted_demangling();
    return reinterpret_cast<decltype(&abi::__cxa_demangle)>(dlsym(RTLD_NEXT, "__cxa_demangle"))(
        name, out, size, status);
}

extern "C" char* crafted_strerror_r(int errnum, char* buf, std::size_t size) __asm__("strerror_r");
extern "C" char* crafted_strerror_r(int errnum, char* buf, std::size_t size) {
    if (crafted_text) return crafted_text(errnum, buf, size);
    return reinterpret_cast<char* (*)(int, char*, std::size_t)>(dlsym(RTLD_NEXT, "strerror_r"))(
        errnum, buf, size);
}

struct LineCase {
    const char* says;
    const char* symbol;
    const char* line;
};

// clang-format off
const LineCase kLineCases[] = {
    // says                                             platform's line                            line of the trace
    {"a mangled name is demangled",                     "./server(_ZN1a1bEv+0x1d) [0x55d]",        "./server(a::b()+0x1d)"},
    {"a frame without a function keeps its offset",     "/lib/libc.so.6(+0x2b) [0x7f]",            "/lib/libc.so.6(+0x2b)"},
    {"the plus is written without an offset too",       "./server() [0x55d]",                      "./server(+)"},
    {"so it is behind a function without an offset",    "./server(main) [0x55d]",                  "./server(main+)"},
    {"an unmangled function stays as it is",            "./server(main+0x1d) [0x55d]",             "./server(main+0x1d)"},
    {"a line without parentheses is kept",              "[0x55d0c0de]",                            "[0x55d0c0de]"},
    {"a line that never closes is kept",                "./server(main+0x1d [0x55d]",              "./server(main+0x1d [0x55d]"},
    {"a line that ends in its function is kept",        "./server(main",                           "./server(main"},
    {"a line that ends at the parenthesis is kept",     "./server(",                               "./server("},
    {"blanks and tabs in front are dropped",            " \t ./server(main+0x1d) [0x55d]",         "./server(main+0x1d)"},
    {"a raw line keeps its blanks",                     " \t ./server",                            " \t ./server"},
    {"a line of blanks and tabs is kept",               " \t ",                                    " \t "},
    {"other white space belongs to the module",         "\n./server(main+0x1d)",                   "\n./server(main+0x1d)"},
    {"an empty line is kept",                           "",                                        ""},
    {"an empty module is a module",                     "(main+0x1)",                              "(main+0x1)"},
    {"the offset ends at the first parenthesis",        "m(fun+0x1)+0x2)",                         "m(fun+0x1)"},
    {"a second plus belongs to the offset",             "m(fun+0x1+2)",                            "m(fun+0x1+2)"},
    {"a second opening belongs to the function",        "m((fun+0x1)",                             "m((fun+0x1)"},
    {"a plus before the parenthesis is the module's",   "m+(fun+0x1)",                             "m+(fun+0x1)"},
    {"the offset may be empty",                         "m(fun+)",                                 "m(fun+)"},
    {"and what follows is dropped then too",            "m(fun+) and more",                        "m(fun+)"},
    {"no other character ends a function",              "m(fun#one+0x1)",                          "m(fun#one+0x1)"},
    {"no other character is skipped in front",          "#m(fun+0x1)",                             "#m(fun+0x1)"},
    {"what follows is dropped",                         "m(fun+0x1) and more (of it)",             "m(fun+0x1)"},
    {"one letter reads as the type it is mangled to",   "m(f+0x1)",                                "m(float+0x1)"},
};
// clang-format on

class TraceLineTest : public StackTraceTest, public testing::WithParamInterface<LineCase> {};
INSTANTIATE_TEST_SUITE_P(StackTraceTest, TraceLineTest, testing::ValuesIn(kLineCases));

TEST_P(TraceLineTest, LinesAreTakenApartAndPutTogether) {
    EXPECT_THAT(traceOf({GetParam().symbol}), testing::ElementsAre(GetParam().line))
        << GetParam().says;
}

TEST_F(StackTraceTest, LinesKeepThePlatformsOrder) {
    EXPECT_THAT(traceOf({"a(one+1)", "raw", "c(two+2)"}),
                testing::ElementsAre("a(one+1)", "raw", "c(two+2)"));
}

TEST_F(StackTraceTest, NullLineEndsTheWalk) {
    EXPECT_THAT(traceOf({"a(one+1)", nullptr, "c(two+2)"}), testing::ElementsAre("a(one+1)"));
}

TEST_F(StackTraceTest, AsManyLinesAreTakenAsThereAreFrames) {
    const Fault frames(Call::backtrace, 1);
    crafted_symbols = [] { return symbolBlock({"a(one+1)", "b(two+2)"}); };
    EXPECT_THAT(TraceableException().getStackTrace(), testing::ElementsAre("a(one+1)"));
}

TEST_F(StackTraceTest, SymbolsAreLookedUpOnceAndEveryFrameIsDemangledAnew) {
    const std::vector<const char*> lines(3, "m(_ZN1a1bEv+0x1d)");
    int lookUps = 0;
    int demanglings = 0;
    crafted_symbols = [&] {
        ++lookUps;
        return symbolBlock(lines);
    };
    crafted_demangling = [&] {
        ++demanglings;
        return nullptr;
    };
    const Fault frames(Call::backtrace, 3, 1, Fault::fromThenOn);
    const Exception first("m");
    const Exception second("m");
    EXPECT_EQ(lookUps, 2) << "one for all frames of an exception";
    EXPECT_EQ(demanglings, 6) << "one for each frame, nothing is kept";
}

TEST_F(StackTraceTest, NameThatCannotBeDemangledStays) {
    crafted_demangling = [] { return nullptr; };
    EXPECT_THAT(traceOf({"m(_ZN1a1bEv+0x1d)"}), testing::ElementsAre("m(_ZN1a1bEv+0x1d)"));
}

TEST_F(StackTraceTest, NoFramesMakeAnEmptyTrace) {
    for (const int count : {0, -1}) {
        const Fault fault(Call::backtrace, count);
        EXPECT_THAT(Exception("m").getStackTrace(), IsEmpty()) << count;
    }
}

TEST_F(StackTraceTest, NoSymbolsMakeAnEmptyTrace) {
    crafted_symbols = [] { return nullptr; };
    EXPECT_THAT(Exception("m").getStackTrace(), IsEmpty());
}

TEST_F(StackTraceTest, FailedAllocationMakesAnEmptyTrace) {
    unsigned failures = 0;
    for (unsigned long nth = 1; failures + 1 == nth; ++nth) {
        const std::size_t before = liveBytes();
        {
            const Fault fault(Call::operator_new, 0, nth);
            const TraceableException e;
            if (fault.hasFired()) ++failures;
            EXPECT_EQ(e.getStackTrace().empty(), fault.hasFired()) << "allocation " << nth;
        }
        EXPECT_EQ(liveBytes(), before) << "allocation " << nth;
    }
    EXPECT_GT(failures, 2u);
}

TEST_F(StackTraceTest, ExceptionOfNoStandardClassMakesAnEmptyTrace) {
    crafted_demangling = []() -> char* { throw 1; };
    EXPECT_THAT(TraceableException().getStackTrace(), IsEmpty());
    EXPECT_FALSE(growsEachTime([] { const TraceableException e; })) << "the symbols are released";
}

TEST_F(StackTraceTest, LineTakesThreeAllocations) {
    const std::vector<const char*> lines = {
        "/usr/lib/server(a_function_whose_name_is_longer_than_any_short_string+0x123456789ABC)"};
    crafted_symbols = [&] { return symbolBlock(lines); };
    const Fault frames(Call::backtrace, 1);
    const unsigned long before = Fault::calls(Call::operator_new);
    const TraceableException e;
    EXPECT_EQ(Fault::calls(Call::operator_new) - before, 3U)
        << "the list, the function's name and the line, which is made in its full length";
    EXPECT_THAT(e.getStackTrace(), testing::ElementsAreArray(lines));
}

TEST_F(StackTraceTest, IsCapturedBeforeTheMessageIsCopied) {
    const std::vector<const char*> lines = {"server(one+0x1)"};
    crafted_symbols = [&] { return symbolBlock(lines); };
    const Fault frames(Call::backtrace, 1, 1, Fault::fromThenOn);
    const unsigned long before = Fault::calls(Call::operator_new);
    const TraceableException trace;
    const unsigned long forTheTrace = Fault::calls(Call::operator_new) - before;
    ASSERT_GT(forTheTrace, 0u);

    const std::string message(100, 'x');
    const unsigned long captures = Fault::calls(Call::backtrace);
    const Fault noMemory(Call::operator_new, 0, forTheTrace + 1);
    EXPECT_THROW(const Exception e(message), std::bad_alloc);
    EXPECT_EQ(Fault::calls(Call::backtrace), captures + 1);
}

// The trace without the frames of this program's and a sanitizer's own backtrace, which stand in
// front of it in sanitized builds only.
std::vector<std::string> fromTheLibraryOn(std::vector<std::string> trace) {
    const auto inLibrary = [](const std::string& line) {
        return line.find("libtarnutil.so.1(") != std::string::npos;
    };
    trace.erase(trace.begin(), std::find_if(trace.begin(), trace.end(), inLibrary));
    return trace;
}

TEST_F(StackTraceTest, HoldsEveryFrameInnermostFirst) {
    const ErrnoException e("m", 2);
    const std::vector<std::string> trace = fromTheLibraryOn(e.getStackTrace());
    ASSERT_THAT(trace, SizeIs(testing::Gt(5u)));
    EXPECT_THAT(trace[0], HasSubstr("libtarnutil.so.1(+0x"));  // the capture has no exported name
    EXPECT_THAT(trace[1],
                HasSubstr("libtarnutil.so.1(TraceableException::TraceableException()+0x"));
    EXPECT_THAT(trace[2], HasSubstr("libtarnutil.so.1(tarnutil::Exception::Exception("));
    EXPECT_THAT(trace[3], HasSubstr("libtarnutil.so.1(tarnutil::ErrnoException::ErrnoException("));
    EXPECT_THAT(trace[4], HasSubstr("Exception_test("));
    EXPECT_THAT(trace.back(), HasSubstr("Exception_test(_start+0x"));
}

[[gnu::noinline]] std::size_t traceSizeBelow(int depth) {
    if (depth == 0) return TraceableException().getStackTrace().size();
    const std::size_t size = traceSizeBelow(depth - 1);
    __asm__ volatile("" ::: "memory");  // no tail call: each level keeps its frame
    return size;
}

TEST_F(StackTraceTest, IsCutToSixtyFourFrames) { EXPECT_EQ(traceSizeBelow(100), 64u); }

TEST_F(StackTraceTest, CopyKeepsTheTraceOfItsOriginal) {
    const ErrnoException original("m", 5);
    const ErrnoException copy(original);
    EXPECT_EQ(copy.getStackTrace(), original.getStackTrace());
    EXPECT_STREQ(copy.what(), original.what());
    EXPECT_EQ(copy.getErrorNumber(), 5);
}

TEST_F(StackTraceTest, CopySharesNothingWithItsOriginal) {
    const std::string message(100, 'x');
    const Exception original(message);
    const Exception copy(original);
    EXPECT_NE(copy.what(), original.what());
    ASSERT_THAT(original.getStackTrace(), Not(IsEmpty()));
    ASSERT_THAT(copy.getStackTrace(), SizeIs(original.getStackTrace().size()));
    for (std::size_t i = 0; i < copy.getStackTrace().size(); ++i) {
        EXPECT_NE(copy.getStackTrace()[i].data(), original.getStackTrace()[i].data()) << i;
    }
}

class Derived : public IOException {
public:
    Derived() : IOException("m") {}
};

TEST_F(StackTraceTest, KindIsTheClassOfTheObject) {
    EXPECT_EQ(TraceableException().kind(), "TraceableException");
    EXPECT_EQ(Exception("m").kind(), "tarnutil::Exception");
    EXPECT_EQ(ErrnoException("m").kind(), "tarnutil::ErrnoException");
    EXPECT_EQ(IOException("m").kind(), "tarnutil::IOException");
    EXPECT_EQ(Derived().kind(), "Derived");
    const IOException io("m");
    const TraceableException& base = io;
    EXPECT_EQ(base.kind(), "tarnutil::IOException");
}

namespace {
class Unnamed : public Exception {
public:
    Unnamed() : Exception("m") {}
};
}  // namespace

TEST_F(StackTraceTest, KindOfAClassThatOneFileKnowsIsReadableToo) {
    ASSERT_EQ(Unnamed().kind(), "(anonymous namespace)::Unnamed");
}

TEST_F(StackTraceTest, KindIsGenericIfTheNameCannotBeDemangled) {
    const IOException e("m");
    crafted_demangling = [] { return nullptr; };
    EXPECT_EQ(e.kind(), "generic");
}

TEST_F(StackTraceTest, KindReleasesWhatTheDemanglerMade) {
    const IOException e("m");
    EXPECT_FALSE(growsEachTime([&] { (void)e.kind(); }));
    EXPECT_FALSE(growsEachTime([&] {
        const Fault noMemory(Call::operator_new);
        EXPECT_THROW((void)e.kind(), std::bad_alloc);
    }));
}

TEST(ExceptionTest, WhatIsTheMessage) {
    EXPECT_STREQ(Exception("Could not do it").what(), "Could not do it");
    EXPECT_STREQ(IOException("Could not read").what(), "Could not read");
    EXPECT_STREQ(Exception("").what(), "");
}

TEST(ExceptionTest, EveryClassIsCaughtByItsBases) {
    EXPECT_THROW(throw TraceableException(), std::exception);
    EXPECT_THROW(throw Exception("m"), TraceableException);
    EXPECT_THROW(throw ErrnoException("m"), TraceableException);
    EXPECT_THROW(throw IOException("m"), TraceableException);
    EXPECT_THROW(throw ErrnoException("m"), Exception);
    EXPECT_THROW(throw IOException("m"), Exception);
    EXPECT_STREQ(static_cast<const std::exception&>(TraceableException()).what(), "std::exception");
}

struct ErrnoCase {
    const char* says;
    const char* msg;
    int current;  // errno when the exception is built
    int errnum;
    int number;  // what the exception has to hold
    const char* message;
};

// clang-format off
const ErrnoCase kErrnoCases[] = {
    // says                          msg                current  errnum   number   message
    {"-1 stands for errno",          "X",               ENOENT,  -1,      2,       "X: errno 2: No such file or directory"},
    {"0 is a number",                "X",               ENOENT,  0,       0,       "X: errno 0: Success"},
    {"a number of its own",          "Could not do it", ENOENT,  24,      24,      "Could not do it: errno 24: Too many open files"},
    {"a negative number",            "X",               ENOENT,  -5,      -5,      "X: errno -5: Unknown error -5"},
    {"the smallest number",          "X",               ENOENT,  INT_MIN, INT_MIN, "X: errno -2147483648: Unknown error -2147483648"},
    {"a number that nobody knows",   "X",               ENOENT,  12345,   12345,   "X: errno 12345: Unknown error 12345"},
    {"an empty message",             "",                ENOENT,  1,       1,       ": errno 1: Operation not permitted"},
};
// clang-format on

class ErrnoExceptionTest : public testing::TestWithParam<ErrnoCase> {};
INSTANTIATE_TEST_SUITE_P(All, ErrnoExceptionTest, testing::ValuesIn(kErrnoCases));

TEST_P(ErrnoExceptionTest, HoldsNumberAndMessage) {
    const ErrnoCase& row = GetParam();
    errno = row.current;
    const ErrnoException e(row.msg, row.errnum);
    EXPECT_STREQ(e.what(), row.message) << row.says;
    EXPECT_EQ(e.getErrorNumber(), row.number) << row.says;
}

TEST(ErrnoExceptionTest, DefaultNumberIsErrno) {
    errno = EACCES;
    const ErrnoException e("X");
    EXPECT_STREQ(e.what(), "X: errno 13: Permission denied");
    EXPECT_EQ(e.getErrorNumber(), EACCES);
}

TEST(ErrnoExceptionTest, NumberIsReadAgainAfterTheMessageWasBuilt) {
    crafted_symbols = [] {
        errno = EINTR;  // the base class captures its trace between the two readings
        return nullptr;
    };
    errno = EACCES;
    const ErrnoException e("X");
    crafted_symbols = nullptr;
    EXPECT_STREQ(e.what(), "X: errno 13: Permission denied");
    EXPECT_EQ(e.getErrorNumber(), EINTR);
}

struct ThrowerCase {
    Call call;  // that fails
    std::function<void()> run;
};

// Made before pipe() fails, for UndefinedBehaviorSanitizer calls it to see whether it can read an
// object of a class that is new to it.
Pipe prepared_pipe;

void substituteStdin() {
    Pipe pipe;
    pipe.open();
    pipe.substitute(STDIN_FILENO, Pipe::READ);
}

void afterStarting(const std::function<void(ProcessExecutor&)>& use) {
    ProcessExecutor child("/bin/true");
    const char* argv[] = {"true", nullptr};
    child.exec(argv);
    use(child);
}

const ThrowerCase kThrowerCases[] = {
    {Call::pipe, [] { prepared_pipe.open(); }},
    {Call::dup, substituteStdin},
    {Call::dup2, substituteStdin},
    {Call::fork, [] { afterStarting([](ProcessExecutor&) {}); }},
    {Call::waitpid, [] { afterStarting([](ProcessExecutor& child) { (void)child.wait(); }); }},
    {Call::kill, [] { afterStarting([](ProcessExecutor& child) { child.kill(SIGTERM); }); }},
    {Call::mkstemp, [] { TmpFile().create(/*directory=*/false); }},
    {Call::mkdtemp, [] { TmpFile().create(/*directory=*/true); }},
};

TEST(ErrnoExceptionTest, EveryThrowerLeavesTheNumberToTheSecondReading) {
    for (const ThrowerCase& row : kThrowerCases) {
        const Fault fault(row.call, EACCES);
        crafted_symbols = [] {
            errno = EINTR;
            return nullptr;
        };
        EXPECT_THAT(thrown(row.run), AllOf(StartsWith("tarnutil::ErrnoException(4): "),
                                           EndsWith(": errno 13: Permission denied")))
            << name(row.call);
        crafted_symbols = nullptr;
    }
}

TEST(ErrnoExceptionTest, CreateMsgHasItsTwoSeparators) {
    EXPECT_EQ(ErrnoException::createMsg("X", ENOENT), "X: errno 2: No such file or directory");
    EXPECT_EQ(ErrnoException::createMsg("", -5), ": errno -5: Unknown error -5");
    EXPECT_EQ(ErrnoException::createMsg("a: errno 1: b", 2),
              "a: errno 1: b: errno 2: No such file or directory");
}

// The German way to write a number.
class Grouping : public std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(ErrnoExceptionTest, CreateMsgDoesNotGroupDigits) {
    const std::locale grouping(std::locale(), new Grouping);
    const std::locale before = std::locale::global(grouping);
    const std::string message = ErrnoException::createMsg("X", 12345);
    std::locale::global(before);
    EXPECT_EQ(message, "X: errno 12345: Unknown error 12345");
}

TEST(ErrnoExceptionTest, CreateMsgTakesOneAllocationMoreThanTheText) {
    const std::string what(100, 'x');
    const unsigned long before = Fault::calls(Call::operator_new);
    (void)Exception::getStrerror(ENOENT);
    const unsigned long between = Fault::calls(Call::operator_new);
    (void)ErrnoException::createMsg(what, ENOENT);
    EXPECT_EQ(Fault::calls(Call::operator_new) - between, between - before + 1);
}

// Runs `build` with the first, the second, ... allocation failing; how many failed.
unsigned long failedAllocationsOf(const std::function<void()>& build) {
    for (unsigned long nth = 1;; ++nth) {
        const std::size_t before = liveBytes();
        bool threw = false;
        const Fault fault(Call::operator_new, 0, nth);
        try {
            build();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        EXPECT_EQ(threw, fault.hasFired()) << "allocation " << nth;
        EXPECT_EQ(liveBytes(), before) << "allocation " << nth;
        if (!fault.hasFired()) return nth - 1;
    }
}

TEST(ErrnoExceptionTest, EveryFailedAllocationPassesAndLeaksNothing) {
    const std::string what(100, 'x');
    const Fault noTrace(Call::backtrace, 0, 1, Fault::fromThenOn);  // which does without memory
    EXPECT_GT(failedAllocationsOf([&] { (void)ErrnoException::createMsg(what, EILSEQ); }), 2U);
    EXPECT_GT(failedAllocationsOf([&] { const ErrnoException e(what, EILSEQ); }), 3U);
}

// Builds `count` exceptions with `errnum`; how many came out right.
int builtRight(int errnum, int count) {
    const std::string number = std::to_string(errnum);
    const std::string message = "X: errno " + number + ": Unknown error " + number;
    int right = 0;
    for (int i = 0; i < count; ++i) {
        const ErrnoException e("X", errnum);
        if (e.what() == message && !e.getStackTrace().empty()) ++right;
    }
    return right;
}

TEST(ErrnoExceptionTest, MayBeBuiltOnManyThreadsAtOnce) {
    constexpr int kEach = 500;
    std::array<int, 4> right{};
    std::atomic<std::size_t> ready{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < right.size(); ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (ready < right.size()) std::this_thread::yield();
            right[i] = builtRight(10001 + static_cast<int>(i), kEach);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(right, testing::Each(kEach));
}

TEST(GetStrerrorTest, IsTheSystemsText) {
    EXPECT_EQ(Exception::getStrerror(EDEADLK), "Resource deadlock avoided");
    EXPECT_EQ(Exception::getStrerror(0), "Success");
    EXPECT_EQ(Exception::getStrerror(99999), "Unknown error 99999");
}

TEST(GetStrerrorTest, NullTextIsSaidSo) {
    crafted_text = [](int, char*, std::size_t) { return nullptr; };
    const std::string text = Exception::getStrerror(EIO);
    EXPECT_EQ(text, "strerror_r returned NULL");
    record("text", text);
    crafted_text = nullptr;
}

// Leaves a freed block of `size` bytes that are not zero for the next allocation.
void soil(std::size_t size) {
    char* const block = new char[size];
    std::memset(block, 'x', size);
    __asm__ volatile("" ::"r"(block) : "memory");  // or the compiler leaves all this out
    delete[] block;
}

TEST(GetStrerrorTest, SystemGetsAnEmptyBufferOfItsSize) {
    std::vector<char> given;
    int number = 0;
    crafted_text = [&](int errnum, char* buf, std::size_t size) {
        number = errnum;
        given.assign(buf, buf + size);
        return std::strcpy(buf, "text");
    };
    soil(256);
    EXPECT_EQ(Exception::getStrerror(EIO), "text");
    crafted_text = nullptr;
    EXPECT_EQ(number, EIO);
    EXPECT_EQ(given, std::vector<char>(256, '\0'));
}

TEST(GetStrerrorTest, FailedAllocationPassesAndLeaksNothing) {
    const std::size_t before = liveBytes();
    for (const unsigned long nth : {1UL, 2UL}) {  // the buffer, then the copy of the long text
        const Fault fault(Call::operator_new, 0, nth);
        EXPECT_THROW((void)Exception::getStrerror(EILSEQ), std::bad_alloc);
    }
    EXPECT_EQ(liveBytes(), before);
}

TEST(CheckErrorTest, PosixFormKeepsTheBufferUnlessItFailed) {
    char buf[64] = "text";
    EXPECT_EQ(check_error(0, buf, 7), buf);
    EXPECT_STREQ(buf, "text");
    EXPECT_EQ(check_error(EINVAL, buf, 7), buf);
    EXPECT_STREQ(buf, "unknown error: 7");
    record("text", buf);
    EXPECT_STREQ(check_error(-1, buf, -12), "unknown error: -12");
}

TEST(CheckErrorTest, TwentySevenBytesHoldEveryNumber) {
    std::array<char, 28> buf;
    buf.fill('#');
    EXPECT_STREQ(check_error(-1, buf.data(), INT_MIN), "unknown error: -2147483648");
    EXPECT_EQ(buf[26], '\0');
    EXPECT_EQ(buf[27], '#');
}

TEST(CheckErrorTest, GnuFormIsItsOwnResult) {
    char buf[] = "buffer";
    char text[] = "text";
    EXPECT_EQ(check_error(text, buf, 7), text);
    EXPECT_STREQ(buf, "buffer");
    EXPECT_EQ(check_error(static_cast<char*>(nullptr), buf, 7), nullptr);
}
