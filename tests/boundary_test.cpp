// SPDX-License-Identifier: Apache-2.0
// What may leave an operation: the class that it documents. A failed allocation inside it ends the
// process.
#include "../util/boundary.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <tarnutil/Condition.h>
#include <tarnutil/CryptoUtil.h>
#include <tarnutil/Exception.h>
#include <tarnutil/Executor.h>
#include <tarnutil/File.h>
#include <tarnutil/Mutex.h>
#include <tarnutil/Pipe.h>
#include <tarnutil/ProcessExecutor.h>
#include <tarnutil/StringUtil.h>
#include <tarnutil/Thread.h>
#include <tarnutil/TmpFile.h>

#include "fault.h"

using namespace tarnutil;
using namespace tarnutil_test;

TEST(AdmitOnlyTest, ReturnsTheResult) {
    EXPECT_EQ(admitOnly<Exception>([] { return 3; }), 3);
    int effect = 0;
    admitOnly<Exception>([&] { effect = 1; });
    EXPECT_EQ(effect, 1);
}

TEST(AdmitOnlyTest, LetsTheClassAndItsDescendantsOut) {
    EXPECT_THROW(admitOnly<Exception>([] { throw Exception("m"); }), Exception);
    EXPECT_THROW(admitOnly<Exception>([] { throw IOException("m"); }), IOException);
}

TEST(AdmitOnlyDeathTest, EndsTheProcessForAnythingElse) {
    EXPECT_EXIT(admitOnly<IOException>([] { throw Exception("m"); }),
                testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(admitOnly<Exception>([] { throw std::runtime_error("m"); }),
                testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(admitOnly<Exception>([] { throw 1; }), testing::KilledBySignal(SIGABRT), "");
}

void cancelThisThread() {
    pthread_cancel(pthread_self());
    pthread_testcancel();
}

// The result of a thread that does `work` and then ends with null.
void* resultOfThread(void* (*work)(void*)) {
    pthread_t thread;
    void* result = nullptr;
    EXPECT_EQ(pthread_create(&thread, nullptr, work, nullptr), 0);
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result;
}

TEST(AdmitOnlyTest, LetsCancellationOfTheThreadThrough) {
    const auto cancelInside = [](void*) -> void* {
        admitOnly<Exception>(cancelThisThread);
        return nullptr;
    };
    EXPECT_EQ(resultOfThread(cancelInside), PTHREAD_CANCELED);
}

TEST(DropExceptionsTest, DropsWhateverIsThrown) {
    dropExceptions([] { throw Exception("m"); });
    dropExceptions([] { throw 1; });
    bool ran = false;
    dropExceptions([&] { ran = true; });
    EXPECT_TRUE(ran);
}

TEST(DropExceptionsTest, LetsCancellationOfTheThreadThrough) {
    const auto cancelInside = [](void*) -> void* {
        dropExceptions(cancelThisThread);
        return nullptr;
    };
    EXPECT_EQ(resultOfThread(cancelInside), PTHREAD_CANCELED);
}

struct BoundaryCase {
    const char* operation;
    void (*run)();
};

// Each allocates on its own while an allocation fails.
const std::string kLongPath(200, 'x');

// Made before memory runs out: what a batch takes by value is the caller's to allocate.
std::vector<Runnable*> prepared_batch(1);

const std::vector<unsigned char> kBytes(100, 'x');

void createBelowALongPath() {
    setenv("TMPDIR", kLongPath.c_str(), /*overwrite=*/1);
    TmpFile().create(/*directory=*/true);
}

class Idle : public Runnable {
public:
    void run() override {}
};

Thread prepared_thread(std::unique_ptr<Runnable>(new Idle), /*startDetached=*/false);

void buildNoMutex() {
    const Fault fault(Call::pthread_mutex_init, ENOMEM);
    const Mutex mutex(/*abort=*/false, Mutex::NORMAL);
}

void tryInVain() {
    Mutex mutex(/*abort=*/false, Mutex::NORMAL);
    const Fault fault(Call::pthread_mutex_trylock, EINVAL);
    if (mutex.tryLock()) mutex.unlock();
}

void buildNoCondition() {
    const Fault fault(Call::pthread_cond_init, EAGAIN);
    const Condition condition(/*abort=*/false);
}

void signalInVain() {
    Condition condition(/*abort=*/false);
    const Fault fault(Call::pthread_cond_signal, EINVAL);
    condition.signal();
}

void broadcastInVain() {
    Condition condition(/*abort=*/false);
    const Fault fault(Call::pthread_cond_broadcast, EINVAL);
    condition.broadcast();
}

void waitInVain() {
    Mutex mutex(/*abort=*/false, Mutex::NORMAL);
    Condition condition(/*abort=*/false);
    const Mutex::LockHolder lock(mutex);
    const Fault fault(Call::pthread_cond_wait, EINVAL);
    condition.wait(mutex);
}

void waitForADeadlineInVain() {
    Mutex mutex(/*abort=*/false, Mutex::NORMAL);
    Condition condition(/*abort=*/false);
    const Mutex::LockHolder lock(mutex);
    const Fault fault(Call::pthread_cond_timedwait, EINVAL);
    (void)condition.timedWait(mutex, 0);
}

// A field of 100 bytes, and what else the operations are given, made before memory runs out too.
std::vector<unsigned char> prepared_field = [] {
    std::vector<unsigned char> field(104, 'x');
    field[0] = 100;
    field[1] = field[2] = field[3] = 0;
    return field;
}();
std::vector<unsigned char> prepared_bytes = kBytes;
std::vector<unsigned char> prepared_empty;
std::string prepared_base64(100, 'A');

void readALongString() {
    unsigned char* cursor = prepared_field.data();
    unsigned long remaining = prepared_field.size();
    (void)CryptoUtil::getString(cursor, remaining);
}

void readAnIntegerOfThreeBytes() {
    unsigned char* cursor = prepared_field.data();
    unsigned long remaining = 3;
    (void)CryptoUtil::getUInt32T(cursor, remaining);
}

void forkInVain() {
    ProcessExecutor child("");
    const Fault fault(Call::fork, EAGAIN);
    const char* argv[] = {nullptr};
    child.exec(argv);
}

void signalAChildInVain() {
    ProcessExecutor child("/bin/cat");
    const char* argv[] = {"cat", nullptr};
    child.exec(argv);
    const Fault fault(Call::kill, EPERM);
    child.kill(SIGTERM);
}

const BoundaryCase kBoundaryCases[] = {
    {"Mutex", buildNoMutex},
    {"Mutex::tryLock", tryInVain},
    {"Mutex::unlock", [] { Mutex(/*abortOnError=*/false, Mutex::ERRORCHECK).unlock(); }},
    {"Condition", buildNoCondition},
    {"Condition::signal", signalInVain},
    {"Condition::broadcast", broadcastInVain},
    {"Condition::wait", waitInVain},
    {"Condition::timedWait", waitForADeadlineInVain},
    {"Thread", [] { const Thread thread(nullptr, /*detached=*/false); }},
    {"Thread::getHasExited", [] { (void)prepared_thread.getHasExited(); }},
    {"Thread::join", [] { (void)prepared_thread.join(); }},
    {"Thread::detach", [] { prepared_thread.detach(); }},
    {"Executor::execute",
     [] { Executor::execute(std::move(prepared_batch), nullptr, nullptr, nullptr, nullptr); }},
    {"CryptoUtil::base64Encode", [] { (void)CryptoUtil::base64Encode(kBytes); }},
    {"CryptoUtil::computeSha1Digest", [] { (void)CryptoUtil::computeSha1Digest(kLongPath); }},
    {"CryptoUtil::computeSha1Digest of bytes",
     [] { (void)CryptoUtil::computeSha1Digest(prepared_bytes); }},
    {"CryptoUtil::computeMd5Digest", [] { (void)CryptoUtil::computeMd5Digest(kLongPath); }},
    {"CryptoUtil::computeMd5Digest of bytes",
     [] { (void)CryptoUtil::computeMd5Digest(prepared_bytes); }},
    {"CryptoUtil::base64Decode",
     [] { (void)CryptoUtil::base64Decode(std::move(prepared_base64)); }},
    {"CryptoUtil::getString", readALongString},
    {"CryptoUtil::getUInt32T", readAnIntegerOfThreeBytes},
    {"CryptoUtil::insertUInt32T", [] { CryptoUtil::insertUInt32T(prepared_empty, 1); }},
    {"CryptoUtil::insertHash", [] { CryptoUtil::insertHash(prepared_bytes); }},
    {"TmpFile::create", createBelowALongPath},
    {"Pipe::substitute", [] { Pipe().substitute(-1, Pipe::READ); }},
    {"ProcessExecutor::exec", [] { ProcessExecutor("").exec(std::vector<std::string>()); }},
    {"ProcessExecutor::exec of pointers", forkInVain},
    {"ProcessExecutor::kill", signalAChildInVain},
    {"File::removeFile", [] { File::removeFile(kLongPath); }},
    {"File::getFileSize", [] { (void)File::getFileSize(kLongPath); }},
    {"File::getAllocatedFileSize", [] { (void)File::getAllocatedFileSize(kLongPath); }},
    {"File::copy", [] { File::copy(kLongPath, kLongPath); }},
    {"StringUtil::stringToIp", [] { (void)StringUtil::stringToIp(kLongPath); }},
    {"StringUtil::ipToString", [] { (void)StringUtil::ipToString(ip_addr_t{}); }},
};

class BoundaryDeathTest : public testing::TestWithParam<BoundaryCase> {};
INSTANTIATE_TEST_SUITE_P(All, BoundaryDeathTest, testing::ValuesIn(kBoundaryCases));

TEST_P(BoundaryDeathTest, FailedAllocationEndsTheProcess) {
    const auto runWithoutMemory = [] {
        const Fault fault(Call::operator_new, 0, 1, Fault::fromThenOn);
        GetParam().run();
    };
    EXPECT_EXIT(runWithoutMemory(), testing::KilledBySignal(SIGABRT), "") << GetParam().operation;
}
