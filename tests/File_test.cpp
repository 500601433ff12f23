// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/File.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <future>
#include <thread>
#include <type_traits>

#include <tarnutil/Exception.h>

#include "cancelled.h"
#include "fail_each.h"
#include "fault.h"
#include "leaks.h"
#include "sanitized.h"
#include "scratch_dir.h"
#include "trail.h"

namespace {

using tarnutil::Exception;
using tarnutil::File;
using tarnutil::FileCloser;
using tarnutil::IOException;
using namespace tarnutil_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::ThrowsMessage;

using Names = std::set<std::string>;

static_assert(!std::is_default_constructible_v<File>);
static_assert(!std::is_polymorphic_v<FileCloser> && sizeof(FileCloser) == sizeof(std::FILE*));
static_assert(!std::is_copy_constructible_v<FileCloser> && !std::is_copy_assignable_v<FileCloser>);
static_assert(!std::is_convertible_v<std::FILE*, FileCloser>, "taking over a stream is said");

std::string text(int error) { return Exception::getStrerror(error); }

mode_t permissions(const std::string& path) {
    struct stat found {};
    EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
    return found.st_mode & 07777;
}

void makeDirectories(const ScratchDir& dir, std::initializer_list<const char*> names) {
    for (const char* name : names) ASSERT_EQ(mkdir((dir / name).c_str(), 0777), 0) << name;
}

void makeLink(const std::string& target, const std::string& link) {
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0) << link;
}

// Sets the umask, and the old one at the end.
class Umask {
public:
    explicit Umask(mode_t mask) : old(umask(mask)) {}
    ~Umask() { umask(old); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t old;
};

// ---- Queries ----

struct KindCase {
    const char* says;
    const char* name;
    bool exists, existsItself, isDirectory, isDirectoryItself;
};
const KindCase kKindCases[] = {
    // clang-format off
    // says                            name          exists  itself  directory  itself
    {"a file",                         "file",       true,   true,   false,     false},
    {"a directory",                    "dir",        true,   true,   true,      true},
    {"a link to a file",               "to-file",    true,   true,   false,     false},
    {"a link to a directory",          "to-dir",     true,   true,   true,      false},
    {"a dangling link",                "dangling",   false,  true,   false,     false},
    {"nothing",                        "missing",    false,  false,  false,     false},
    {"below a file",                   "file/x",     false,  false,  false,     false},
    {"a link, asked with a slash",     "to-dir/",    true,   true,   true,      true},
    // clang-format on
};
class FileKindTest : public testing::TestWithParam<KindCase> {};
INSTANTIATE_TEST_SUITE_P(All, FileKindTest, testing::ValuesIn(kKindCases));

TEST_P(FileKindTest, TellsWhatANameIs) {
    const ScratchDir dir;
    dir.write("file", "x");
    makeDirectories(dir, {"dir"});
    makeLink("file", dir / "to-file");
    makeLink("dir", dir / "to-dir");
    makeLink("nowhere", dir / "dangling");
    const KindCase& expected = GetParam();
    SCOPED_TRACE(expected.says);
    const std::string path = dir / expected.name;
    EXPECT_EQ(File::exists(path, /*followLinks=*/true), expected.exists);
    EXPECT_EQ(File::exists(path, /*followLinks=*/false), expected.existsItself);
    EXPECT_EQ(File::isDirectory(path, /*followLinks=*/true), expected.isDirectory);
    EXPECT_EQ(File::isDirectory(path, /*followLinks=*/false), expected.isDirectoryItself);
}

TEST(FileTest, AnyFailureToLookIsAbsence) {
    const ScratchDir dir;
    for (const int error : {EACCES, ENOENT, EIO, ELOOP}) {
        const Fault noStat(Call::stat, error, 1, Fault::fromThenOn);
        const Fault noLstat(Call::lstat, error, 1, Fault::fromThenOn);
        for (const bool followLinks : {true, false}) {
            EXPECT_FALSE(File::exists(dir.path(), followLinks));
            EXPECT_FALSE(File::isDirectory(dir.path(), followLinks));
            EXPECT_EQ(errno, error);
        }
    }
}

TEST(FileTest, LinksAreFollowedByStatAndLookedAtByLstat) {
    const unsigned long stats = Fault::calls(Call::stat);
    const unsigned long lstats = Fault::calls(Call::lstat);
    (void)File::exists("/", /*followLinks=*/true);
    (void)File::isDirectory("/", /*followLinks=*/true);
    EXPECT_EQ(Fault::calls(Call::stat), stats + 2);
    EXPECT_EQ(Fault::calls(Call::lstat), lstats);
    (void)File::exists("/", /*followLinks=*/false);
    (void)File::isDirectory("/", /*followLinks=*/false);
    EXPECT_EQ(Fault::calls(Call::stat), stats + 2);
    EXPECT_EQ(Fault::calls(Call::lstat), lstats + 2);
}

TEST(FileTest, SizesAreThoseOfTheFileBehindALink) {
    const ScratchDir dir;
    const std::string file = dir.write("file", std::string(5000, 'x'));
    makeLink("file", dir / "link");
    EXPECT_EQ(File::getFileSize(file), 5000U);
    EXPECT_EQ(File::getFileSize(dir / "link"), 5000U);
    struct stat found {};
    ASSERT_EQ(stat(file.c_str(), &found), 0);
    EXPECT_EQ(File::getAllocatedFileSize(dir / "link"),
              static_cast<std::uint64_t>(found.st_blocks) * 512U);
    EXPECT_GE(File::getAllocatedFileSize(file), 5000U);
}

TEST(FileTest, AnEmptyFileTakesNothing) {
    const ScratchDir dir;
    const std::string file = dir.write("empty", "");
    EXPECT_EQ(File::getFileSize(file), 0U);
    EXPECT_EQ(File::getAllocatedFileSize(file), 0U);
}

TEST(FileTest, HolesCountForTheSizeButTakeNoSpace) {
    const ScratchDir dir;
    const std::string file = dir.write("sparse", "");
    constexpr std::uint64_t fiveGiB = 5ULL << 30;  // and more than 32 bits hold
    ASSERT_EQ(truncate(file.c_str(), static_cast<off_t>(fiveGiB)), 0);
    EXPECT_EQ(File::getFileSize(file), fiveGiB);
    EXPECT_LT(File::getAllocatedFileSize(file), fiveGiB);
}

TEST(FileTest, SizesOfAMissingFileAreRefusedWithTheSystemsText) {
    EXPECT_THAT(
        [] { (void)File::getFileSize("/no/such"); },
        ThrowsMessage<IOException>("Could not get size of file '/no/such': " + text(ENOENT)));
    EXPECT_THAT([] { (void)File::getAllocatedFileSize("/no/such"); },
                ThrowsMessage<IOException>("Could not get allocated size of file '/no/such': " +
                                           text(ENOENT)));
}

TEST(FileTest, SizesReportTheErrorOfTheFailedStat) {
    const Fault fault(Call::stat, EOVERFLOW, 1, Fault::fromThenOn);
    EXPECT_THAT([] { (void)File::getFileSize("/"); },
                ThrowsMessage<IOException>("Could not get size of file '/': " + text(EOVERFLOW)));
    EXPECT_THAT(
        [] { (void)File::getAllocatedFileSize("/"); },
        ThrowsMessage<IOException>("Could not get allocated size of file '/': " + text(EOVERFLOW)));
}

// ---- Removing one file ----

TEST(FileTest, RemovesAFileAndALinkButNotWhatTheLinkNames) {
    const ScratchDir dir;
    const std::string file = dir.write("file", "x");
    makeLink("file", dir / "link");
    File::removeFile(dir / "link");
    EXPECT_FALSE(File::exists(dir / "link", /*followLinks=*/false));
    EXPECT_EQ(readFile(file), "x");
    File::removeFile(file);
    EXPECT_FALSE(File::exists(file, /*followLinks=*/false));
}

TEST(FileTest, AFileThatCannotBeRemovedIsNamedInBrackets) {
    const ScratchDir dir;
    const std::string missing = dir / "missing";
    EXPECT_THAT([&] { File::removeFile(missing); },
                ThrowsMessage<IOException>("Cannot remove file [" + missing + "]; error=[" +
                                           text(ENOENT) + "]"));
    EXPECT_THAT([&] { File::removeFile(dir.path()); },
                ThrowsMessage<IOException>("Cannot remove file [" + dir.path() + "]; error=[" +
                                           text(EISDIR) + "]"));
    const Fault fault(Call::unlink, EROFS);
    EXPECT_THAT([&] { File::removeFile(missing); },
                ThrowsMessage<IOException>("Cannot remove file [" + missing + "]; error=[" +
                                           text(EROFS) + "]"));
}

TEST(FileTest, AFailedAllocationPassesThroughListAndRemove) {
    const ScratchDir dir;
    dir.write(std::string(100, 'x'), "");
    const std::set<int> before = openDescriptors();
    Names names;
    {
        const Fault noMemory(Call::operator_new, 0, 1, Fault::fromThenOn);
        EXPECT_THROW((void)File::list(dir.path(), names, /*recursive=*/false), std::bad_alloc);
    }
    {
        const Fault noMemory(Call::operator_new, 0, 1, Fault::fromThenOn);
        EXPECT_THROW((void)File::remove(dir.path(), /*recursive=*/true), std::bad_alloc);
    }
    EXPECT_EQ(openDescriptors(), before);
}

// ---- Text of paths ----

struct PathCase {
    const char* path;
    const char* fileName;
    const char* directory;
    const char* parent;
};
const PathCase kPathCases[] = {
    // clang-format off
    // path        file name  directory   parent
    {"",           "",        "",         ""},
    {"a",          "a",       "a",        "a"},
    {".",          ".",       ".",        "."},
    {"/",          "",        "/",        "/"},
    {"//",         "",        "/",        "/"},
    {"///",        "",        "//",       "/"},
    {"/a",         "a",       "/",        "/"},
    {"/a/",        "",        "/a",       "/"},
    {"//a",        "a",       "/",        "/"},
    {"/a/b",       "b",       "/a",       "/a"},
    {"/a/b/",      "",        "/a/b",     "/a"},
    {"/a/b//",     "",        "/a/b/",    "/a"},
    {"/a/b/ \t",   " \t",     "/a/b",     "/a"},
    {"/a/b/ /",    "",        "/a/b/ ",   "/a"},
    {"/a/b/\n",    "\n",      "/a/b",     "/a/b"},
    {"/a/b/#",     "#",       "/a/b",     "/a/b"},
    {"/a/b \t",    "b \t",    "/a",       "/a"},
    {"/a /",       "",        "/a ",      "/"},
    {"a/",         "",        "a",        "a"},
    {"a/ ",        " ",       "a",        "a"},
    {"a/b",        "b",       "a",        "a"},
    {"a/b/",       "",        "a/b",      "a"},
    {"a//b",       "b",       "a/",       "a/"},
    {" /",         "",        " ",        " "},
    {"  ",         "  ",      "  ",       "  "},
    {"../a/..",    "..",      "../a",     "../a"},
    {"/ ",         " ",       "/",        "/"},
    // clang-format on
};
class FilePathTest : public testing::TestWithParam<PathCase> {};
INSTANTIATE_TEST_SUITE_P(All, FilePathTest, testing::ValuesIn(kPathCases));

TEST_P(FilePathTest, IsTakenApart) {
    const PathCase& expected = GetParam();
    SCOPED_TRACE("[" + std::string(expected.path) + "]");
    EXPECT_EQ(File::getFileNameFromPath(expected.path), expected.fileName);
    EXPECT_EQ(File::getDirectoryNameFromPath(expected.path), expected.directory);
    EXPECT_EQ(File::getParentDirectoryName(expected.path), expected.parent);
}

TEST(FileTest, AParentIsFoundBehindAnyNumberOfSlashes) {
    EXPECT_EQ(File::getParentDirectoryName("/a/b" + std::string(1000000, '/')), "/a");
}

struct ComposeCase {
    const char* directory;
    const char* name;
    const char* path;
};
const ComposeCase kComposeCases[] = {
    // clang-format off
    // directory  name  path
    {"",          "x",  "x"},
    {"",          "",   ""},
    {"/",         "x",  "/x"},
    {"/a",        "x",  "/a/x"},
    {"/a/",       "x",  "/a/x"},
    {"/a//",      "x",  "/a//x"},
    {"/a",        "/x", "/a//x"},
    {"/a/",       "/x", "/a//x"},
    {"",          "/x", "/x"},
    {"/a",        "",   "/a/"},
    {"/",         "",   "/"},
    // clang-format on
};

TEST(FileTest, ComposesAPathWithOneSlashUnlessThereIsOne) {
    for (const ComposeCase& expected : kComposeCases) {
        EXPECT_EQ(File::composeFullPath(expected.directory, expected.name), expected.path)
            << "[" << expected.directory << "] and [" << expected.name << "]";
    }
}

// ---- Making directories ----

TEST(FileTest, MakesAllMissingParents) {
    const ScratchDir dir;
    EXPECT_TRUE(File::makeDirectory(dir / "a/b/c", /*recursive=*/true));
    EXPECT_TRUE(File::isDirectory(dir / "a/b/c", /*followLinks=*/false));
    EXPECT_TRUE(File::makeDirectory(dir / "x//y/", /*recursive=*/true));
    EXPECT_TRUE(File::isDirectory(dir / "x/y", /*followLinks=*/false));
}

TEST(FileTest, TheParentOfABlankNameIsNotMade) {
    const ScratchDir dir;
    EXPECT_FALSE(File::makeDirectory(dir / "a/ ", /*recursive=*/true));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(File::exists(dir / "a", /*followLinks=*/false));
}

TEST(FileTest, MakesNoParentsUnlessToldTo) {
    const ScratchDir dir;
    EXPECT_FALSE(File::makeDirectory(dir / "a/b", /*recursive=*/false));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(File::exists(dir / "a", /*followLinks=*/false));
    EXPECT_TRUE(File::makeDirectory(dir / "a", /*recursive=*/false));
    EXPECT_TRUE(File::makeDirectory(dir / "a/b", /*recursive=*/false));
}

TEST(FileTest, ADirectoryThatIsThereIsLeftAlone) {
    const ScratchDir dir;
    makeDirectories(dir, {"old"});
    makeLink("old", dir / "link");
    const unsigned long made = Fault::calls(Call::mkdir);
    EXPECT_TRUE(File::makeDirectory(dir / "old", /*recursive=*/true));
    EXPECT_TRUE(File::makeDirectory(dir / "link", /*recursive=*/false));
    EXPECT_EQ(Fault::calls(Call::mkdir), made);
}

TEST(FileTest, AFileInTheWayOfADirectoryIsLeftAlone) {
    const ScratchDir dir;
    const std::string file = dir.write("file", "content");
    for (const bool recursive : {true, false}) {
        EXPECT_FALSE(File::makeDirectory(file, recursive));
        EXPECT_FALSE(File::makeDirectory(file + "/below", recursive));
        EXPECT_EQ(errno, ENOTDIR);
    }
    EXPECT_EQ(readFile(file), "content");
}

TEST(FileTest, ADanglingLinkInTheWayOfADirectoryIsLeftAlone) {
    const ScratchDir dir;
    makeLink("nowhere", dir / "link");
    for (const bool recursive : {true, false}) {
        EXPECT_FALSE(File::makeDirectory(dir / "link", recursive));
        EXPECT_EQ(errno, EEXIST);
    }
    EXPECT_FALSE(File::makeDirectory(dir / "link/below", /*recursive=*/true));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_TRUE(File::exists(dir / "link", /*followLinks=*/false));
    EXPECT_FALSE(File::exists(dir / "nowhere", /*followLinks=*/false));
}

TEST(FileTest, OnlyAMissingNameIsMadeADirectory) {
    const ScratchDir dir;
    const unsigned long made = Fault::calls(Call::mkdir);
    const Fault fault(Call::stat, EACCES);
    EXPECT_FALSE(File::makeDirectory(dir / "a", /*recursive=*/true));
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(Fault::calls(Call::mkdir), made);
}

TEST(FileTest, TheFirstParentThatFailsEndsTheMaking) {
    const ScratchDir dir;
    const unsigned long made = Fault::calls(Call::mkdir);
    const Fault fault(Call::mkdir, ENOSPC);
    EXPECT_FALSE(File::makeDirectory(dir / "a/b/c", /*recursive=*/true));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(Fault::calls(Call::mkdir), made + 1);
}

TEST(FileTest, ADirectoryMadeMeanwhileIsAFailure) {
    const ScratchDir dir;
    const Fault lateLook(Call::stat, ENOENT);
    EXPECT_FALSE(File::makeDirectory(dir.path(), /*recursive=*/false));
    EXPECT_EQ(errno, EEXIST);
}

// Goes to a directory, and back at the end.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::string& path) : old(open(".", O_RDONLY | O_DIRECTORY)) {
        EXPECT_EQ(chdir(path.c_str()), 0);
    }
    ~WorkingDirectory() {
        EXPECT_EQ(fchdir(old), 0);
        close(old);
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    int old;
};

TEST(FileTest, ABareNameIsItsOwnParentAndIsMade) {
    const ScratchDir dir;
    const WorkingDirectory there(dir.path());
    EXPECT_TRUE(File::makeDirectory("bare", /*recursive=*/true));
    EXPECT_TRUE(File::isDirectory(dir / "bare", /*followLinks=*/false));
    EXPECT_FALSE(File::makeDirectory("", /*recursive=*/true));
}

TEST(FileTest, ABareNameWithASlashIsMadeAsItsOwnParentAndThenFails) {
    const ScratchDir dir;
    const WorkingDirectory there(dir.path());
    EXPECT_FALSE(File::makeDirectory("bare/", /*recursive=*/true));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_TRUE(File::isDirectory(dir / "bare", /*followLinks=*/false));
    EXPECT_TRUE(File::makeDirectory("other/", /*recursive=*/false));
}

TEST(FileTest, TwoSlashesBehindABareNameEndTheFirstMakingButNotTheSecond) {
    const ScratchDir dir;
    const WorkingDirectory there(dir.path());
    EXPECT_FALSE(File::makeDirectory("a//b", /*recursive=*/true));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_TRUE(File::isDirectory("a", /*followLinks=*/false));
    EXPECT_FALSE(File::exists("a/b", /*followLinks=*/false));
    EXPECT_TRUE(File::makeDirectory("a//b", /*recursive=*/true));
    EXPECT_TRUE(File::isDirectory("a/b", /*followLinks=*/false));
}

TEST(FileTest, ASlashAndBlanksBehindTwoNamesMakeTheFirstAlone) {
    const ScratchDir dir;
    const WorkingDirectory there(dir.path());
    EXPECT_FALSE(File::makeDirectory("a/b/ ", /*recursive=*/true));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(File::isDirectory("a", /*followLinks=*/false));
    EXPECT_FALSE(File::exists("a/b", /*followLinks=*/false));
}

TEST(FileTest, NewDirectoriesGetEveryPermissionThatTheUmaskLeaves) {
    for (const mode_t withheld : {027U, 0U}) {
        const ScratchDir dir;
        const Umask mask(withheld);
        EXPECT_TRUE(File::makeDirectory(dir / "a/b", /*recursive=*/true));
        EXPECT_EQ(permissions(dir / "a"), 0777U & ~withheld);
        EXPECT_EQ(permissions(dir / "a/b"), 0777U & ~withheld);
    }
}

// ---- Copying ----

class FileCopyTest : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(Sizes, FileCopyTest,
                         testing::Values(0, 1, 4095, 4096, 4097, 8191, 8192, 8193, 1 << 20));

TEST_P(FileCopyTest, GivesTheSameContent) {
    const ScratchDir dir;
    std::string content(GetParam(), '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 / 3);
    const std::string source = dir.write("source", content);
    File::copy(source, dir / "copy");
    EXPECT_EQ(readFile(dir / "copy"), content);
    EXPECT_EQ(readFile(source), content);
}

TEST(FileTest, ContentIsCopiedInStepsOf4096) {
    const ScratchDir dir;
    const auto writesToCopy = [&](std::size_t size) {
        const std::string source = dir.write("source", std::string(size, 'x'));
        const auto writes = [] { return Fault::calls(Call::write) + Fault::calls(Call::writev); };
        const unsigned long before = writes();
        File::copy(source, dir / "copy");
        return writes() - before;
    };
    EXPECT_EQ(writesToCopy(4097), 2U) << "steps are no longer";
    EXPECT_EQ(writesToCopy(3 * 4096), 3U) << "steps are no shorter";
}

TEST(FileTest, ACopyIsClosedAfterItsSourceAndThenGetsItsPermissions) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "held back until the closing");
    const Trail trail({Call::fclose, Call::write, Call::chmod});
    File::copy(source, dir / "copy");
    EXPECT_THAT(trail.ofParent(),
                ElementsAre("fclose()", StartsWith("write("), "fclose()", "chmod()"));
}

TEST(FileTest, ACopyHasThePermissionBitsOfItsSource) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "");
    const Umask mask(077);
    for (const mode_t mode : {04755U, 02711U, 01777U, 0400U, 0644U}) {
        ASSERT_EQ(chmod(source.c_str(), mode), 0);
        File::copy(source, dir / "copy");
        EXPECT_EQ(permissions(dir / "copy"), mode);
        File::removeFile(dir / "copy");
    }
}

TEST(FileTest, ACopyDoesNotHaveTheTimesOfItsSource) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "content");
    const timespec longAgo[] = {{1000, 0}, {2000, 0}};  // read and changed
    ASSERT_EQ(utimensat(AT_FDCWD, source.c_str(), longAgo, 0), 0);
    File::copy(source, dir / "copy");
    struct stat copied {};
    ASSERT_EQ(stat((dir / "copy").c_str(), &copied), 0);
    EXPECT_GT(copied.st_atim.tv_sec, 2000);
    EXPECT_GT(copied.st_mtim.tv_sec, 2000);
}

// A file of somebody else's: root gives one away, others find one.
std::string foreignFile(const ScratchDir& dir) {
    const std::string file = dir.write("foreign", "content");
    return chown(file.c_str(), 12345, 54321) == 0 ? file : "/etc/passwd";
}

TEST(FileTest, ACopyBelongsToWhoeverMadeIt) {
    const ScratchDir dir;
    const std::string source = foreignFile(dir);
    struct stat original {};
    ASSERT_EQ(stat(source.c_str(), &original), 0);
    ASSERT_NE(original.st_uid, geteuid());
    ASSERT_NE(original.st_gid, getegid());
    File::copy(source, dir / "copy");
    struct stat copied {};
    ASSERT_EQ(stat((dir / "copy").c_str(), &copied), 0);
    EXPECT_EQ(copied.st_uid, geteuid());
    EXPECT_EQ(copied.st_gid, getegid());
}

TEST(FileTest, CopyingOverALongerFileLeavesNoneOfItsContent) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "short");
    ASSERT_EQ(chmod(source.c_str(), 0640), 0);
    const std::string copy = dir.write("copy", std::string(10000, 'x'));
    File::copy(source, copy);
    EXPECT_EQ(readFile(copy), "short");
    EXPECT_EQ(permissions(copy), 0640U);
}

TEST(FileTest, CopyingFollowsALink) {
    const ScratchDir dir;
    dir.write("file", "content");
    makeLink("file", dir / "link");
    File::copy(dir / "link", dir / "copy");
    EXPECT_TRUE(File::exists(dir / "copy", /*followLinks=*/false));
    EXPECT_EQ(readFile(dir / "copy"), "content");
}

TEST(FileTest, CopyingAFileToItselfEmptiesIt) {
    const ScratchDir dir;
    const std::string file = dir.write("file", "content");
    File::copy(file, file);
    EXPECT_EQ(readFile(file), "");
}

TEST(FileTest, CopyingAMissingFileLeavesTheDestination) {
    const ScratchDir dir;
    const std::string copy = dir.write("copy", "old");
    const std::string missing = dir / "missing";
    EXPECT_THAT([&] { File::copy(missing, copy); },
                ThrowsMessage<IOException>("Could not find file '" + missing + "'"));
    EXPECT_EQ(readFile(copy), "old");
}

TEST(FileTest, CopyingAFileThatCannotBeOpenedLeavesTheDestination) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "new");
    const std::string copy = dir.write("copy", "old");
    const Fault pretend(Call::fopen64, EACCES);
    EXPECT_THAT([&] { File::copy(source, copy); },
                ThrowsMessage<IOException>("Could not open source file '" + source + "'"));
    EXPECT_EQ(readFile(copy), "old");
}

TEST(FileTest, CopyingToAMissingDirectoryNamesTheDestination) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "");
    const std::string copy = dir / "missing/copy";
    EXPECT_THAT([&] { File::copy(source, copy); },
                ThrowsMessage<IOException>("Could not open destination file '" + copy + "'"));
}

TEST(FileTest, ADestinationThatCannotBeOpenedIsLeftAsItWas) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "new");
    makeDirectories(dir, {"copy"});
    EXPECT_THAT(
        [&] { File::copy(source, dir / "copy"); },
        ThrowsMessage<IOException>("Could not open destination file '" + (dir / "copy") + "'"));
    EXPECT_TRUE(File::isDirectory(dir / "copy", /*followLinks=*/false));
}

TEST(FileTest, AReadErrorRemovesTheDestination) {
    const ScratchDir dir;
    makeDirectories(dir, {"source"});  // can be opened, but not read
    const std::string copy = dir.write("copy", "old");
    EXPECT_THAT([&] { File::copy(dir / "source", copy); },
                ThrowsMessage<IOException>("Error reading from file '" + (dir / "source") + "'"));
    EXPECT_FALSE(File::exists(copy, /*followLinks=*/false));
}

TEST(FileTest, AReadErrorInTheMiddleRemovesTheDestination) {
    const ScratchDir dir;
    const std::string source = dir.write("source", std::string(100000, 'x'));
    const Fault fault(Call::read, EIO, 3);
    EXPECT_THAT([&] { File::copy(source, dir / "copy"); },
                ThrowsMessage<IOException>("Error reading from file '" + source + "'"));
    EXPECT_FALSE(File::exists(dir / "copy", /*followLinks=*/false));
}

TEST(FileTest, AWriteErrorRemovesTheDestination) {
    const ScratchDir dir;
    const std::string source = dir.write("source", std::string(100000, 'x'));
    const Fault noWrite(Call::write, ENOSPC, 1, Fault::fromThenOn);
    const Fault noWritev(Call::writev, ENOSPC, 2, Fault::fromThenOn);
    EXPECT_THAT([&] { File::copy(source, dir / "copy"); },
                ThrowsMessage<IOException>("Error writing to file '" + (dir / "copy") + "'"));
    EXPECT_FALSE(File::exists(dir / "copy", /*followLinks=*/false));
}

TEST(FileTest, AFailedLastFlushIsNotReported) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "content");
    {
        const Fault noWrite(Call::write, ENOSPC, 1, Fault::fromThenOn);
        const Fault noWritev(Call::writev, ENOSPC, 1, Fault::fromThenOn);
        File::copy(source, dir / "copy");
        EXPECT_TRUE(noWrite.hasFired() || noWritev.hasFired());
    }
    EXPECT_EQ(readFile(dir / "copy"), "");
}

// Closes the descriptors that a close left open by failing.
class LeftOpen {
public:
    ~LeftOpen() {
        for (const int descriptor : openDescriptors()) {
            if (before.count(descriptor) == 0) close(descriptor);
        }
    }

private:
    const std::set<int> before = openDescriptors();
};

TEST(FileTest, AFailedCloseOfACopyIsNotReported) {
    for (const unsigned long nth : {1UL, 2UL}) {  // of the source, of the destination
        const ScratchDir dir;
        const std::string source = dir.write("source", "content");
        ASSERT_EQ(chmod(source.c_str(), 0604), 0);
        const LeftOpen leftOpen;
        const Fault fault(Call::fclose, EIO, nth);
        File::copy(source, dir / "copy");
        EXPECT_TRUE(fault.hasFired()) << nth;
        EXPECT_EQ(readFile(dir / "copy"), "content") << nth;
        EXPECT_EQ(permissions(dir / "copy"), 0604U) << nth;
    }
}

// What a copy that fails at its end would leave if it could not be removed either.
TEST(FileTest, ANewDestinationBeginsWithTheDefaultModeAndAnOldOneWithItsOwn) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "content");
    ASSERT_EQ(chmod(source.c_str(), 0777), 0);
    const std::string old = dir.write("old", "longer than the content");
    ASSERT_EQ(chmod(old.c_str(), 0600), 0);
    const Umask mask(027);
    for (const std::string& copy : {dir / "new", old}) {
        const Fault noChmod(Call::chmod, EPERM);
        const Fault noUnlink(Call::unlink, EROFS);
        EXPECT_THROW(File::copy(source, copy), IOException);
        EXPECT_EQ(permissions(copy), copy == old ? 0600U : 0640U);
    }
}

TEST(FileTest, PermissionsThatCannotBeSetRemoveTheDestination) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "content");
    const std::string copy = dir.write("copy", "old");
    const Fault fault(Call::chmod, EPERM);
    EXPECT_THAT([&] { File::copy(source, copy); },
                ThrowsMessage<IOException>("Could not set permissions for file '" + copy + "'"));
    EXPECT_FALSE(File::exists(copy, /*followLinks=*/false));
}

// The last allocation of a copy that fails is that of its message.
TEST(FileTest, ACopyWithoutMemoryForItsMessageEndsTheProcessButRemovesTheDestination) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "content");
    const std::string copy = dir / "copy";
    const unsigned long before = Fault::calls(Call::operator_new);
    File::copy(source, copy);
    const unsigned long ofACopy = Fault::calls(Call::operator_new) - before;
    const pid_t process = fork();
    if (process == 0) {
        const Fault noChmod(Call::chmod, EPERM);
        const Fault noMemory(Call::operator_new, 0, ofACopy + 1, Fault::fromThenOn);
        try {
            File::copy(source, copy);
        } catch (...) {
        }
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
    EXPECT_FALSE(File::exists(copy, /*followLinks=*/false));
}

#if !TARNUTIL_TEST_ASAN
TEST(FileTest, ACancelledCopyRemovesTheDestination) {
    const ScratchDir dir;
    const std::string source = dir / "source";
    const std::string copy = dir.write("copy", "old");
    ASSERT_EQ(mkfifo(source.c_str(), 0600), 0);
    const std::set<int> before = openDescriptors();
    const unsigned long reads = Fault::calls(Call::read);
    std::promise<pthread_t> copying;
    auto cancelled = std::async(std::launch::async, [&] {
        return endsCancelled([&] {
            copying.set_value(pthread_self());
            File::copy(source, copy);
        });
    });
    const int silent = open(source.c_str(), O_WRONLY);
    while (Fault::calls(Call::read) == reads) std::this_thread::yield();
    pthread_cancel(copying.get_future().get());
    EXPECT_TRUE(cancelled.get());
    close(silent);
    EXPECT_FALSE(File::exists(copy, /*followLinks=*/false));
    EXPECT_EQ(openDescriptors(), before);
}
#endif

TEST(FileTest, AFailedRemovalAfterAFailedCopyChangesNothing) {
    const ScratchDir dir;
    const std::string source = dir.write("source", "content");
    const Fault noChmod(Call::chmod, EPERM);
    const Fault noUnlink(Call::unlink, EROFS);
    EXPECT_THAT(
        [&] { File::copy(source, dir / "copy"); },
        ThrowsMessage<IOException>("Could not set permissions for file '" + (dir / "copy") + "'"));
    EXPECT_TRUE(noUnlink.hasFired());
    EXPECT_EQ(readFile(dir / "copy"), "content");
}

TEST(FileTest, NoFailureOfACopyLeaksOrReportsAnythingElse) {
    const ScratchDir dir;
    const std::string source = dir.write("source", std::string(20000, 'x'));
    const std::string copy = dir / "copy";
    const Names messages = {
        "Could not find file '" + source + "'",
        "Could not open source file '" + source + "'",
        "Could not open destination file '" + copy + "'",
        "Error reading from file '" + source + "'",
        "Error writing to file '" + copy + "'",
        "Could not set permissions for file '" + copy + "'",
    };
    Names seen;
    failEachCallInTurn(
        {Call::stat, Call::fopen64, Call::read, Call::writev, Call::chmod}, EIO,
        [&] { File::copy(source, copy); },
        [&](const Failure& failure) { seen.insert(failure.messageOf<IOException>()); });
    EXPECT_EQ(seen, messages);
}

// ---- Listing ----

// x, and s with y in it, and s/t with z in it.
void makeTree(const ScratchDir& dir) {
    makeDirectories(dir, {"s", "s/t"});
    for (const char* file : {"x", "s/y", "s/t/z"}) dir.write(file, file);
}

TEST(FileTest, ListsHiddenNamesButNotTheDirectoryItself) {
    const ScratchDir dir;
    makeDirectories(dir, {"...", ".hidden"});
    dir.write("..file", "");
    Names names;
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/false));
    EXPECT_THAT(names, ElementsAre("...", "..file", ".hidden"));
}

TEST(FileTest, ListingAnEmptyDirectoryAddsNothing) {
    const ScratchDir dir;
    Names names = {"old"};
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_THAT(names, ElementsAre("old"));
}

TEST(FileTest, ListingAMissingDirectoryAddsNothingAndFails) {
    const ScratchDir dir;
    for (const bool recursive : {true, false}) {
        Names names = {"old"};
        EXPECT_FALSE(File::list(dir / "missing", names, recursive));
        EXPECT_EQ(errno, ENOENT);
        EXPECT_FALSE(File::list(dir.write("file", ""), names, recursive));
        EXPECT_EQ(errno, ENOTDIR);
        EXPECT_THAT(names, ElementsAre("old"));
    }
}

TEST(FileTest, ListingAddsToWhatIsThere) {
    const ScratchDir dir;
    makeTree(dir);
    Names names = {"a", "x", "zz"};
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/false));
    EXPECT_THAT(names, ElementsAre("a", "s", "x", "zz"));
}

TEST(FileTest, ARecursiveListingGoesOneLevelDown) {
    const ScratchDir dir;
    makeTree(dir);
    Names names;
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_THAT(names, ElementsAre("s", "s/t", "s/y", "x"));
}

TEST(FileTest, ARecursiveListingDoesNotEnterLinks) {
    const ScratchDir dir;
    makeTree(dir);
    makeLink("s", dir / "link");
    Names names;
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_THAT(names, ElementsAre("link", "s", "s/t", "s/y", "x"));
}

TEST(FileTest, ARecursiveListingLooksUpTheNamesThatWereThereBefore) {
    const ScratchDir dir;
    makeTree(dir);
    Names names = {"s/t", "gone"};
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_THAT(names, ElementsAre("gone", "s", "s/t", "s/t/z", "s/y", "x"));
}

TEST(FileTest, AReadErrorEndsTheListingButKeepsItsNames) {
    const ScratchDir dir;
    for (const char* file : {"a", "b", "c"}) dir.write(file, "");
    Names names;
    const std::set<int> before = openDescriptors();
    const Fault fault(Call::readdir_r, EIO, 5);  // two of the five entries are "." and ".."
    EXPECT_FALSE(File::list(dir.path(), names, /*recursive=*/false));
    EXPECT_GE(names.size(), 2U);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(FileTest, ADirectoryThatCannotBeOpenedIsNotGoneDownInto) {
    const ScratchDir dir;
    makeTree(dir);
    Names names = {"s"};
    const Fault fault(Call::opendir, EACCES);
    EXPECT_FALSE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_TRUE(fault.hasFired());
    EXPECT_THAT(names, ElementsAre("s"));
}

TEST(FileTest, AListingThatBrokeOffStillGoesDown) {
    const ScratchDir dir;
    makeTree(dir);
    Names names = {"s"};
    const Fault fault(Call::readdir_r, EIO);
    EXPECT_FALSE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_THAT(names, ElementsAre("s", "s/t", "s/y"));
}

TEST(FileTest, ASubdirectoryThatCannotBeListedIsPassedOver) {
    const ScratchDir dir;
    makeTree(dir);
    Names names;
    const Fault fault(Call::opendir, EACCES, 2);
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_TRUE(fault.hasFired());
    EXPECT_THAT(names, ElementsAre("s", "x"));
}

TEST(FileTest, ASubdirectoryWhoseListingBreaksOffKeepsItsNames) {
    const ScratchDir dir;
    makeTree(dir);
    Names names;
    const Fault fault(Call::readdir_r, EIO, 10);  // five calls for the tree, the fifth of "s"
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_TRUE(fault.hasFired());
    EXPECT_THAT(names, ElementsAre("s", "s/t", "s/y", "x"));
}

TEST(FileTest, ADirectoryIsClosedBeforeItsSubdirectoriesAreOpened) {
    const ScratchDir dir;
    makeTree(dir);
    const unsigned long closed = Fault::calls(Call::closedir);
    const Fault fault(Call::opendir, EACCES, 2);
    Names names;
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/true));
    EXPECT_EQ(Fault::calls(Call::closedir), closed + 1);
}

// ---- Removing trees ----

TEST(FileTest, RemovesAFileAndAnEmptyDirectory) {
    const ScratchDir dir;
    makeDirectories(dir, {"a", "b"});
    for (const bool recursive : {true, false}) {
        const std::string file = dir.write("file", "");
        EXPECT_TRUE(File::remove(file, recursive));
        EXPECT_FALSE(File::exists(file, /*followLinks=*/false));
    }
    EXPECT_TRUE(File::remove(dir / "a", /*recursive=*/true));
    EXPECT_TRUE(File::remove(dir / "b", /*recursive=*/false));
    Names names;
    EXPECT_TRUE(File::list(dir.path(), names, /*recursive=*/false));
    EXPECT_THAT(names, IsEmpty());
}

TEST(FileTest, RemovesATreeOfAnyDepth) {
    const ScratchDir dir;
    EXPECT_TRUE(File::makeDirectory(dir / "t/a/b/c/d/e", /*recursive=*/true));
    for (const char* file : {"t/f", "t/a/.g", "t/a/b/c/d/e/h"}) dir.write(file, "x");
    EXPECT_TRUE(File::remove(dir / "t", /*recursive=*/true));
    EXPECT_FALSE(File::exists(dir / "t", /*followLinks=*/false));
}

TEST(FileTest, ANonEmptyDirectoryIsOnlyRemovedRecursively) {
    const ScratchDir dir;
    makeTree(dir);
    EXPECT_FALSE(File::remove(dir / "s", /*recursive=*/false));
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_TRUE(File::exists(dir / "s/t/z", /*followLinks=*/false));
}

TEST(FileTest, ALinkToADirectoryIsRemovedAsALink) {
    const ScratchDir dir;
    makeTree(dir);
    makeDirectories(dir, {"d"});
    makeLink("../s", dir / "d/link");
    EXPECT_TRUE(File::remove(dir / "d", /*recursive=*/true));
    EXPECT_TRUE(File::exists(dir / "s/t/z", /*followLinks=*/false));
}

TEST(FileTest, RemovingWhatIsMissingFails) {
    const ScratchDir dir;
    for (const bool recursive : {true, false}) {
        EXPECT_FALSE(File::remove(dir / "missing", recursive));
        EXPECT_EQ(errno, ENOENT);
    }
}

TEST(FileTest, ADirectoryThatCannotBeListedIsLeft) {
    const ScratchDir dir;
    makeTree(dir);
    {
        const Fault fault(Call::opendir, EACCES);
        EXPECT_FALSE(File::remove(dir / "s", /*recursive=*/true));
        EXPECT_EQ(errno, EACCES);
    }
    {
        const Fault fault(Call::readdir_r, EIO, 3);
        EXPECT_FALSE(File::remove(dir / "s", /*recursive=*/true));
    }
    EXPECT_TRUE(File::exists(dir / "s/y", /*followLinks=*/false));
    EXPECT_TRUE(File::exists(dir / "s/t/z", /*followLinks=*/false));
}

TEST(FileTest, TheFirstEntryThatStaysEndsTheRemoval) {
    const ScratchDir dir;
    makeDirectories(dir, {"d"});
    for (const char* file : {"d/a", "d/b", "d/c"}) dir.write(file, "");
    const Fault fault(Call::remove, EBUSY, 2);
    EXPECT_FALSE(File::remove(dir / "d", /*recursive=*/true));
    EXPECT_EQ(errno, EBUSY);
    Names names;
    EXPECT_TRUE(File::list(dir / "d", names, /*recursive=*/false));
    EXPECT_THAT(names, ElementsAre("b", "c"));
}

TEST(FileTest, ADirectoryThatStaysWhenItIsEmptyIsAFailure) {
    const ScratchDir dir;
    makeDirectories(dir, {"d"});
    dir.write("d/a", "");
    const Fault fault(Call::remove, EBUSY, 2);
    EXPECT_FALSE(File::remove(dir / "d", /*recursive=*/true));
    EXPECT_EQ(errno, EBUSY);
    EXPECT_FALSE(File::exists(dir / "d/a", /*followLinks=*/false));
    EXPECT_TRUE(File::isDirectory(dir / "d", /*followLinks=*/false));
}

TEST(FileTest, EveryRemovalLooksFirstWhetherItIsADirectory) {
    const ScratchDir dir;
    const unsigned long looks = Fault::calls(Call::lstat);
    EXPECT_TRUE(File::remove(dir.write("file", ""), /*recursive=*/false));
    EXPECT_EQ(Fault::calls(Call::lstat), looks + 1);
}

// ---- FileCloser ----

TEST(FileCloserTest, ClosesItsStreamAtTheEnd) {
    const std::set<int> before = openDescriptors();
    {
        const FileCloser closer(fopen("/dev/null", "r"));
        EXPECT_NE(openDescriptors(), before);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(FileCloserTest, ClosesItsStreamOnce) {
    const std::set<int> before = openDescriptors();
    const unsigned long closed = Fault::calls(Call::fclose);
    {
        FileCloser closer(fopen("/dev/null", "r"));
        closer.close();
        EXPECT_EQ(openDescriptors(), before);
        closer.close();
    }
    EXPECT_EQ(Fault::calls(Call::fclose), closed + 1);
}

TEST(FileCloserTest, TakesNoStreamForNothingToDo) {
    const unsigned long closed = Fault::calls(Call::fclose);
    {
        FileCloser closer(nullptr);
        closer.close();
    }
    EXPECT_EQ(Fault::calls(Call::fclose), closed);
}

TEST(FileCloserTest, ClosingOutlastsACancellation) {
    const ScratchDir dir;
    const std::set<int> before = openDescriptors();
    for (const bool atTheEnd : {false, true}) {
        const std::string path = dir / (atTheEnd ? "destroyed" : "closed");
        bool closed = false;
        EXPECT_TRUE(endsCancelled([&] {
            {
                FILE* const stream = fopen(path.c_str(), "w");
                FileCloser closer(stream);
                EXPECT_GE(fputs("unwritten until now", stream), 0);
                pthread_cancel(pthread_self());
                if (!atTheEnd) closer.close();
            }
            closed = true;
            pthread_testcancel();
        })) << "the cancellation comes once the stream is closed";
        EXPECT_TRUE(closed);
        EXPECT_EQ(readFile(path), "unwritten until now");
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(FileCloserTest, AFailedCloseIsNotReportedAndNotRepeated) {
    FILE* const stream = fopen("/dev/null", "r");
    const unsigned long closed = Fault::calls(Call::fclose);
    {
        const Fault fault(Call::fclose, EIO);
        FileCloser closer(stream);
        closer.close();
    }
    EXPECT_EQ(Fault::calls(Call::fclose), closed + 1);
    EXPECT_EQ(fclose(stream), 0);
}

}  // namespace
