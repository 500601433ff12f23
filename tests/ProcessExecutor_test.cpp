// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/ProcessExecutor.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <tarnutil/Exception.h>

#include "cancelled.h"
#include "fault.h"
#include "leaks.h"
#include "sanitized.h"
#include "scratch_dir.h"
#include "thrown.h"
#include "trail.h"

using tarnutil::ErrnoException;
using tarnutil::Exception;
using tarnutil::Pipe;
using tarnutil::ProcessExecutor;
using namespace tarnutil_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

static_assert(std::has_virtual_destructor_v<ProcessExecutor>);
static_assert(!std::is_copy_constructible_v<ProcessExecutor> &&
              !std::is_copy_assignable_v<ProcessExecutor>);
static_assert(!std::is_convertible_v<std::string, ProcessExecutor>);
static_assert(std::is_nothrow_destructible_v<ProcessExecutor>);

const std::string kShell = "/bin/sh";
const std::string kCat = "/bin/cat";
const std::string kTrue = "/bin/true";

std::vector<std::string> shell(const std::string& script) { return {"sh", "-c", script}; }

int input(const ProcessExecutor& child) { return child.stdinPipe.getDescriptor(Pipe::WRITE); }
int output(const ProcessExecutor& child) { return child.stdoutPipe.getDescriptor(Pipe::READ); }
int errors(const ProcessExecutor& child) { return child.stderrPipe.getDescriptor(Pipe::READ); }

// Reads to the end of file.
std::string readAll(int fd) {
    std::string text;
    std::array<char, 65536> buffer;
    ssize_t size = 0;
    while ((size = read(fd, buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(size));
    }
    EXPECT_EQ(size, 0);
    return text;
}

// Reads to the end of a line.
std::string readLine(int fd) {
    std::string line;
    char c = 0;
    while (read(fd, &c, 1) == 1 && c != '\n') line += c;
    return line;
}

void writeAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t size = write(fd, text.data() + done, text.size() - done);
        ASSERT_GT(size, 0);
        done += static_cast<std::size_t>(size);
    }
}

// What a descriptor refers to, in the words of /proc.
std::string target(int fd) {
    std::array<char, 4096> text;
    const ssize_t size =
        readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), text.data(), text.size());
    return size < 0 ? "?" : std::string(text.data(), static_cast<std::size_t>(size));
}

// The descriptors that the helper program found open, and what each refers to.
std::map<int, std::string> inheritedBy(ProcessExecutor& lister) {
    lister.exec({"list_descriptors"});
    std::istringstream lines(readAll(output(lister)));
    std::map<int, std::string> found;
    int fd = -1;
    while (lines >> fd && lines.get() == ' ') std::getline(lines, found[fd]);
    EXPECT_EQ(lister.wait(), 0);
    return found;
}

// A stream of stdio that stands for another file, for as long as it lives.
class Redirected {
public:
    explicit Redirected(FILE*& which) : stream(which), kept(which) {
        stream = std::fopen("/dev/null", "r+");
    }
    ~Redirected() {
        (void)std::fclose(stream);
        stream = kept;
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

private:
    FILE*& stream;
    FILE* const kept;
};

// Every test leaves no descriptor and no child behind.
class ProcessExecutorTest : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    }

    std::set<int> added() const {
        std::set<int> now = openDescriptors();
        for (const int fd : before) now.erase(fd);
        return now;
    }

    // The lowest `count` descriptors that are free: what the next calls will be given.
    std::vector<int> nextFree(std::size_t count) const {
        const std::set<int> used = openDescriptors();
        std::vector<int> free;
        for (int fd = 0; free.size() < count; ++fd) {
            if (used.count(fd) == 0) free.push_back(fd);
        }
        return free;
    }

    const std::set<int> before = openDescriptors();
};

// ---- exec, wait and the streams ----

TEST_F(ProcessExecutorTest, FreshObjectHasNoChild) {
    ProcessExecutor child(kShell);
    const Trail trail({Call::waitpid, Call::kill});
    EXPECT_EQ(child.wait(), 0);
    child.kill(SIGKILL);
    EXPECT_THAT(trail.ofParent(), IsEmpty());
    EXPECT_THAT(added(), IsEmpty());
}

TEST_F(ProcessExecutorTest, ChildWritesAndExits) {
    ProcessExecutor child(kShell);
    child.exec(shell("printf x; printf y >&2; exit 3"));
    EXPECT_EQ(readAll(output(child)), "x");
    EXPECT_EQ(readAll(errors(child)), "y");
    EXPECT_EQ(child.wait(), 3);
    EXPECT_THAT(added(), IsEmpty());
}

TEST_F(ProcessExecutorTest, ArgumentVectorIsGivenAsItIs) {
    ProcessExecutor child(kShell);
    const char* argv[] = {"any name",  "-c",   "printf '%s|' \"$0\" \"$@\"", "zero", "",
                          "two words", nullptr};
    child.exec(argv);
    EXPECT_EQ(readAll(output(child)), "zero||two words|");
    EXPECT_EQ(child.wait(), 0);
    child.exec({"any name", "-c", "tr '\\0' '|' </proc/$$/cmdline"});
    EXPECT_EQ(readAll(output(child)), "any name|-c|tr '\\0' '|' </proc/$$/cmdline|");
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, ArgumentVectorIsOneAllocation) {
    for (const std::vector<std::string>& args : {shell("exit 0"), std::vector<std::string>{}}) {
        ProcessExecutor child(kShell);
        const unsigned long already = Fault::calls(Call::operator_new);
        child.exec(args);
        EXPECT_EQ(Fault::calls(Call::operator_new) - already, 1U) << args.size() << " arguments";
    }
}

TEST_F(ProcessExecutorTest, ArgumentVectorIsReleasedAlsoIfExecThrows) {
    const std::vector<std::string> args(100, "argument");
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    EXPECT_FALSE(growsEachTime([&] { EXPECT_THROW(child.exec(args), Exception); }));
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(child.wait(), 0);
}

// Other threads may hold locks of the allocator while the process forks.
TEST_F(ProcessExecutorTest, NeitherSideOfTheForkAllocates) {
    ProcessExecutor child(kTrue);
    const char* argv[] = {"true", nullptr};
    {
        const Fault noMemory(Call::operator_new, 0, 1, Fault::fromThenOn);  // in the child as well
        child.exec(argv);
        EXPECT_FALSE(noMemory.hasFired());
    }
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, ClosingTheInputGivesTheChildItsEnd) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    writeAll(input(child), "to and fro");
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(readAll(output(child)), "to and fro");
    EXPECT_EQ(readAll(errors(child)), "");
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, RunningChildLeavesTheParentThreeEnds) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    EXPECT_EQ(added(), (std::set<int>{input(child), output(child), errors(child)}));
    EXPECT_EQ(child.stdinPipe.getDescriptor(Pipe::READ), -1);
    EXPECT_EQ(child.stdoutPipe.getDescriptor(Pipe::WRITE), -1);
    EXPECT_EQ(child.stderrPipe.getDescriptor(Pipe::WRITE), -1);
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, MegabytesPassThroughAllThreePipesAtOnce) {
    std::string text;
    for (int i = 0; text.size() < (4U << 20); ++i) text += std::to_string(i) + '\n';
    ProcessExecutor child(kShell);
    child.exec(shell("exec tee /dev/stderr"));
    auto out = std::async(std::launch::async, readAll, output(child));
    auto err = std::async(std::launch::async, readAll, errors(child));
    writeAll(input(child), text);
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_TRUE(out.get() == text);
    EXPECT_TRUE(err.get() == text);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, SecondExecIsRefusedWhileAChildRuns) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    const std::set<int> held = added();
    EXPECT_EQ(thrown([&] { child.exec({"cat"}); }), "tarnutil::Exception: Process already running");
    EXPECT_EQ(added(), held);
    writeAll(input(child), "still there");
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(readAll(output(child)), "still there");
    EXPECT_EQ(child.wait(), 0);
    child.exec({"cat"});
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, AThousandChildrenOneAfterAnother) {
    ProcessExecutor child(kTrue);
    for (int i = 0; i < 1000; ++i) {
        child.exec({"true"});
        ASSERT_EQ(child.wait(), 0) << i;
        ASSERT_EQ(openDescriptors(), before) << i;
    }
}

struct EndCase {
    const char* says;
    const char* script;
    int status;
};

const EndCase kEndCases[] = {
    // clang-format off
    // says                                     script                status
    {"an exit code is the status",              "exit 3",             3},
    {"exit codes reach 255",                    "exit 255",           255},
    {"any signal is -127",                      "kill -SEGV $$",      -127},
    {"the signal number is not kept",           "kill -KILL $$",      -127},
    {"a shell's code for a signal is a code",   "exit 137",           137},
    // clang-format on
};

TEST_F(ProcessExecutorTest, StatusSaysHowTheChildEnded) {
    ProcessExecutor child(kShell);
    for (const EndCase& row : kEndCases) {
        SCOPED_TRACE(row.says);
        child.exec(shell(row.script));
        EXPECT_EQ(child.wait(), row.status);
        EXPECT_EQ(child.wait(), row.status) << "without a child, the last status again";
    }
}

TEST_F(ProcessExecutorTest, KilledChildHasStillToBeWaitedFor) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    child.kill(SIGKILL);
    EXPECT_EQ(thrown([&] { child.exec({"cat"}); }), "tarnutil::Exception: Process already running");
    EXPECT_EQ(child.wait(), -127);
    child.exec({"cat"});
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, SignalZeroOnlyAsks) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    child.kill(0);
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(child.wait(), 0);
}

// ---- Programs that cannot be executed ----

TEST_F(ProcessExecutorTest, ProgramsThatCannotBeExecutedEndWithTheirErrno) {
    const ScratchDir dir;
    const std::string text = dir.write("text", "no program");
    const std::string garbage = dir.write("garbage", std::string("\x7f nothing to run", 16));
    ASSERT_EQ(chmod(garbage.c_str(), 0755), 0);
    struct Row {
        const char* says;
        std::string path;
        int status;
    };
    const Row rows[] = {
        {"missing", dir / "missing", 254},  {"not executable", text, 243},
        {"a directory", dir.path(), 243},   {"not a program", garbage, 248},
        {"below a file", text + "/x", 236}, {"PATH is not searched", "sh", 254},
        {"no path at all", "", 254},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.says);
        ProcessExecutor child(row.path);
        child.exec({"program"});
        EXPECT_EQ(readAll(output(child)), "");
        EXPECT_EQ(readAll(errors(child)), "");
        EXPECT_EQ(child.wait(), row.status);
    }
}

TEST_F(ProcessExecutorTest, EveryErrnoOfExecvMakesItsStatus) {
    for (const int number : {EPERM, E2BIG, ENOMEM, ETXTBSY, ELOOP}) {
        SCOPED_TRACE(number);
        const Fault fault(Call::execv, number);
        ProcessExecutor child(kTrue);
        child.exec({"true"});
        EXPECT_EQ(child.wait(), 256 - number);
    }
}

// Set while children that leave through exit() are to say so on their standard output.
bool sayGoodbye = false;

void registerGoodbye() {
    static const pid_t parent = getpid();
    static const int registered = std::atexit([] {
        if (sayGoodbye && getpid() != parent) (void)!write(STDOUT_FILENO, "goodbye", 7);
    });
    ASSERT_EQ(registered, 0);
}

TEST_F(ProcessExecutorTest, ExitHandlersRunInAChildThatCannotBeExecuted) {
    registerGoodbye();
    ProcessExecutor child("/no/such/program");
    sayGoodbye = true;
    child.exec({"program"});
    sayGoodbye = false;
    EXPECT_EQ(readAll(output(child)), "goodbye");
    EXPECT_EQ(child.wait(), 254);
}

TEST_F(ProcessExecutorTest, UnflushedTextIsWrittenAgainByAChildThatCannotBeExecuted) {
    const ScratchDir dir;
    const std::string path = dir / "text";
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(std::fopen(path.c_str(), "w"), &std::fclose);
    ASSERT_NE(stream, nullptr);
    (void)std::fputs("twice ", stream.get());
    {
        ProcessExecutor child("/no/such/program");
        child.exec({"program"});
        EXPECT_EQ(child.wait(), 254);
    }
    ASSERT_EQ(std::fflush(stream.get()), 0);
    EXPECT_EQ(readFile(path), "twice twice ");
}

// ---- Descriptors ----

TEST_F(ProcessExecutorTest, ChildInheritsTheSavedStreamsButNoEnds) {
    ProcessExecutor lister(LIST_DESCRIPTORS);
    // Six ends, then the three saved duplicates of the standard streams.
    const std::vector<int> next = nextFree(9);
    const std::map<int, std::string> found = inheritedBy(lister);

    std::set<int> expected = before;
    expected.insert({0, 1, 2, next[6], next[7], next[8]});
    std::set<int> inherited;
    for (const auto& entry : found) inherited.insert(entry.first);
    EXPECT_EQ(inherited, expected);
    for (int stream = 0; stream < 3; ++stream) {
        EXPECT_THAT(found.at(stream), testing::StartsWith("pipe:")) << stream;
        EXPECT_EQ(found.at(next[6 + static_cast<std::size_t>(stream)]), target(stream)) << stream;
    }
    EXPECT_NE(found.at(1), found.at(2));
}

TEST_F(ProcessExecutorTest, ChildInheritsTheCallersDescriptorsUnlessTheyCloseOnExec) {
    const int kept = open("/dev/null", O_RDONLY);
    const int withheld = open("/dev/null", O_RDONLY | O_CLOEXEC);
    {
        ProcessExecutor lister(LIST_DESCRIPTORS);
        const std::map<int, std::string> found = inheritedBy(lister);
        EXPECT_EQ(found.count(kept), 1U);
        EXPECT_EQ(found.count(withheld), 0U);
    }
    close(kept);
    close(withheld);
}

TEST_F(ProcessExecutorTest, LaterChildHoldsTheEndsOfAnEarlierOneOpen) {
    ProcessExecutor first(kCat);
    first.exec({"cat"});
    {
        ProcessExecutor lister(LIST_DESCRIPTORS);
        const std::map<int, std::string> found = inheritedBy(lister);
        for (const int end : {input(first), output(first), errors(first)}) {
            ASSERT_EQ(found.count(end), 1U);
            EXPECT_EQ(found.at(end), target(end));
        }
    }
    first.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(first.wait(), 0);
}

TEST_F(ProcessExecutorTest, TwoChildrenRunAtOnce) {
    ProcessExecutor first(kCat);
    ProcessExecutor second(kCat);
    first.exec({"cat"});
    second.exec({"cat"});
    writeAll(input(first), "one\n");
    writeAll(input(second), "two\n");
    EXPECT_EQ(readLine(output(second)), "two");
    EXPECT_EQ(readLine(output(first)), "one");
    first.kill(SIGKILL);
    EXPECT_EQ(first.wait(), -127);
    second.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(second.wait(), 0);
}

// ---- The order of calls ----

std::string call(const std::string& name, int a) { return name + "(" + std::to_string(a) + ")"; }
std::string call(const std::string& name, int a, int b) {
    return name + "(" + std::to_string(a) + ", " + std::to_string(b) + ")";
}

TEST_F(ProcessExecutorTest, CallsComeInTheirOrder) {
    const std::vector<int> in = nextFree(9);  // read and write ends in turn, then what is saved
    ProcessExecutor child(kCat);
    const Trail trail(
        {Call::pipe, Call::fork, Call::dup, Call::dup2, Call::close, Call::execv, Call::waitpid});
    child.exec({"cat"});
    EXPECT_THAT(trail.ofParent(),
                ElementsAre("pipe()", "pipe()", "pipe()", "fork()", call("close", in[0]),
                            call("close", in[3]), call("close", in[5])));
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(readAll(output(child)), "");
    EXPECT_THAT(
        trail.ofChildren(),
        ElementsAre(call("dup", 0), call("dup2", in[0], 0), call("dup", 1), call("dup2", in[3], 1),
                    call("dup", 2), call("dup2", in[5], 2), call("close", in[1]),
                    call("close", in[0]), call("close", in[3]), call("close", in[2]),
                    call("close", in[5]), call("close", in[4]), "execv()"));
}

TEST_F(ProcessExecutorTest, ChildTakesOverWhatTheStreamsOfStdioStandFor) {
    const std::vector<int> next = nextFree(9);  // three streams, then read and write ends in turn
    std::vector<std::string> steps;
    {
        const Redirected in(stdin);
        const Redirected out(stdout);
        const Redirected err(stderr);
        ProcessExecutor child(kTrue);
        const Trail trail({Call::dup, Call::dup2});
        child.exec({"true"});
        (void)child.wait();
        steps = trail.ofChildren();
    }
    EXPECT_THAT(steps, ElementsAre(call("dup", next[0]), call("dup2", next[3], next[0]),
                                   call("dup", next[1]), call("dup2", next[6], next[1]),
                                   call("dup", next[2]), call("dup2", next[8], next[2])));
}

TEST_F(ProcessExecutorTest, WaitClosesBothEndsOfEachPipe) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    for (Pipe* const pipe : {&child.stdinPipe, &child.stdoutPipe, &child.stderrPipe}) {
        pipe->close(Pipe::READ | Pipe::WRITE);
        pipe->open();
    }
    EXPECT_EQ(child.wait(), 0);
    EXPECT_THAT(added(), IsEmpty());
}

TEST_F(ProcessExecutorTest, WaitReapsBeforeItClosesThePipes) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    const int in = input(child);
    const int out = output(child);
    const int err = errors(child);
    child.kill(SIGKILL);
    const Trail trail({Call::waitpid, Call::close});
    EXPECT_EQ(child.wait(), -127);
    const std::vector<std::string> steps = trail.ofParent();
    ASSERT_EQ(steps.size(), 4U);
    EXPECT_THAT(steps[0], testing::StartsWith("waitpid("));
    EXPECT_THAT(std::vector<std::string>(steps.begin() + 1, steps.end()),
                ElementsAre(call("close", in), call("close", out), call("close", err)));
}

// ---- Failing calls ----

TEST_F(ProcessExecutorTest, FailedOpenLeavesEarlierPipesOpen) {
    ProcessExecutor child(kTrue);
    for (unsigned long nth = 1; nth <= 3; ++nth) {
        SCOPED_TRACE(nth);
        {
            const Fault fault(Call::pipe, EMFILE, nth);
            const Trail trail({Call::fork, Call::close});
            EXPECT_EQ(thrown([&] { child.exec({"true"}); }),
                      errnoThrown("Failed creating new pipe", EMFILE));
            EXPECT_THAT(trail.ofParent(), IsEmpty());
        }
        EXPECT_EQ(child.stdinPipe.getDescriptor(Pipe::READ) != -1, nth > 1);
        EXPECT_EQ(child.stdoutPipe.getDescriptor(Pipe::READ) != -1, nth > 2);
        EXPECT_EQ(child.stderrPipe.getDescriptor(Pipe::READ), -1);
        EXPECT_EQ(added().size(), 2 * (nth - 1));
        EXPECT_EQ(child.wait(), 0) << "there is no child";
        if (nth > 1) {
            EXPECT_EQ(thrown([&] { child.exec({"true"}); }), "tarnutil::Exception: Already opened");
        }
        child.stdinPipe.close(3);
        child.stdoutPipe.close(3);
    }
    child.exec({"true"});
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, FailedForkClosesAllPipesInOrder) {
    const std::vector<int> in = nextFree(6);
    ProcessExecutor child(kTrue);
    {
        const Fault fault(Call::fork, EAGAIN);
        const Trail trail({Call::close});
        EXPECT_EQ(thrown([&] { child.exec({"true"}); }),
                  errnoThrown("Error creating new process", EAGAIN));
        EXPECT_THAT(trail.ofParent(),
                    ElementsAre(call("close", in[1]), call("close", in[0]), call("close", in[3]),
                                call("close", in[2]), call("close", in[5]), call("close", in[4])));
    }
    EXPECT_THAT(added(), IsEmpty());
    EXPECT_EQ(child.wait(), 0) << "there is no child";
    child.kill(SIGKILL);
    child.exec({"true"});
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, FailedForkReportsTheErrnoThatItsClosesLeave) {
    ProcessExecutor child(kTrue);
    {
        const Fault forking(Call::fork, EAGAIN);
        const Fault closing(Call::close, EIO, 6);
        EXPECT_EQ(thrown([&] { child.exec({"true"}); }),
                  errnoThrown("Error creating new process", EIO));
    }
    const std::set<int> left = added();
    ASSERT_EQ(left.size(), 1U) << "the end whose close failed";
    close(*left.begin());
}

TEST_F(ProcessExecutorTest, FailedWaitingLeavesChildAndPipes) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    const std::set<int> held = added();
    {
        const Fault fault(Call::waitpid, ECHILD);
        EXPECT_EQ(thrown([&] { child.wait(); }),
                  errnoThrown("Error waiting for child process", ECHILD));
    }
    EXPECT_EQ(added(), held);
    writeAll(input(child), "unharmed");
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(readAll(output(child)), "unharmed");
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(ProcessExecutorTest, FailedSignalIsReported) {
    ProcessExecutor child(kCat);
    child.exec({"cat"});
    {
        const Fault fault(Call::kill, EPERM);
        EXPECT_EQ(thrown([&] { child.kill(SIGTERM); }),
                  errnoThrown("Error sending a signal to child process", EPERM));
    }
    EXPECT_EQ(thrown([&] { child.kill(10000); }),
              errnoThrown("Error sending a signal to child process", EINVAL));
    child.stdinPipe.close(Pipe::WRITE);
    EXPECT_EQ(child.wait(), 0);
}

// Handles a signal for as long as it lives, without restarting what the signal interrupts.
class Handled {
public:
    explicit Handled(int signal) : number(signal) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        EXPECT_EQ(sigaction(number, &action, &previous), 0);
    }
    ~Handled() { sigaction(number, &previous, nullptr); }
    Handled(const Handled&) = delete;
    Handled& operator=(const Handled&) = delete;

private:
    int number;
    struct sigaction previous {};
};

TEST_F(ProcessExecutorTest, SignalHandlerInterruptsWaiting) {
    const Handled handled(SIGUSR1);
    ProcessExecutor child(kShell);
    // Signals until it is told to stop, so that some arrive while the parent waits.
    child.exec(shell("trap 'exit 5' TERM; while kill -USR1 $PPID; do :; done"));
    const std::set<int> held = added();
    EXPECT_EQ(thrown([&] { child.wait(); }), errnoThrown("Error waiting for child process", EINTR));
    EXPECT_EQ(added(), held);
    child.kill(SIGTERM);
    int status = 0;
    for (;;) {
        try {
            status = child.wait();
            break;
        } catch (const ErrnoException& e) {
            ASSERT_EQ(e.getErrorNumber(), EINTR);
        }
    }
    EXPECT_EQ(status, 5);
}

// ---- Destruction ----

TEST_F(ProcessExecutorTest, DestructionTerminatesAndReapsTheChild) {
    const ScratchDir dir;
    const std::string path = dir / "ended";
    {
        ProcessExecutor child(kShell);
        child.exec(shell("trap 'echo terminated >" + path +
                         "; exit' TERM; echo ready; while :; do :; done"));
        ASSERT_EQ(readLine(output(child)), "ready");
    }
    EXPECT_EQ(readFile(path), "terminated\n");
}

TEST_F(ProcessExecutorTest, DestructionSendsTheTerminationSignalThenWaits) {
    std::vector<std::string> steps;
    {
        const Trail trail({Call::kill, Call::waitpid});
        {
            ProcessExecutor child(kCat);
            child.exec({"cat"});
        }
        steps = trail.ofParent();
    }
    ASSERT_EQ(steps.size(), 2U);
    EXPECT_THAT(steps[0], testing::MatchesRegex("kill\\([0-9]+, 15\\)"));
    EXPECT_THAT(steps[1], testing::MatchesRegex("waitpid\\([0-9]+, 0\\)"));
}

TEST_F(ProcessExecutorTest, DestructionWithoutAChildNeitherSignalsNorWaits) {
    std::vector<std::string> steps;
    {
        auto idle = std::make_unique<ProcessExecutor>(kTrue);
        auto waitedFor = std::make_unique<ProcessExecutor>(kTrue);
        waitedFor->exec({"true"});
        EXPECT_EQ(waitedFor->wait(), 0);
        const Trail trail({Call::kill, Call::waitpid});
        idle.reset();
        waitedFor.reset();
        steps = trail.ofParent();
    }
    EXPECT_THAT(steps, IsEmpty());
}

TEST_F(ProcessExecutorTest, DestructionClosesThePipesInReverse) {
    auto idle = std::make_unique<ProcessExecutor>(kTrue);
    std::vector<std::string> expected;
    for (Pipe* const pipe : {&idle->stderrPipe, &idle->stdoutPipe, &idle->stdinPipe}) {
        pipe->open();
        expected.push_back(call("close", pipe->getDescriptor(Pipe::WRITE)));
        expected.push_back(call("close", pipe->getDescriptor(Pipe::READ)));
    }
    const Trail trail({Call::close});
    idle.reset();
    EXPECT_EQ(trail.ofParent(), expected);
}

TEST_F(ProcessExecutorTest, DestructionWaitsForAChildThatIgnoresTheSignal) {
    const ScratchDir dir;
    const std::string fifo = dir / "fifo";
    const std::string result = dir / "result";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    auto child = std::make_unique<ProcessExecutor>(kShell);
    child->exec(shell("trap '' TERM; echo ready; read line <" + fifo + "; echo $line >" + result));
    ASSERT_EQ(readLine(output(*child)), "ready");

    const unsigned long kills = Fault::calls(Call::kill);
    auto destroyed = std::async(std::launch::async, [&] { child.reset(); });
    while (Fault::calls(Call::kill) == kills) std::this_thread::yield();
    const int go = open(fifo.c_str(), O_WRONLY);
    writeAll(go, "outlived the signal\n");
    close(go);
    destroyed.get();
    EXPECT_EQ(readFile(result), "outlived the signal\n");
}

TEST_F(ProcessExecutorTest, DestructionDropsFailures) {
    auto child = std::make_unique<ProcessExecutor>(kShell);
    child->exec(shell("echo $$; exec cat"));
    const pid_t left = std::stoi(readLine(output(*child)));
    {
        const Fault killing(Call::kill, EPERM);
        const Fault waiting(Call::waitpid, EINTR);
        child.reset();
        EXPECT_TRUE(killing.hasFired());
        EXPECT_TRUE(waiting.hasFired()) << "tried although the signal failed";
    }
    EXPECT_THAT(added(), IsEmpty()) << "the pipes are closed all the same";
    EXPECT_EQ(waitpid(left, nullptr, 0), left) << "cat found the end of its input";
}

// The child is a copy of the cancelled thread, so its own closes have to hold the cancellation
// back.
TEST_F(ProcessExecutorTest, ExecOutlastsACancellation) {
    ProcessExecutor child(kShell);
    bool returned = false;
    EXPECT_TRUE(endsCancelled([&] {
        pthread_cancel(pthread_self());
        child.exec(shell("exit 3"));
        returned = true;
        pthread_testcancel();
    })) << "the cancellation comes once the child runs";
    EXPECT_TRUE(returned);
    EXPECT_EQ(child.wait(), 3) << "the child was not cancelled either";
}

#if !TARNUTIL_TEST_ASAN
TEST_F(ProcessExecutorTest, CancelledWaitLetsTheCancellationPassAndLeavesNoChild) {
    EXPECT_TRUE(endsCancelled([] {
        ProcessExecutor child(kCat);
        child.exec({"cat"});
        pthread_cancel(pthread_self());
        child.wait();
    }));
}
#endif

// ---- A child that cannot take over its streams ----

// What a forked process did, as told by its exit status.
int statusOf(pid_t process) {
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    return status;
}

enum Verdict { kAsPromised = 0, kChildAstray = 50, kSiblingGone = 51 };

// Runs in a process of its own, which leads a process group. Starts a sibling, then a child in
// which the substitution that `call` belongs to fails, and whose copy of the object is destroyed.
int familyWithAFailingChild(Call call, unsigned long nth) {
    const pid_t leader = getpid();
    ProcessExecutor sibling(kCat);
    sibling.exec({"cat"});
    int status = -1;
    {
        const Fault fault(call, EMFILE, nth);
        try {
            ProcessExecutor child(kTrue);
            child.exec({"true"});
            status = child.wait();
        } catch (const ErrnoException& e) {
            // In the child, whose object was destroyed on the way here.
            _exit(getpid() != leader && e.getErrorNumber() == EMFILE ? 7 : 8);
        }
    }
    if (getpid() != leader || status != 7) return kChildAstray;
    writeAll(input(sibling), "alive\n");
    return readLine(output(sibling)) == "alive" ? kAsPromised : kSiblingGone;
}

TEST_F(ProcessExecutorTest, FailedSubstitutionHarmsNeitherParentNorSiblings) {
    for (const Call failing : {Call::dup, Call::dup2}) {
        for (unsigned long nth = 1; nth <= 3; ++nth) {
            SCOPED_TRACE(std::string(name(failing)) + " " + std::to_string(nth));
            const pid_t leader = fork();
            if (leader == 0) {
                setpgid(0, 0);
                _exit(familyWithAFailingChild(failing, nth));
            }
            const int status = statusOf(leader);
            ASSERT_TRUE(WIFEXITED(status)) << "a signal ended the parent: " << WTERMSIG(status);
            EXPECT_EQ(WEXITSTATUS(status), kAsPromised);
        }
    }
}

TEST_F(ProcessExecutorTest, FailedSubstitutionLeavesExecInTheChildWithAnIdleObject) {
    struct Row {
        Call call;
        const char* message;
    };
    for (const Row& row : {Row{Call::dup, "Failed saving stream descriptor"},
                           Row{Call::dup2, "Failed to substitute stream descriptor"}}) {
        SCOPED_TRACE(row.message);
        int seen[2];
        ASSERT_EQ(pipe(seen), 0);
        const pid_t parent = getpid();
        ProcessExecutor child(kTrue);
        {
            const Fault fault(row.call, EMFILE);
            std::string said;
            const Trail trail({Call::kill, Call::waitpid});
            said = thrown([&] { child.exec({"true"}); });
            if (getpid() != parent) {
                child.kill(SIGTERM);
                said += " " + std::to_string(child.wait()) + " " +
                        std::to_string(trail.ofChildren().size());
                (void)!write(seen[1], said.data(), said.size());
                _exit(9);
            }
            EXPECT_EQ(said, "(nothing was thrown)");
        }
        close(seen[1]);
        EXPECT_EQ(readAll(seen[0]), errnoThrown(row.message, EMFILE) + " 0 0");
        close(seen[0]);
        EXPECT_EQ(child.wait(), 9);
    }
}

}  // namespace
