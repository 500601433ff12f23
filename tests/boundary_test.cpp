// SPDX-License-Identifier: Apache-2.0
// What may leave an operation: the class that it documents. A failed allocation inside it ends the
// process.
#include "../util/boundary.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <map>
#include <memory>
#include <ostream>
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

#include "cancelled.h"
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

TEST(AdmitOnlyTest, LetsCancellationOfTheThreadThrough) {
    EXPECT_TRUE(endsCancelled([] { admitOnly<Exception>(cancelThisThread); }));
}

TEST(DropExceptionsTest, DropsWhateverIsThrown) {
    dropExceptions([] { throw Exception("m"); });
    dropExceptions([] { throw 1; });
    bool ran = false;
    dropExceptions([&] { ran = true; });
    EXPECT_TRUE(ran);
}

TEST(DropExceptionsTest, LetsCancellationOfTheThreadThrough) {
    EXPECT_TRUE(endsCancelled([] { dropExceptions(cancelThisThread); }));
}

// What the operations are given is made before memory runs out; also what they take by value, which
// is the caller's to allocate.
class Idle : public Runnable {
public:
    void run() override {}
};
Thread prepared_thread(std::make_unique<Idle>(), /*startDetached=*/false);
std::vector<Runnable*> prepared_batch(1);

const std::string kLongPath = "/no/such/" + std::string(200, 'x');
const std::vector<unsigned char> kBytes(100, 'x');
std::vector<unsigned char> prepared_bytes = kBytes;
std::vector<unsigned char> prepared_empty;
std::vector<unsigned char> prepared_field = [] {  // of 100 bytes
    std::vector<unsigned char> field(104, 'x');
    field[0] = 100;
    field[1] = field[2] = field[3] = 0;
    return field;
}();
std::string prepared_base64(100, 'A');
std::map<std::string, std::string> prepared_attributes;
const std::vector<std::string> kArguments = {"true"};

void buildNoMutex() {
    const Fault fault(Call::pthread_mutex_init, ENOMEM);
    const Mutex mutex(/*abort=*/false, Mutex::NORMAL);
}

void lockInVain() {
    Mutex mutex(/*abort=*/false, Mutex::NORMAL);
    const Fault fault(Call::pthread_mutex_lock, EINVAL);
    mutex.lock();
}

void tryInVain() {
    Mutex mutex(/*abort=*/false, Mutex::NORMAL);
    const Fault fault(Call::pthread_mutex_trylock, EINVAL);
    if (mutex.tryLock()) mutex.unlock();
}

void endWithoutARelease() {
    Mutex mutex(/*abort=*/false, Mutex::NORMAL);
    const Fault fault(Call::pthread_mutex_unlock, EPERM);
    const Mutex::LockHolder holder(mutex);
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

// Without getting as far as the key.
void openAnEmptyToken() {
    std::string user;
    long timestamp = 0;
    CryptoUtil::decryptAuthToken("", user, prepared_attributes, timestamp, nullptr);
}

void createBelowALongPath() {
    setenv("TMPDIR", kLongPath.c_str(), /*overwrite=*/1);
    TmpFile().create(/*directory=*/true);
}

// UndefinedBehaviorSanitizer calls pipe() itself to see whether it can read an object of a class
// that is new to it.
void openNoPipe() {
    Pipe pipe;
    const Fault fault(Call::pipe, EMFILE);
    pipe.open();
}

void forkInVain() {
    ProcessExecutor child("/bin/true");
    const char* argv[] = {"true", nullptr};
    const Fault fault(Call::fork, EAGAIN);
    child.exec(argv);
}

void waitForAChildInVain() {
    ProcessExecutor child("/bin/true");
    const char* argv[] = {"true", nullptr};
    child.exec(argv);
    const Fault fault(Call::waitpid, ECHILD);
    (void)child.wait();
}

void signalAChildInVain() {
    ProcessExecutor child("/bin/cat");
    const char* argv[] = {"cat", nullptr};
    child.exec(argv);
    const Fault fault(Call::kill, EPERM);
    child.kill(SIGTERM);
}

struct BoundaryCase {
    const char* operation;
    void (*run)();
};
std::ostream& operator<<(std::ostream& out, const BoundaryCase& row) {
    return out << row.operation;
}

// Each allocates on its own account, if only for the message of what fails in it.
const BoundaryCase kBoundaryCases[] = {
    // clang-format off
    // operation                               run without memory
    {"Mutex",                                  buildNoMutex},
    {"Mutex::lock",                            lockInVain},
    {"Mutex::tryLock",                         tryInVain},
    {"Mutex::unlock",                          [] { Mutex(/*abort=*/false, Mutex::ERRORCHECK).unlock(); }},
    {"Mutex::LockHolder::~LockHolder",         endWithoutARelease},
    {"Condition",                              buildNoCondition},
    {"Condition::signal",                      signalInVain},
    {"Condition::broadcast",                   broadcastInVain},
    {"Condition::wait",                        waitInVain},
    {"Condition::timedWait",                   waitForADeadlineInVain},
    {"Thread",                                 [] { const Thread thread(nullptr, /*startDetached=*/false); }},
    {"Thread::start",                          [] { prepared_thread.start(); }},
    {"Thread::getHasExited",                   [] { (void)prepared_thread.getHasExited(); }},
    {"Thread::join",                           [] { (void)prepared_thread.join(); }},
    {"Thread::detach",                         [] { prepared_thread.detach(); }},
    {"Executor::execute",                      [] { Executor::execute(std::move(prepared_batch), nullptr, nullptr, nullptr, nullptr); }},
    {"CryptoUtil::base64Encode",               [] { (void)CryptoUtil::base64Encode(kBytes); }},
    {"CryptoUtil::base64Decode",               [] { (void)CryptoUtil::base64Decode(std::move(prepared_base64)); }},
    {"CryptoUtil::computeSha1Digest",          [] { (void)CryptoUtil::computeSha1Digest(kLongPath); }},
    {"CryptoUtil::computeSha1Digest of bytes", [] { (void)CryptoUtil::computeSha1Digest(prepared_bytes); }},
    {"CryptoUtil::computeMd5Digest",           [] { (void)CryptoUtil::computeMd5Digest(kLongPath); }},
    {"CryptoUtil::computeMd5Digest of bytes",  [] { (void)CryptoUtil::computeMd5Digest(prepared_bytes); }},
    {"CryptoUtil::getString",                  readALongString},
    {"CryptoUtil::getUInt32T",                 readAnIntegerOfThreeBytes},
    {"CryptoUtil::insertUInt32T",              [] { CryptoUtil::insertUInt32T(prepared_empty, 1); }},
    {"CryptoUtil::insertString",               [] { CryptoUtil::insertString(prepared_bytes, kLongPath); }},
    {"CryptoUtil::insertHash",                 [] { CryptoUtil::insertHash(prepared_bytes); }},
    {"CryptoUtil::generateAuthToken",          [] { (void)CryptoUtil::generateAuthToken(kLongPath, prepared_attributes, 1, nullptr); }},
    {"CryptoUtil::generateAuthToken of now",   [] { (void)CryptoUtil::generateAuthToken(kLongPath, prepared_attributes, nullptr); }},
    {"CryptoUtil::decryptAuthToken",           openAnEmptyToken},
    {"File::removeFile",                       [] { File::removeFile(kLongPath); }},
    {"File::getFileSize",                      [] { (void)File::getFileSize(kLongPath); }},
    {"File::getAllocatedFileSize",             [] { (void)File::getAllocatedFileSize(kLongPath); }},
    {"File::copy",                             [] { File::copy(kLongPath, kLongPath); }},
    {"File::makeDirectory",                    [] { (void)File::makeDirectory(kLongPath, /*recursive=*/true); }},
    {"TmpFile::create",                        createBelowALongPath},
    {"Pipe::open",                             openNoPipe},
    {"Pipe::substitute",                       [] { Pipe().substitute(-1, Pipe::READ); }},
    {"ProcessExecutor::exec",                  forkInVain},
    {"ProcessExecutor::exec of texts",         [] { ProcessExecutor("/bin/true").exec(kArguments); }},
    {"ProcessExecutor::wait",                  waitForAChildInVain},
    {"ProcessExecutor::kill",                  signalAChildInVain},
    {"StringUtil::stringToIp",                 [] { (void)StringUtil::stringToIp(kLongPath); }},
    {"StringUtil::ipToString",                 [] { (void)StringUtil::ipToString(ip_addr_t{}); }},
    // clang-format on
};

class BoundaryDeathTest : public testing::TestWithParam<BoundaryCase> {};
INSTANTIATE_TEST_SUITE_P(All, BoundaryDeathTest, testing::ValuesIn(kBoundaryCases));

TEST_P(BoundaryDeathTest, FailedAllocationEndsTheProcess) {
    const auto runWithoutMemory = [] {
        const Fault fault(Call::operator_new, 0, 1, Fault::fromThenOn);
        GetParam().run();
    };
    EXPECT_EXIT(runWithoutMemory(), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("std::bad_alloc"));
}
