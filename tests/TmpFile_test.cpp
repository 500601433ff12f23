// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/TmpFile.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include <tarnutil/Exception.h>

#include "cancelled.h"
#include "fail_each.h"
#include "fault.h"
#include "leaks.h"
#include "scratch_dir.h"
#include "stdin_closed.h"
#include "thrown.h"
#include "trail.h"

using tarnutil::ErrnoException;
using tarnutil::TmpFile;
using namespace tarnutil_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

static_assert(!std::is_polymorphic_v<TmpFile>);
static_assert(!std::is_copy_constructible_v<TmpFile> && !std::is_copy_assignable_v<TmpFile>);
static_assert(noexcept(std::declval<TmpFile&>().clear()) &&
              std::is_nothrow_destructible_v<TmpFile>);

const std::string kFileMessage = "Failed to create temporary file using template: ";
const std::string kDirectoryMessage = "Failed to create temporary directory using template: ";

bool isThere(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
}

std::set<std::string> namesIn(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.insert(entry.path().filename());
    }
    return names;
}

// The value of TMPDIR, or its absence, for as long as it lives.
class Tmpdir {
public:
    explicit Tmpdir(const std::optional<std::string>& value) {
        if (const char* set = std::getenv("TMPDIR")) previous = set;
        put(value);
    }
    ~Tmpdir() { put(previous); }
    Tmpdir(const Tmpdir&) = delete;
    Tmpdir& operator=(const Tmpdir&) = delete;

private:
    static void put(const std::optional<std::string>& value) {
        if (value) {
            setenv("TMPDIR", value->c_str(), /*overwrite=*/1);
        } else {
            unsetenv("TMPDIR");
        }
    }

    std::optional<std::string> previous;
};

// Every test works in a directory of its own and leaves no descriptor.
class TmpFileTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(openDescriptors(), before); }

    const ScratchDir dir;
    const Tmpdir tmpdir{dir.path()};
    const std::set<int> before = openDescriptors();
};

TEST_F(TmpFileTest, FreshObjectOwnsNothing) {
    const TmpFile tmp;
    EXPECT_EQ(tmp.getPath(), "");
    EXPECT_EQ(tmp.getFd(), -1);
    EXPECT_THAT(namesIn(dir.path()), IsEmpty());
}

TEST_F(TmpFileTest, FileIsEmptyPrivateAndOpen) {
    TmpFile tmp;
    tmp.create(/*directory=*/false);
    EXPECT_THAT(tmp.getPath(), MatchesRegex(dir.path() + "/tmp[A-Za-z0-9]{6}"));
    EXPECT_EQ(modeOf(tmp.getPath()), static_cast<mode_t>(S_IFREG | 0600));
    EXPECT_EQ(fcntl(tmp.getFd(), F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_EQ(fcntl(tmp.getFd(), F_GETFD) & FD_CLOEXEC, 0) << "programs started later inherit it";
    EXPECT_EQ(readFile(tmp.getPath()), "");
    ASSERT_EQ(write(tmp.getFd(), "text", 4), 4);
    EXPECT_EQ(readFile(tmp.getPath()), "text");
}

TEST_F(TmpFileTest, DirectoryIsEmptyAndPrivate) {
    TmpFile tmp;
    tmp.create(/*directory=*/true);
    EXPECT_THAT(tmp.getPath(), MatchesRegex(dir.path() + "/tmp[A-Za-z0-9]{6}"));
    EXPECT_EQ(modeOf(tmp.getPath()), static_cast<mode_t>(S_IFDIR | 0700));
    EXPECT_EQ(tmp.getFd(), -1);
    EXPECT_THAT(namesIn(tmp.getPath()), IsEmpty());
}

TEST_F(TmpFileTest, PathIsACopy) {
    TmpFile tmp;
    tmp.create(/*directory=*/false);
    const std::string path = tmp.getPath();
    tmp.clear();
    EXPECT_THAT(path, StartsWith(dir.path()));
    EXPECT_EQ(tmp.getPath(), "");
}

TEST_F(TmpFileTest, TwoOwnersNeverShareAnEntry) {
    TmpFile one;
    TmpFile other;
    one.create(/*directory=*/false);
    other.create(/*directory=*/false);
    EXPECT_NE(one.getPath(), other.getPath());
}

// ---- Where entries are made ----

TEST_F(TmpFileTest, WithoutTmpdirEntriesAreMadeInTmp) {
    const Tmpdir unset(std::nullopt);
    TmpFile tmp;
    for (const bool directory : {false, true}) {
        tmp.create(directory);
        EXPECT_THAT(tmp.getPath(), MatchesRegex("/tmp/tmp[A-Za-z0-9]{6}"));
    }
}

struct TemplateCase {
    const char* says;
    std::optional<std::string> tmpdir;
    const char* pattern;
};

const TemplateCase kTemplateCases[] = {
    // clang-format off
    // says                            TMPDIR          template
    {"unset means /tmp",               std::nullopt,   "/tmp/tmpXXXXXX"},
    {"a directory",                    "/no/such",     "/no/such/tmpXXXXXX"},
    {"a slash at the end stays",       "/var/tmp/",    "/var/tmp//tmpXXXXXX"},
    {"a relative directory stays so",  "here",         "here/tmpXXXXXX"},
    {"X in the directory stay",        "/XXXXXX",      "/XXXXXX/tmpXXXXXX"},
    {"a blank is a name",              " ",            " /tmpXXXXXX"},
    // clang-format on
};

// Fails both calls with EACCES and looks at the template that the messages name.
void expectTemplate(const std::string& pattern) {
    const Fault file(Call::mkstemp, EACCES);
    const Fault directory(Call::mkdtemp, EACCES);
    TmpFile tmp;
    EXPECT_EQ(thrown([&] { tmp.create(/*directory=*/false); }),
              errnoThrown(kFileMessage + pattern, EACCES));
    EXPECT_EQ(thrown([&] { tmp.create(/*directory=*/true); }),
              errnoThrown(kDirectoryMessage + pattern, EACCES));
}

TEST_F(TmpFileTest, TmpdirIsTakenAsItIs) {
    for (const TemplateCase& row : kTemplateCases) {
        SCOPED_TRACE(row.says);
        const Tmpdir value(row.tmpdir);
        expectTemplate(row.pattern);
    }
}

TEST_F(TmpFileTest, AnEmptyTmpdirMeansTheRootDirectory) {
    const Tmpdir empty("");
    expectTemplate("/tmpXXXXXX");
}

TEST_F(TmpFileTest, OnlyTheLastSixXAreReplaced) {
    const std::string inner = dir / "XXXXXX";
    ASSERT_EQ(mkdir(inner.c_str(), 0700), 0);
    const Tmpdir value(inner);
    TmpFile tmp;
    tmp.create(/*directory=*/false);
    EXPECT_THAT(tmp.getPath(), StartsWith(inner + "/tmp"));
}

// ---- Failures ----

TEST_F(TmpFileTest, MissingTmpdirIsReportedWithTheTemplate) {
    const std::string missing = dir / "missing";
    const Tmpdir value(missing);
    TmpFile tmp;
    EXPECT_EQ(thrown([&] { tmp.create(/*directory=*/false); }),
              errnoThrown(kFileMessage + missing + "/tmpXXXXXX", ENOENT));
    EXPECT_EQ(thrown([&] { tmp.create(/*directory=*/true); }),
              errnoThrown(kDirectoryMessage + missing + "/tmpXXXXXX", ENOENT));
    EXPECT_EQ(tmp.getPath(), "");
    EXPECT_EQ(tmp.getFd(), -1);
}

TEST_F(TmpFileTest, FailedCreationLeavesTheObjectEmpty) {
    for (const bool directory : {false, true}) {
        TmpFile tmp;
        tmp.create(/*directory=*/false);
        {
            const Fault fault(directory ? Call::mkdtemp : Call::mkstemp, EMFILE);
            EXPECT_THROW(tmp.create(directory), ErrnoException);
        }
        EXPECT_EQ(tmp.getPath(), "");
        EXPECT_EQ(tmp.getFd(), -1);
        EXPECT_THAT(namesIn(dir.path()), IsEmpty()) << "what was there before is gone";
    }
}

TEST_F(TmpFileTest, EveryFailedCreationNamesItsTemplateAndLeavesNothing) {
    std::set<std::string> seen;
    failEachCallInTurn(
        {Call::mkstemp, Call::mkdtemp}, ENOSPC,
        [] {
            TmpFile tmp;
            tmp.create(/*directory=*/false);
            tmp.create(/*directory=*/true);
        },
        [&](const Failure& failure) { seen.insert(failure.messageOf<ErrnoException>()); });
    const std::string pattern = dir / "tmpXXXXXX";
    EXPECT_THAT(seen, ElementsAre(ErrnoException::createMsg(kDirectoryMessage + pattern, ENOSPC),
                                  ErrnoException::createMsg(kFileMessage + pattern, ENOSPC)));
    EXPECT_THAT(namesIn(dir.path()), IsEmpty());
}

// ---- Removing ----

TEST_F(TmpFileTest, ClearRemovesTheEntryBeforeItClosesTheDescriptor) {
    TmpFile tmp;
    tmp.create(/*directory=*/false);
    const std::string fd = std::to_string(tmp.getFd());
    const Trail trail({Call::remove, Call::close});
    tmp.clear();
    tmp.clear();
    EXPECT_THAT(trail.ofParent(), ElementsAre("remove()", "close(" + fd + ")"));
    EXPECT_EQ(tmp.getFd(), -1);
    EXPECT_THAT(namesIn(dir.path()), IsEmpty());
}

TEST_F(TmpFileTest, ClearOfAnEmptyObjectCallsNothing) {
    TmpFile tmp;
    const Trail trail({Call::lstat, Call::remove, Call::close});
    tmp.clear();
    EXPECT_THAT(trail.ofParent(), IsEmpty());
}

TEST_F(TmpFileTest, CreatingAgainRemovesTheFirstEntry) {
    TmpFile tmp;
    for (const bool directory : {false, true, false}) {
        const std::string previous = tmp.getPath();
        tmp.create(directory);
        EXPECT_NE(tmp.getPath(), previous);
        EXPECT_EQ(namesIn(dir.path()).size(), 1U);
        EXPECT_TRUE(isThere(tmp.getPath()));
        EXPECT_EQ(tmp.getFd() == -1, directory);
    }
}

TEST_F(TmpFileTest, DestructionRemovesTheFile) {
    std::string path;
    {
        TmpFile tmp;
        tmp.create(/*directory=*/false);
        path = tmp.getPath();
        EXPECT_TRUE(isThere(path));
    }
    EXPECT_FALSE(isThere(path));
}

TEST_F(TmpFileTest, DestructionRemovesTheWholeTree) {
    const std::string outside = dir.write("outside", "kept");
    {
        TmpFile tmp;
        tmp.create(/*directory=*/true);
        std::filesystem::create_directories(tmp.getPath() + "/a/b/c/d");
        std::filesystem::create_directories(tmp.getPath() + "/.hidden/e");
        for (const char* file : {"/file", "/a/file", "/a/b/c/d/file", "/.hidden/.file"}) {
            ASSERT_EQ(close(creat((tmp.getPath() + file).c_str(), 0600)), 0);
        }
        ASSERT_EQ(symlink(outside.c_str(), (tmp.getPath() + "/a/link").c_str()), 0);
        ASSERT_EQ(symlink(dir.path().c_str(), (tmp.getPath() + "/a/b/up").c_str()), 0);
    }
    EXPECT_THAT(namesIn(dir.path()), ElementsAre("outside"));
    EXPECT_EQ(readFile(outside), "kept") << "links are removed, not what they point to";
}

TEST_F(TmpFileTest, EntryThatIsGoneIsNoFailure) {
    for (const bool directory : {false, true}) {
        TmpFile tmp;
        tmp.create(directory);
        std::filesystem::remove(tmp.getPath());
        tmp.clear();
        EXPECT_EQ(tmp.getPath(), "");
        EXPECT_EQ(tmp.getFd(), -1);
    }
}

TEST_F(TmpFileTest, EntryThatWasRenamedAwayIsSafe) {
    const std::string target = dir / "target";
    {
        TmpFile tmp;
        tmp.create(/*directory=*/false);
        ASSERT_EQ(write(tmp.getFd(), "kept", 4), 4);
        ASSERT_EQ(rename(tmp.getPath().c_str(), target.c_str()), 0);
    }
    EXPECT_EQ(readFile(target), "kept");
}

TEST_F(TmpFileTest, FailedRemovalIsDroppedAndTheEntryForgotten) {
    std::string path;
    {
        TmpFile tmp;
        tmp.create(/*directory=*/false);
        path = tmp.getPath();
        const Fault fault(Call::remove, EACCES);
        tmp.clear();
        EXPECT_TRUE(fault.hasFired());
        EXPECT_EQ(tmp.getPath(), "");
        EXPECT_EQ(tmp.getFd(), -1);
    }
    EXPECT_TRUE(isThere(path));
}

TEST_F(TmpFileTest, DescriptorMayBeZero) {
    const StdinClosed stdinClosed;
    TmpFile tmp;
    tmp.create(/*directory=*/false);
    ASSERT_EQ(tmp.getFd(), 0);
    EXPECT_TRUE(isThere(tmp.getPath()));
    tmp.clear();
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "it is closed like any other";
}

TEST_F(TmpFileTest, FailedCloseIsDropped) {
    TmpFile tmp;
    tmp.create(/*directory=*/false);
    const int fd = tmp.getFd();
    {
        const Fault fault(Call::close, EIO);
        tmp.clear();
        EXPECT_TRUE(fault.hasFired());
    }
    EXPECT_EQ(tmp.getFd(), -1);
    EXPECT_EQ(close(fd), 0);
}

TEST_F(TmpFileTest, RemovalThatRunsOutOfMemoryIsDroppedAndTheObjectIsEmpty) {
    TmpFile tmp;
    tmp.create(/*directory=*/true);
    const std::string path = tmp.getPath();
    ASSERT_EQ(close(creat((path + "/" + std::string(100, 'x')).c_str(), 0600)), 0);
    {
        const Fault noMemory(Call::operator_new, 0, 1, Fault::fromThenOn);
        tmp.clear();
        EXPECT_TRUE(noMemory.hasFired());
    }
    EXPECT_EQ(tmp.getPath(), "");
    EXPECT_TRUE(isThere(path));
}

TEST_F(TmpFileTest, ClearingOutlastsACancellation) {
    TmpFile tmp;
    bool cleared = false;
    EXPECT_TRUE(endsCancelled([&] {
        tmp.create(/*directory=*/false);
        pthread_cancel(pthread_self());
        tmp.clear();
        cleared = true;
        pthread_testcancel();
    })) << "the cancellation comes once the object is empty";
    EXPECT_TRUE(cleared);
    EXPECT_THAT(namesIn(dir.path()), IsEmpty());
}

}  // namespace
