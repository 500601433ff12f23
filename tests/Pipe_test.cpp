// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Pipe.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "cancelled.h"
#include "fault.h"
#include "leaks.h"
#include "stdin_closed.h"
#include "thrown.h"
#include "trail.h"

using tarnutil::Pipe;
using namespace tarnutil_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

static_assert(Pipe::READ == 1 && Pipe::WRITE == 2, "the values are bits of what close takes");
static_assert(std::has_virtual_destructor_v<Pipe>);
static_assert(!std::is_copy_constructible_v<Pipe> && !std::is_copy_assignable_v<Pipe>);
static_assert(!std::is_convertible_v<int, Pipe::Type>, "an end is named, not numbered");
static_assert(
    noexcept(std::declval<Pipe&>().restore()) && noexcept(std::declval<Pipe&>().close(3)) &&
    std::is_nothrow_destructible_v<Pipe>);

// The file that a descriptor refers to: equal for duplicates, different for two pipes.
std::pair<dev_t, ino_t> fileOf(int fd) {
    struct stat status {};
    EXPECT_EQ(fstat(fd, &status), 0) << "descriptor " << fd;
    return {status.st_dev, status.st_ino};
}

void writeText(int fd, const std::string& text) {
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// One read of at most a small buffer; "" at the end of file.
std::string readText(int fd) {
    std::array<char, 256> buffer;
    const ssize_t size = read(fd, buffer.data(), buffer.size());
    EXPECT_GE(size, 0) << "descriptor " << fd;
    return std::string(buffer.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
}

bool isOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

// Every test leaves the descriptors of the process as it found them, and none may change the
// standard streams for good.
class PipeTest : public testing::Test {
protected:
    void SetUp() override {
        standIn = open("/dev/null", O_RDWR);
        ASSERT_GE(standIn, 0);
    }
    void TearDown() override {
        close(standIn);
        EXPECT_EQ(openDescriptors(), before);
    }

    // The descriptors that were opened since the test began, apart from `standIn`.
    std::set<int> added() const {
        std::set<int> now = openDescriptors();
        for (const int fd : before) now.erase(fd);
        now.erase(standIn);
        return now;
    }

    const std::set<int> before = openDescriptors();
    int standIn = -1;  // a stream to substitute without touching the program's own
};

TEST_F(PipeTest, FreshPipeHoldsNothing) {
    const Pipe pipe;
    EXPECT_EQ(pipe.getDescriptor(Pipe::READ), -1);
    EXPECT_EQ(pipe.getDescriptor(Pipe::WRITE), -1);
    EXPECT_THAT(added(), IsEmpty());
}

TEST_F(PipeTest, OnlyTheTwoEndsHaveADescriptor) {
    Pipe pipe;
    pipe.open();
    EXPECT_THAT(added(),
                ElementsAre(pipe.getDescriptor(Pipe::READ), pipe.getDescriptor(Pipe::WRITE)));
    for (const int neither : {0, 3, 4, -1}) {
        EXPECT_EQ(pipe.getDescriptor(static_cast<Pipe::Type>(neither)), -1) << neither;
    }
}

TEST_F(PipeTest, WhatGoesInComesOut) {
    Pipe pipe;
    pipe.open();
    writeText(pipe.getDescriptor(Pipe::WRITE), "through");
    EXPECT_EQ(readText(pipe.getDescriptor(Pipe::READ)), "through");
}

TEST_F(PipeTest, EndsAreInherited) {
    Pipe pipe;
    pipe.open();
    for (const int fd : added()) EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(PipeTest, SecondOpenIsRefusedWhileAnEndIsOpen) {
    Pipe pipe;
    for (const int closed : {0, 1, 2}) {
        SCOPED_TRACE(closed);
        pipe.open();
        pipe.close(closed);
        const std::set<int> held = added();
        EXPECT_EQ(thrown([&] { pipe.open(); }), "tarnutil::Exception: Already opened");
        EXPECT_EQ(added(), held);
        pipe.close(3);
    }
    pipe.open();
    EXPECT_EQ(added().size(), 2U);
}

TEST_F(PipeTest, AnEndMayBeDescriptorZero) {
    const StdinClosed stdinClosed;
    Pipe pipe;
    pipe.open();
    ASSERT_EQ(pipe.getDescriptor(Pipe::READ), 0);
    pipe.close(Pipe::WRITE);
    EXPECT_EQ(thrown([&] { pipe.open(); }), "tarnutil::Exception: Already opened");
    pipe.close(Pipe::READ);
    EXPECT_FALSE(isOpen(0));
}

TEST_F(PipeTest, FailedOpenLeavesThePipeClosed) {
    Pipe pipe;
    {
        const Fault fault(Call::pipe, EMFILE);
        EXPECT_EQ(thrown([&] { pipe.open(); }), errnoThrown("Failed creating new pipe", EMFILE));
    }
    EXPECT_EQ(pipe.getDescriptor(Pipe::READ), -1);
    EXPECT_THAT(added(), IsEmpty());
    pipe.open();
    EXPECT_EQ(added().size(), 2U);
}

struct CloseCase {
    const char* says;
    int ends;
    bool readStays;
    bool writeStays;
};

const CloseCase kCloseCases[] = {
    // clang-format off
    // says                            ends  read   write
    {"no bit closes nothing",          0,    true,  true},
    {"1 is the read end",              1,    false, true},
    {"2 is the write end",             2,    true,  false},
    {"3 is both",                      3,    false, false},
    {"other bits mean nothing",        4,    true,  true},
    {"and are no harm beside others",  5,    false, true},
    {"all bits are both ends",        -1,    false, false},
    // clang-format on
};

TEST_F(PipeTest, CloseTakesTheEndsOfItsBits) {
    for (const CloseCase& row : kCloseCases) {
        SCOPED_TRACE(row.says);
        Pipe pipe;
        pipe.open();
        const int readEnd = pipe.getDescriptor(Pipe::READ);
        const int writeEnd = pipe.getDescriptor(Pipe::WRITE);
        pipe.close(row.ends);
        EXPECT_EQ(pipe.getDescriptor(Pipe::READ), row.readStays ? readEnd : -1);
        EXPECT_EQ(pipe.getDescriptor(Pipe::WRITE), row.writeStays ? writeEnd : -1);
        EXPECT_EQ(isOpen(readEnd), row.readStays);
        EXPECT_EQ(isOpen(writeEnd), row.writeStays);
    }
}

TEST_F(PipeTest, TheWriteEndIsClosedFirst) {
    Pipe pipe;
    pipe.open();
    const std::string readEnd = std::to_string(pipe.getDescriptor(Pipe::READ));
    const std::string writeEnd = std::to_string(pipe.getDescriptor(Pipe::WRITE));
    const Trail trail({Call::close});
    pipe.close(3);
    pipe.close(3);
    EXPECT_THAT(trail.ofParent(), ElementsAre("close(" + writeEnd + ")", "close(" + readEnd + ")"));
}

TEST_F(PipeTest, FailedCloseIsDroppedAndForgotten) {
    Pipe pipe;
    pipe.open();
    const std::set<int> held = added();
    {
        const Fault fault(Call::close, EIO, 1, Fault::fromThenOn);
        pipe.close(3);
    }
    EXPECT_EQ(pipe.getDescriptor(Pipe::READ), -1);
    EXPECT_EQ(pipe.getDescriptor(Pipe::WRITE), -1);
    for (const int fd : held) EXPECT_EQ(close(fd), 0);
}

TEST_F(PipeTest, SubstitutedStreamWritesIntoThePipeUntilRestored) {
    const auto original = fileOf(standIn);
    Pipe pipe;
    pipe.open();
    pipe.substitute(standIn, Pipe::WRITE);
    writeText(standIn, "captured");
    EXPECT_EQ(readText(pipe.getDescriptor(Pipe::READ)), "captured");
    EXPECT_EQ(added().size(), 3U) << "two ends and the saved duplicate";
    pipe.restore();
    EXPECT_EQ(fileOf(standIn), original);
    EXPECT_EQ(added().size(), 2U);
}

TEST_F(PipeTest, RestoringLosesTheCloseOnExecFlag) {
    ASSERT_EQ(fcntl(standIn, F_SETFD, FD_CLOEXEC), 0);
    Pipe pipe(standIn, Pipe::WRITE);
    EXPECT_EQ(fcntl(standIn, F_GETFD), 0);
    pipe.restore();
    EXPECT_EQ(fcntl(standIn, F_GETFD), 0);
}

TEST_F(PipeTest, StandardOutputCanBeCaptured) {
    const auto original = fileOf(STDOUT_FILENO);
    Pipe pipe(STDOUT_FILENO, Pipe::WRITE);
    writeText(STDOUT_FILENO, "captured");
    EXPECT_EQ(readText(pipe.getDescriptor(Pipe::READ)), "captured");
    pipe.restore();
    EXPECT_EQ(fileOf(STDOUT_FILENO), original);
}

TEST_F(PipeTest, StandardInputCanBeFed) {
    const auto original = fileOf(STDIN_FILENO);
    Pipe pipe(STDIN_FILENO, Pipe::READ);
    writeText(pipe.getDescriptor(Pipe::WRITE), "fed");
    EXPECT_EQ(readText(STDIN_FILENO), "fed");
    pipe.restore();
    EXPECT_EQ(fileOf(STDIN_FILENO), original);
}

TEST_F(PipeTest, AStreamMayBeSavedAsDescriptorZero) {
    const auto original = fileOf(standIn);
    Pipe pipe;
    pipe.open();
    const StdinClosed stdinClosed;
    pipe.substitute(standIn, Pipe::WRITE);
    ASSERT_EQ(fileOf(0), original);
    EXPECT_EQ(thrown([&] { pipe.substitute(standIn, Pipe::WRITE); }),
              "tarnutil::Exception: Already substituted");
    pipe.restore();
    EXPECT_EQ(fileOf(standIn), original);
    EXPECT_FALSE(isOpen(0));
}

TEST_F(PipeTest, SubstitutedStreamReadsFromThePipe) {
    Pipe pipe;
    pipe.open();
    pipe.substitute(standIn, Pipe::READ);
    writeText(pipe.getDescriptor(Pipe::WRITE), "fed");
    EXPECT_EQ(readText(standIn), "fed");
}

TEST_F(PipeTest, AnyEndButReadIsTheWriteEnd) {
    for (const int type : {0, 3, 7}) {
        Pipe pipe;
        pipe.open();
        pipe.substitute(standIn, static_cast<Pipe::Type>(type));
        writeText(standIn, "w");
        EXPECT_EQ(readText(pipe.getDescriptor(Pipe::READ)), "w") << type;
    }
}

TEST_F(PipeTest, SubstitutionSavesThenReplacesTheStream) {
    Pipe pipe;
    pipe.open();
    const std::string stream = std::to_string(standIn);
    const std::string writeEnd = std::to_string(pipe.getDescriptor(Pipe::WRITE));
    const Trail trail({Call::dup, Call::dup2, Call::close});
    pipe.substitute(standIn, Pipe::WRITE);
    const std::string saved = std::to_string(*added().rbegin());
    pipe.restore();
    EXPECT_THAT(trail.ofParent(),
                ElementsAre("dup(" + stream + ")", "dup2(" + writeEnd + ", " + stream + ")",
                            "dup2(" + saved + ", " + stream + ")", "close(" + saved + ")"));
}

TEST_F(PipeTest, SecondSubstitutionIsRefusedAndTheFirstHolds) {
    Pipe pipe;
    pipe.open();
    pipe.substitute(standIn, Pipe::WRITE);
    const std::set<int> held = added();
    EXPECT_EQ(thrown([&] { pipe.substitute(STDERR_FILENO, Pipe::READ); }),
              "tarnutil::Exception: Already substituted");
    EXPECT_EQ(added(), held);
    writeText(standIn, "still");
    EXPECT_EQ(readText(pipe.getDescriptor(Pipe::READ)), "still");
}

TEST_F(PipeTest, SubstitutesAgainAfterRestoring) {
    const auto original = fileOf(standIn);
    Pipe pipe;
    pipe.open();
    for (int i = 0; i < 3; ++i) {
        pipe.substitute(standIn, Pipe::WRITE);
        pipe.restore();
        EXPECT_EQ(fileOf(standIn), original);
    }
}

TEST_F(PipeTest, StreamThatIsNotOpenCannotBeSaved) {
    Pipe pipe;
    pipe.open();
    const int never = *added().rbegin() + 100;
    EXPECT_EQ(thrown([&] { pipe.substitute(never, Pipe::WRITE); }),
              errnoThrown("Failed saving stream descriptor", EBADF));
    EXPECT_EQ(added().size(), 2U);
    EXPECT_FALSE(isOpen(never));
}

TEST_F(PipeTest, FailedSavingLeavesTheStreamAndAllowsAnotherTry) {
    const auto original = fileOf(standIn);
    Pipe pipe;
    pipe.open();
    {
        const Fault fault(Call::dup, EMFILE);
        EXPECT_EQ(thrown([&] { pipe.substitute(standIn, Pipe::WRITE); }),
                  errnoThrown("Failed saving stream descriptor", EMFILE));
    }
    EXPECT_EQ(fileOf(standIn), original);
    pipe.restore();
    pipe.substitute(standIn, Pipe::WRITE);
    EXPECT_NE(fileOf(standIn), original);
    pipe.restore();
    EXPECT_EQ(fileOf(standIn), original);
}

TEST_F(PipeTest, FailedReplacingClosesTheSavedStream) {
    const auto original = fileOf(standIn);
    Pipe pipe;
    pipe.open();
    {
        const Fault fault(Call::dup2, EINTR);
        EXPECT_EQ(thrown([&] { pipe.substitute(standIn, Pipe::WRITE); }),
                  errnoThrown("Failed to substitute stream descriptor", EINTR));
    }
    EXPECT_EQ(added().size(), 2U);
    EXPECT_EQ(fileOf(standIn), original);
    pipe.substitute(standIn, Pipe::WRITE);
    pipe.restore();
    EXPECT_EQ(fileOf(standIn), original);
}

TEST_F(PipeTest, FailedReplacingReportsTheErrnoThatItsCloseLeaves) {
    Pipe pipe;
    pipe.open();
    const std::set<int> held = added();
    {
        const Fault replacing(Call::dup2, EINTR);
        const Fault closing(Call::close, EIO);
        EXPECT_EQ(thrown([&] { pipe.substitute(standIn, Pipe::WRITE); }),
                  errnoThrown("Failed to substitute stream descriptor", EIO));
    }
    std::set<int> left = added();
    for (const int fd : held) left.erase(fd);
    ASSERT_EQ(left.size(), 1U) << "the saved stream, whose close failed";
    EXPECT_EQ(close(*left.begin()), 0);
}

TEST_F(PipeTest, UnopenedPipeCannotBeSubstituted) {
    const auto original = fileOf(standIn);
    Pipe pipe;
    for (const Pipe::Type end : {Pipe::READ, Pipe::WRITE}) {
        EXPECT_EQ(thrown([&] { pipe.substitute(standIn, end); }),
                  errnoThrown("Failed to substitute stream descriptor", EBADF));
        EXPECT_THAT(added(), IsEmpty());
        EXPECT_EQ(fileOf(standIn), original);
    }
}

TEST_F(PipeTest, ClosingTheEndsKeepsTheSubstitutedStream) {
    Pipe pipe;
    pipe.open();
    pipe.substitute(standIn, Pipe::WRITE);
    pipe.close(Pipe::WRITE);
    writeText(standIn, "open");
    EXPECT_EQ(readText(pipe.getDescriptor(Pipe::READ)), "open");
    pipe.restore();
    EXPECT_EQ(readText(pipe.getDescriptor(Pipe::READ)), "") << "the last writer is gone";
}

TEST_F(PipeTest, RestoreWithoutASubstitutionCallsNothing) {
    Pipe pipe;
    pipe.open();
    const Trail trail({Call::dup, Call::dup2, Call::close});
    pipe.restore();
    EXPECT_THAT(trail.ofParent(), IsEmpty());
    EXPECT_EQ(added().size(), 2U);
}

TEST_F(PipeTest, FailedRestoringIsDroppedAndForgotten) {
    const int kept = dup(standIn);
    {
        Pipe pipe;
        pipe.open();
        pipe.substitute(standIn, Pipe::WRITE);
        const auto inPipe = fileOf(standIn);
        {
            const Fault fault(Call::dup2, EIO);
            pipe.restore();
        }
        EXPECT_EQ(fileOf(standIn), inPipe);
        EXPECT_EQ(added().size(), 3U) << "two ends and `kept`: the saved stream is closed";
        pipe.restore();
        EXPECT_EQ(fileOf(standIn), inPipe);
    }
    EXPECT_EQ(dup2(kept, standIn), standIn);
    close(kept);
}

TEST_F(PipeTest, DestructionRestoresTheStreamThenClosesTheEnds) {
    const auto original = fileOf(standIn);
    const std::string stream = std::to_string(standIn);
    std::string readEnd;
    std::string writeEnd;
    std::string saved;
    const Trail trail({Call::dup2, Call::close});
    {
        Pipe pipe(standIn, Pipe::WRITE);
        readEnd = std::to_string(pipe.getDescriptor(Pipe::READ));
        writeEnd = std::to_string(pipe.getDescriptor(Pipe::WRITE));
        saved = std::to_string(*added().rbegin());
    }
    EXPECT_EQ(fileOf(standIn), original);
    EXPECT_THAT(
        trail.ofParent(),
        ElementsAre("dup2(" + writeEnd + ", " + stream + ")", "dup2(" + saved + ", " + stream + ")",
                    "close(" + saved + ")", "close(" + writeEnd + ")", "close(" + readEnd + ")"));
}

TEST_F(PipeTest, ConstructionThatCannotOpenLeavesNothing) {
    const Fault fault(Call::pipe, ENFILE);
    EXPECT_EQ(thrown([&] { const Pipe pipe(standIn, Pipe::WRITE); }),
              errnoThrown("Failed creating new pipe", ENFILE));
    EXPECT_THAT(added(), IsEmpty());
}

TEST_F(PipeTest, FailedConstructionLeavesBothEndsOpen) {
    struct Row {
        Call call;
        const char* message;
    };
    for (const Row& row : {Row{Call::dup, "Failed saving stream descriptor"},
                           Row{Call::dup2, "Failed to substitute stream descriptor"}}) {
        SCOPED_TRACE(row.message);
        const auto original = fileOf(standIn);
        {
            const Fault fault(row.call, EMFILE);
            EXPECT_EQ(thrown([&] { const Pipe pipe(standIn, Pipe::WRITE); }),
                      errnoThrown(row.message, EMFILE));
        }
        EXPECT_EQ(fileOf(standIn), original);
        const std::set<int> left = added();
        ASSERT_EQ(left.size(), 2U);
        writeText(*left.rbegin(), "p");
        EXPECT_EQ(readText(*left.begin()), "p") << "they are the two ends of one pipe";
        for (const int fd : left) EXPECT_EQ(close(fd), 0);
    }
}

TEST_F(PipeTest, CleaningUpOutlastsACancellation) {
    const auto original = fileOf(standIn);
    Pipe pipe;
    bool cleaned = false;
    EXPECT_TRUE(endsCancelled([&] {
        pipe.open();
        pipe.substitute(standIn, Pipe::WRITE);
        pthread_cancel(pthread_self());
        pipe.restore();
        pipe.close(3);
        cleaned = true;
        pthread_testcancel();
    })) << "the cancellation comes once the pipe is clean";
    EXPECT_TRUE(cleaned);
    EXPECT_EQ(fileOf(standIn), original);
    EXPECT_THAT(added(), IsEmpty());
}

TEST_F(PipeTest, AFailedSubstitutionOutlastsACancellation) {
    Pipe pipe;
    std::string said;
    EXPECT_TRUE(endsCancelled([&] {
        pthread_cancel(pthread_self());
        said = thrown([&] { pipe.substitute(standIn, Pipe::WRITE); });
        pthread_testcancel();
    })) << "the cancellation comes once the failure is told";
    EXPECT_EQ(said, errnoThrown("Failed to substitute stream descriptor", EBADF));
    EXPECT_THAT(added(), IsEmpty());
}

}  // namespace
