// SPDX-License-Identifier: Apache-2.0
// The tests' own tools: a Fault has to fail what it names, and a leak has to be seen.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "fail_each.h"
#include "fault.h"
#include "leaks.h"
#include "sanitized.h"
#include "scratch_dir.h"

using namespace tarnutil_test;

namespace {

// Closes nothing that is open: -1 tells a failed call from the real one's answer by errno.
int errnoOfClose() {
    errno = 0;
    return close(-1) == -1 ? errno : 0;
}

// What `checks` reports, in place of this test's own failures.
std::vector<std::string> failuresOf(const std::function<void()>& checks) {
    testing::TestPartResultArray results;
    {
        const testing::ScopedFakeTestPartResultReporter reporter(&results);
        checks();
    }
    std::vector<std::string> messages;
    for (int i = 0; i < results.size(); ++i)
        messages.push_back(results.GetTestPartResult(i).message());
    EXPECT_FALSE(messages.empty());
    return messages;
}

}  // namespace

TEST(FaultTest, FailsTheNthUseOnly) {
    const Fault fault(Call::close, EIO, 2);
    EXPECT_EQ(errnoOfClose(), EBADF);
    EXPECT_FALSE(fault.hasFired());
    EXPECT_EQ(errnoOfClose(), EIO);
    EXPECT_TRUE(fault.hasFired());
    EXPECT_EQ(errnoOfClose(), EBADF);
}

TEST(FaultTest, FailsEveryUseFromTheNthOn) {
    const Fault fault(Call::close, EIO, 2, Fault::fromThenOn);
    EXPECT_EQ(errnoOfClose(), EBADF);
    EXPECT_EQ(errnoOfClose(), EIO);
    EXPECT_EQ(errnoOfClose(), EIO);
}

TEST(FaultTest, EndsWithItsObject) {
    { const Fault fault(Call::close, EIO); }
    EXPECT_EQ(errnoOfClose(), EBADF);
}

TEST(FaultTest, CountsUses) {
    const unsigned long before = Fault::calls(Call::close);
    (void)errnoOfClose();
    EXPECT_EQ(Fault::calls(Call::close), before + 1);
}

TEST(FaultTest, FailsAllocations) {
    const Fault fault(Call::operator_new);
    EXPECT_THROW(operator delete(operator new(1)), std::bad_alloc);
}

TEST(LeaksTest, SeesAnOpenDescriptor) {
    const auto before = openDescriptors();
    const int descriptor = open("/dev/null", O_RDONLY);
    EXPECT_THAT(openDescriptors(), testing::Contains(descriptor));
    close(descriptor);
    EXPECT_EQ(openDescriptors(), before);
}

#if !TARNUTIL_TEST_SANITIZED
TEST(LeaksTest, TellsALeakFromWhatIsKeptOnce) {
    std::vector<std::unique_ptr<char[]>> kept;
    EXPECT_TRUE(growsEachTime([&] { kept.emplace_back(new char[1]); }));
    EXPECT_FALSE(growsEachTime([&] {
        if (kept.size() < 45) kept.emplace_back(new char[1000]);
    }));
}

TEST(LeaksTest, SeesLiveBytes) {
    const std::size_t before = liveBytes();
    void* volatile const block = std::malloc(1000);
    EXPECT_GE(liveBytes(), before + 1000);
    std::free(block);
    EXPECT_EQ(liveBytes(), before);
}

TEST(FailEachTest, ReportsALeak) {
    static std::vector<void*> kept;  // freed below: the leak is the helper's to find
    const auto leak = [] {
        kept.push_back(std::malloc(1000));
        if (close(-1) == -1 && errno == EIO) throw std::runtime_error("EIO");
    };
    EXPECT_THAT(
        failuresOf([&] { failEachCallInTurn({Call::close}, EIO, leak, [](const Failure&) {}); }),
        testing::Contains(testing::HasSubstr("close once, use 1: leaks bytes")));
    for (void* block : kept) std::free(block);
}
#endif

TEST(FailEachTest, FailsEachUseOnceAndFromThenOn) {
    std::vector<std::string> failures;
    const auto twoUses = [] {
        for (int i = 0; i < 2; ++i) {
            if (errnoOfClose() == EIO) throw std::runtime_error("use " + std::to_string(i + 1));
        }
    };
    failEachCallInTurn({Call::close}, EIO, twoUses, [&](const Failure& failure) {
        const std::string seen =
            describe(failure) + " -> " + failure.messageOf<std::runtime_error>();
        if (failures.empty() || failures.back() != seen) failures.push_back(seen);
    });
    EXPECT_THAT(failures,
                testing::ElementsAre("close once, use 1 -> use 1", "close once, use 2 -> use 2",
                                     "close from then on, use 1 -> use 1",
                                     "close from then on, use 2 -> use 2"));
}

TEST(FailEachTest, ReportsACallThatIsNeverMade) {
    EXPECT_THAT(failuresOf([] {
                    failEachCallInTurn(
                        {Call::close}, EIO, [] {}, [](const Failure&) {});
                }),
                testing::Each(testing::HasSubstr("close is never called")));
}

TEST(FailEachTest, TellsAnotherClassFromThePromisedOne) {
    const auto thrown = [](auto e) { return std::make_exception_ptr(e); };
    const Failure derived{Call::close, 0, 1, Fault::once, thrown(std::out_of_range("m"))};
    EXPECT_EQ(derived.messageOf<std::out_of_range>(), "m");
    EXPECT_THAT(derived.messageOf<std::logic_error>(), testing::HasSubstr("thrown was a"));
    const Failure nothing{Call::close, 0, 1, Fault::once, nullptr};
    EXPECT_EQ(nothing.messageOf<std::logic_error>(), "(nothing was thrown)");
}

TEST(ScratchDirTest, IsRemovedWithItsContent) {
    std::string path;
    {
        const ScratchDir dir;
        path = dir.write("name", "content");
        EXPECT_EQ(readFile(path), "content");
    }
    EXPECT_NE(access(path.c_str(), F_OK), 0);
}
