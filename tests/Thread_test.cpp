// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Thread.h>

#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <future>
#include <iostream>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "cancelled.h"
#include "fault.h"
#include "random.h"
#include "runnables.h"
#include "sanitized.h"
#include "thrown.h"
#include "trail.h"

using tarnutil::Runnable;
using tarnutil::Thread;
using namespace tarnutil_test;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::KilledBySignal;
using testing::SizeIs;

namespace {

static_assert(std::has_virtual_destructor_v<Runnable> && std::is_abstract_v<Runnable>);
static_assert(!std::is_copy_constructible_v<Thread> && !std::is_copy_assignable_v<Thread>);

void joinAndDestroy(Thread& thread) { const std::unique_ptr<Runnable> back(thread.join()); }

void awaitExit(Thread& thread) {
    while (!thread.getHasExited()) std::this_thread::yield();
}

// How many live objects of a kind the program has built.
long alive(Call build, Call destroy) {
    return static_cast<long>(Fault::calls(build)) - static_cast<long>(Fault::calls(destroy));
}
long attributesAlive() { return alive(Call::pthread_attr_init, Call::pthread_attr_destroy); }
long mutexesAlive() { return alive(Call::pthread_mutex_init, Call::pthread_mutex_destroy); }
long mutexesHeld() { return alive(Call::pthread_mutex_lock, Call::pthread_mutex_unlock); }

// Waits until `enough`; false if that takes longer than anything here ever should.
template <class Condition>
bool comesTrue(const Condition& enough) {
    const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!enough()) {
        if (std::chrono::steady_clock::now() > latest) return false;
        std::this_thread::yield();
    }
    return true;
}

// A runnable that takes no lock, so that a trail shows those of the thread alone.
class Idle : public Runnable {
public:
    void run() override {}
};

// Where one thread waits until another opens it. Takes no lock either.
class Gate {
public:
    void pass() {
        reached = true;
        while (!opened) std::this_thread::yield();
    }
    void awaitArrival() const {
        while (!reached) std::this_thread::yield();
    }
    void open() { opened = true; }

private:
    std::atomic<bool> reached{false};
    std::atomic<bool> opened{false};
};

// ---- What each operation comes to in each state ----

// A thread whose work lasts until it is released. Ends well from every state.
struct Subject {
    explicit Subject(bool startDetached) : createdDetached(startDetached) {
        auto work = census.runnable([gate = opener.get_future().share()] { gate.wait(); });
        thread = std::make_unique<Thread>(std::move(work), createdDetached);
    }
    ~Subject() {
        release();
        if (joinable) joinAndDestroy(*thread);
        thread.reset();
        EXPECT_TRUE(comesTrue([this] { return mutexesAlive() == mutexesBefore; }))
            << "a record is lost";
    }
    void release() {
        if (!std::exchange(released, true)) opener.set_value();
    }

    const bool createdDetached;
    const long mutexesBefore = mutexesAlive();
    Census census;  // at its end, every runnable has to be destroyed
    std::promise<void> opener;
    bool released = false;
    bool joinable = false;
    std::unique_ptr<Thread> thread;
};

// The operations, with what they came to as text.
std::string start(Subject& subject) {
    subject.thread->start();
    subject.joinable = !subject.createdDetached;
    return "started";
}
std::string hasExited(Subject& subject) {
    return subject.thread->getHasExited() ? "exited" : "not exited";
}
std::string join(Subject& subject) {
    if (subject.joinable) subject.release();
    const std::unique_ptr<Runnable> back(subject.thread->join());
    subject.joinable = false;
    return back != nullptr ? "the runnable" : "null";
}
std::string detach(Subject& subject) {
    subject.thread->detach();
    subject.joinable = false;
    return "detached";
}

// What an operation comes to, as text: that, or what it throws.
std::string outcomeOf(std::string (*operation)(Subject&), Subject& subject) {
    std::string outcome;
    const std::string text = thrown([&] { outcome = operation(subject); });
    return outcome.empty() ? text : outcome;
}

// The ways into the states.
void created(Subject&) {}
void running(Subject& subject) { (void)start(subject); }
void finished(Subject& subject) {
    (void)start(subject);
    subject.release();
    awaitExit(*subject.thread);
}
void detachedRunning(Subject& subject) {
    (void)start(subject);
    (void)detach(subject);
}
void joined(Subject& subject) {
    (void)start(subject);
    (void)join(subject);
}

constexpr bool kAttached = false;
constexpr bool kDetached = true;

struct StateCase {
    const char* says;
    bool createdDetached;
    void (*enter)(Subject&);
    std::string (*operation)(Subject&);
    std::string outcome;
};
std::ostream& operator<<(std::ostream& out, const StateCase& row) { return out << row.says; }

std::string thrownText(const std::string& message) { return "tarnutil::Exception: " + message; }

const std::string kNoSecondStart = thrownText("Can not start thread: thread already started.");
const std::string kNotStarted = thrownText("Thread not started yet");
const std::string kNobodyKnows =
    thrownText("Can not determine if thread has exited: thread is detached.");
const std::string kJoinNotStarted = thrownText("Can not join with thread: thread not started.");
const std::string kJoinTwice = thrownText("Can not join with thread: thread already joined.");
const std::string kJoinDetached = refused("Could not join with thread: ", EINVAL);
const std::string kDetachNotStarted = thrownText("Can not detach thread: thread not started.");
const std::string kDetachTwice = thrownText("Can not detach thread: already detached.");
const std::string kDetachJoined = thrownText("Can not detach thread: thread already joined.");

const StateCase kStateCases[] = {
    // clang-format off
    // state, operation                   created    by way of        operation  comes to
    {"created attached, start",           kAttached, created,         start,     "started"},
    {"created attached, getHasExited",    kAttached, created,         hasExited, kNotStarted},
    {"created attached, join",            kAttached, created,         join,      kJoinNotStarted},
    {"created attached, detach",          kAttached, created,         detach,    kDetachNotStarted},
    {"created detached, start",           kDetached, created,         start,     "started"},
    {"created detached, getHasExited",    kDetached, created,         hasExited, kNobodyKnows},
    {"created detached, join",            kDetached, created,         join,      kJoinNotStarted},
    {"created detached, detach",          kDetached, created,         detach,    kDetachTwice},
    {"running, start",                    kAttached, running,         start,     kNoSecondStart},
    {"running, getHasExited",             kAttached, running,         hasExited, "not exited"},
    {"running, join",                     kAttached, running,         join,      "the runnable"},
    {"running, detach",                   kAttached, running,         detach,    "detached"},
    {"finished, start",                   kAttached, finished,        start,     kNoSecondStart},
    {"finished, getHasExited",            kAttached, finished,        hasExited, "exited"},
    {"finished, join",                    kAttached, finished,        join,      "the runnable"},
    {"finished, detach",                  kAttached, finished,        detach,    "detached"},
    {"running detached, start",           kDetached, running,         start,     kNoSecondStart},
    {"running detached, getHasExited",    kDetached, running,         hasExited, kNobodyKnows},
    {"running detached, join",            kDetached, running,         join,      kJoinDetached},
    {"running detached, detach",          kDetached, running,         detach,    kDetachTwice},
    {"detached, start",                   kAttached, detachedRunning, start,     kNoSecondStart},
    {"detached, getHasExited",            kAttached, detachedRunning, hasExited, kNobodyKnows},
    {"detached, join",                    kAttached, detachedRunning, join,      kJoinDetached},
    {"detached, detach",                  kAttached, detachedRunning, detach,    kDetachTwice},
    {"joined, start",                     kAttached, joined,          start,     kNoSecondStart},
    {"joined, getHasExited",              kAttached, joined,          hasExited, "exited"},
    {"joined, join",                      kAttached, joined,          join,      kJoinTwice},
    {"joined, detach",                    kAttached, joined,          detach,    kDetachJoined},
    // clang-format on
};

class ThreadStateTest : public testing::TestWithParam<StateCase> {};
INSTANTIATE_TEST_SUITE_P(All, ThreadStateTest, testing::ValuesIn(kStateCases));

TEST_P(ThreadStateTest, OperationComesToWhatItPromises) {
    const StateCase& row = GetParam();
    Subject subject(row.createdDetached);
    row.enter(subject);
    EXPECT_EQ(outcomeOf(row.operation, subject), row.outcome);
    EXPECT_EQ(subject.census.constructed(), 1);
}

// ---- Failing calls ----

struct StartFailureCase {
    Call call;
    const char* message;
};

const StartFailureCase kStartFailureCases[] = {
    {Call::pthread_attr_init, "Could not create pthread init attribute: "},
    {Call::pthread_attr_setdetachstate, "Could not set detached stated for thread: "},
    {Call::pthread_create, "Could not create pthread: "},
};

TEST(ThreadTest, FailedStartCanBeTriedAgain) {
    for (const StartFailureCase& row : kStartFailureCases) {
        SCOPED_TRACE(row.message);
        Subject subject(/*startDetached=*/true);
        const long attributes = attributesAlive();
        const long mutexes = mutexesAlive();
        {
            const Fault fault(row.call, EAGAIN);
            EXPECT_EQ(thrown([&] { subject.thread->start(); }), refused(row.message, EAGAIN));
        }
        const bool neverBuilt = row.call == Call::pthread_attr_init;
        EXPECT_EQ(attributesAlive(), attributes + (neverBuilt ? 1 : 0));
        EXPECT_EQ(mutexesAlive(), mutexes);
        EXPECT_EQ(subject.census.destroyed(), 0);
        EXPECT_EQ(thrown([&] { (void)subject.thread->join(); }), kJoinNotStarted);
        subject.thread->start();
        EXPECT_EQ(attributesAlive(), attributes + (neverBuilt ? 1 : 0));
    }
}

struct StartOrderCase {
    const char* says;
    std::vector<Call> failing;
    std::string outcome;
    std::vector<std::string> steps;
};

// None starts a thread: with a sanitizer, that would add steps of its own.
const StartOrderCase kStartOrderCases[] = {
    {"no thread",
     {Call::pthread_create},
     refused("Could not create pthread: ", EAGAIN),
     {"pthread_attr_init()", "pthread_attr_setdetachstate(1)", "pthread_mutex_init()",
      "pthread_create()", "pthread_attr_destroy()", "pthread_mutex_destroy()"}},
    {"no detached state, before there is a record",
     {Call::pthread_attr_setdetachstate, Call::pthread_mutex_init},
     refused("Could not set detached stated for thread: ", EAGAIN),
     {"pthread_attr_init()", "pthread_attr_setdetachstate(1)", "pthread_attr_destroy()"}},
    {"no attributes, before there is anything",
     {Call::pthread_attr_init, Call::pthread_mutex_init},
     refused("Could not create pthread init attribute: ", EAGAIN),
     {"pthread_attr_init()"}},
};

TEST(ThreadTest, StartTakesItsStepsInOrder) {
    for (const StartOrderCase& row : kStartOrderCases) {
        SCOPED_TRACE(row.says);
        Subject subject(/*startDetached=*/true);
        std::list<Fault> faults;
        for (const Call call : row.failing) faults.emplace_back(call, EAGAIN);
        const Trail trail({Call::pthread_attr_init, Call::pthread_attr_setdetachstate,
                           Call::pthread_mutex_init, Call::pthread_create,
                           Call::pthread_attr_destroy, Call::pthread_mutex_destroy});
        EXPECT_EQ(outcomeOf(start, subject), row.outcome);
        EXPECT_EQ(trail.ofParent(), row.steps);
    }
}

TEST(ThreadTest, AttachedThreadIsAskedForNoDetachedState) {
    Subject subject(/*startDetached=*/false);
    const unsigned long before = Fault::calls(Call::pthread_attr_setdetachstate);
    (void)start(subject);
    EXPECT_EQ(Fault::calls(Call::pthread_attr_setdetachstate), before);
}

TEST(ThreadTest, FailedCreationReturnsTheSameRunnableToTheNextStart) {
    Census census;
    auto work = census.runnable([] {});
    const Runnable* const original = work.get();
    Thread thread(std::move(work), /*startDetached=*/false);
    {
        const Fault fault(Call::pthread_create, EAGAIN);
        EXPECT_EQ(thrown([&] { thread.start(); }), refused("Could not create pthread: ", EAGAIN));
    }
    thread.start();
    const std::unique_ptr<Runnable> back(thread.join());
    EXPECT_EQ(back.get(), original);
}

TEST(ThreadTest, FailedStartLeavesTheThreadNotStarted) {
    Subject subject(/*startDetached=*/false);
    const Fault fault(Call::pthread_create, EAGAIN);
    EXPECT_EQ(thrown([&] { subject.thread->start(); }),
              refused("Could not create pthread: ", EAGAIN));
    EXPECT_EQ(thrown([&] { (void)subject.thread->getHasExited(); }), kNotStarted);
    EXPECT_EQ(thrown([&] { (void)subject.thread->join(); }), kJoinNotStarted);
    EXPECT_EQ(thrown([&] { subject.thread->detach(); }), kDetachNotStarted);
}

TEST(ThreadTest, FailedJoinChangesNothing) {
    Subject subject(/*startDetached=*/false);
    finished(subject);
    {
        const Fault fault(Call::pthread_join, EDEADLK);
        EXPECT_EQ(thrown([&] { (void)subject.thread->join(); }),
                  refused("Could not join with thread: ", EDEADLK));
    }
    EXPECT_EQ(hasExited(subject), "exited");
    EXPECT_EQ(join(subject), "the runnable");
}

TEST(ThreadTest, FailedDetachChangesNothing) {
    Subject subject(/*startDetached=*/false);
    running(subject);
    {
        const Fault fault(Call::pthread_detach, ESRCH);
        EXPECT_EQ(thrown([&] { subject.thread->detach(); }),
                  refused("Could not detach thread: ", ESRCH));
    }
    EXPECT_EQ(hasExited(subject), "not exited");
    EXPECT_EQ(join(subject), "the runnable");
}

TEST(ThreadTest, EmptyPointerIsRefused) {
    for (const bool detached : {false, true}) {
        EXPECT_EQ(thrown([&] { const Thread thread(nullptr, detached); }),
                  "tarnutil::Exception: runnable is null");
    }
}

// What a child process does, as a thread of its own shows: see EXPECT_EXIT.
void startIdleThread() {
    Census census;
    Thread thread(census.runnable([] {}), /*startDetached=*/false);
    thread.start();
    joinAndDestroy(thread);
}

TEST(ThreadTest, FailuresOfTheRecordsMutexAbort) {
    for (const Call call : {Call::pthread_mutexattr_init, Call::pthread_mutexattr_settype,
                            Call::pthread_mutex_init}) {
        const auto startFails = [&] {
            Census census;
            Thread thread(census.runnable([] {}), /*startDetached=*/false);
            const Fault fault(call, ENOMEM);
            thread.start();
        };
        EXPECT_EXIT(startFails(), KilledBySignal(SIGABRT), testing::Eq("")) << name(call);
    }
    for (const Call call : {Call::pthread_mutex_lock, Call::pthread_mutex_unlock}) {
        const auto lookFails = [&] {
            Subject subject(/*startDetached=*/false);
            running(subject);
            const Fault fault(call, EINVAL);
            (void)subject.thread->getHasExited();
        };
        EXPECT_EXIT(lookFails(), KilledBySignal(SIGABRT), testing::Eq("")) << name(call);
    }
    const auto joinFails = [] {
        const Fault fault(Call::pthread_mutex_destroy, EBUSY);
        startIdleThread();
    };
    EXPECT_EXIT(joinFails(), KilledBySignal(SIGABRT), testing::Eq(""));
}

// What the thread and detach() do to the record's mutex.
const Call kReleasing[] = {Call::pthread_mutex_lock, Call::pthread_mutex_unlock,
                           Call::pthread_mutex_destroy};

TEST(ThreadTest, FailuresOfTheRecordsMutexAbortDetach) {
    for (const Call call : kReleasing) {
        const auto detachFails = [&] {
            Subject subject(/*startDetached=*/false);
            finished(subject);
            const Fault fault(call, EINVAL);
            subject.thread->detach();
        };
        EXPECT_EXIT(detachFails(), KilledBySignal(SIGABRT), testing::Eq("")) << name(call);
    }
}

TEST(ThreadTest, FailuresOfTheRecordsMutexAbortAtTheEndOfTheWork) {
    for (const Call call : kReleasing) {
        const auto endFails = [&] {
            Thread thread(std::make_unique<Idle>(), /*startDetached=*/true);
            const Fault fault(call, EINVAL);
            thread.start();
            alarm(30);  // its signal is not the one expected
            for (;;) pause();
        };
        EXPECT_EXIT(endFails(), KilledBySignal(SIGABRT), testing::Eq("")) << name(call);
    }
}

// ---- The work and its callbacks ----

TEST(ThreadTest, JoinReturnsTheRunnableThatRan) {
    Census census;
    std::thread::id runner;
    auto work = census.runnable([&] { runner = std::this_thread::get_id(); });
    const Runnable* const original = work.get();
    Thread thread(std::move(work), /*startDetached=*/false);
    EXPECT_EQ(work, nullptr);
    thread.start();
    const std::unique_ptr<Runnable> back(thread.join());
    EXPECT_EQ(back.get(), original);
    EXPECT_NE(runner, std::thread::id());
    EXPECT_NE(runner, std::this_thread::get_id());
    EXPECT_EQ(census.destroyed(), 0);
}

// The steps of one thread, in order; each callback gets the name of its step as argument.
std::vector<std::string> steps;
void note(void* step) { steps.push_back(static_cast<const char*>(step)); }
void noteAndThrow(void* step) {
    note(step);
    throw std::runtime_error("not for anybody");
}
void* step(const char* name) { return const_cast<char*>(name); }

std::vector<std::string> stepsOf(void (*startup)(void*), void (*cleanup)(void*)) {
    steps.clear();
    Census census;
    Thread thread(census.runnable([] { steps.push_back("run"); }), /*startDetached=*/false);
    thread.setStartupHandler(startup, step("startup"));
    thread.setCleanupHandler(cleanup, step("cleanup"));
    thread.start();
    joinAndDestroy(thread);
    return steps;
}

TEST(ThreadTest, CallbacksBracketTheWork) {
    EXPECT_THAT(stepsOf(nullptr, nullptr), ElementsAre("run"));
    EXPECT_THAT(stepsOf(note, nullptr), ElementsAre("startup", "run"));
    EXPECT_THAT(stepsOf(nullptr, note), ElementsAre("run", "cleanup"));
    EXPECT_THAT(stepsOf(note, note), ElementsAre("startup", "run", "cleanup"));
}

TEST(ThreadTest, WhatACallbackThrowsIsDropped) {
    EXPECT_THAT(stepsOf(noteAndThrow, note), ElementsAre("startup", "run", "cleanup"));
    EXPECT_THAT(stepsOf(note, noteAndThrow), ElementsAre("startup", "run", "cleanup"));
}

TEST(ThreadTest, CallbacksSetAfterAFailedStartCountFromTheNext) {
    steps.clear();
    Thread thread(std::make_unique<Idle>(), /*startDetached=*/false);
    thread.setStartupHandler(note, step("startup of the failed start"));
    thread.setCleanupHandler(note, step("cleanup of the failed start"));
    {
        const Fault fault(Call::pthread_create, EAGAIN);
        EXPECT_EQ(thrown([&] { thread.start(); }), refused("Could not create pthread: ", EAGAIN));
    }
    thread.setStartupHandler(note, step("startup"));
    thread.setCleanupHandler(note, step("cleanup"));
    thread.start();
    joinAndDestroy(thread);
    EXPECT_THAT(steps, ElementsAre("startup", "cleanup"));
}

TEST(ThreadTest, NullTakesACallbackAwayAgain) {
    steps.clear();
    Thread thread(std::make_unique<Idle>(), /*startDetached=*/false);
    thread.setStartupHandler(note, step("startup"));
    thread.setCleanupHandler(note, step("cleanup"));
    thread.setStartupHandler(nullptr, step("startup"));
    thread.setCleanupHandler(nullptr, step("cleanup"));
    thread.start();
    joinAndDestroy(thread);
    EXPECT_THAT(steps, IsEmpty());
}

void passGate(void* gate) { static_cast<Gate*>(gate)->pass(); }

TEST(ThreadTest, CallbacksComeBeforeTheExitAndHoldNoMutex) {
    for (const auto setHandler : {&Thread::setStartupHandler, &Thread::setCleanupHandler}) {
        Gate gate;
        Thread thread(std::make_unique<Idle>(), /*startDetached=*/false);
        (thread.*setHandler)(passGate, &gate);
        const Trail trail({Call::pthread_mutex_lock});
        thread.start();
        gate.awaitArrival();
        EXPECT_THAT(trail.ofParent(), IsEmpty());
        EXPECT_FALSE(thread.getHasExited());
        EXPECT_THAT(trail.ofParent(), SizeIs(1)) << "the question's own";
        gate.open();
        joinAndDestroy(thread);
        EXPECT_THAT(trail.ofParent(), SizeIs(2)) << "and that of the end of the work";
    }
}

// Notes its run, which waits for the gate, and its destruction.
class Noted : public Runnable {
public:
    Noted(Gate& beforeRun, std::atomic<bool>& whenGone) : gate(beforeRun), gone(whenGone) {}
    ~Noted() override {
        note(step("destroyed"));
        gone = true;
    }
    void run() override {
        gate.pass();
        note(step("run"));
    }

private:
    Gate& gate;
    std::atomic<bool>& gone;
};

TEST(ThreadTest, CallbacksOfADetachedThreadComeBeforeTheRunnableIsDestroyed) {
    for (const bool startDetached : {false, true}) {
        SCOPED_TRACE(startDetached);
        steps.clear();
        Gate gate;
        std::atomic<bool> gone{false};
        const long mutexes = mutexesAlive();
        Thread thread(std::make_unique<Noted>(gate, gone), startDetached);
        thread.setStartupHandler(note, step("startup"));
        thread.setCleanupHandler(note, step("cleanup"));
        thread.start();
        if (!startDetached) thread.detach();
        gate.open();
        ASSERT_TRUE(comesTrue([&] { return gone && mutexesAlive() == mutexes; }));
        EXPECT_THAT(steps, ElementsAre("startup", "run", "cleanup", "destroyed"));
    }
}

void keepThread(void* id) { *static_cast<std::thread::id*>(id) = std::this_thread::get_id(); }

TEST(ThreadTest, CallbacksRunOnTheNewThread) {
    Census census;
    std::thread::id startup, run, cleanup;
    Thread thread(census.runnable([&] { keepThread(&run); }), /*startDetached=*/false);
    thread.setStartupHandler(keepThread, &startup);
    thread.setCleanupHandler(keepThread, &cleanup);
    thread.start();
    joinAndDestroy(thread);
    EXPECT_NE(run, std::this_thread::get_id());
    EXPECT_EQ(startup, run);
    EXPECT_EQ(cleanup, run);
}

TEST(ThreadTest, CallbacksSetAfterTheStartComeTooLate) {
    steps.clear();
    Subject subject(/*startDetached=*/false);
    running(subject);
    subject.thread->setStartupHandler(note, step("startup"));
    subject.thread->setCleanupHandler(note, step("cleanup"));
    EXPECT_EQ(join(subject), "the runnable");
    EXPECT_THAT(steps, IsEmpty());
}

TEST(ThreadTest, ExceptionOfTheWorkEndsTheProcess) {
    const auto runThrowing = [] {
        Census census;
        Thread thread(census.runnable([] { throw std::runtime_error("out of run"); }),
                      /*startDetached=*/false);
        thread.start();
        joinAndDestroy(thread);
    };
    EXPECT_EXIT(runThrowing(), KilledBySignal(SIGABRT), HasSubstr("out of run"));
}

// The record and the runnable stay behind, so a process of its own does this.
TEST(ThreadTest, ThreadThatEndedItselfHasNoRunnableToReturn) {
    const auto joinThreadThatLeft = [] {
        auto* census = new Census;
        auto* thread = new Thread(census->runnable([] { pthread_exit(nullptr); }),
                                  /*startDetached=*/false);
        thread->start();
        const std::string text = thrown([&] { (void)thread->join(); });
        const bool kept = !thread->getHasExited() && census->destroyed() == 0;
        _exit(text == thrownText("Could not join with thread: no runnable object returned") && kept
                  ? 0
                  : 1);
    };
    EXPECT_EXIT(joinThreadThatLeft(), ExitedWithCode(0), "");
}

// Set when a thread that named `farewell` has left all of its frames.
std::atomic<bool> gone{false};
struct Farewell {
    ~Farewell() { gone = true; }
};
thread_local Farewell farewell;

void cancelThisThread() {
    pthread_cancel(pthread_self());
    pthread_testcancel();
}
void leaveWithAValue() {
    static int value = 0;
    pthread_exit(&value);
}

TEST(ThreadTest, ThreadThatEndedOtherwiseHasNotExitedAndReturnsItsRunnable) {
    for (void (*const end)() : {cancelThisThread, leaveWithAValue}) {
        gone = false;
        Census census;
        auto work = census.runnable([end] {
            (void)&farewell;
            end();
        });
        const Runnable* const original = work.get();
        Thread thread(std::move(work), /*startDetached=*/false);
        thread.start();
        EXPECT_TRUE(comesTrue([] { return gone.load(); }));
        EXPECT_FALSE(thread.getHasExited());
        const std::unique_ptr<Runnable> back(thread.join());
        EXPECT_EQ(back.get(), original);
        EXPECT_TRUE(thread.getHasExited());
    }
}

#if !TARNUTIL_TEST_SANITIZED
TEST(ThreadTest, CancelledJoinCanBeTriedAgain) {
    Subject subject(/*startDetached=*/false);
    running(subject);
    EXPECT_TRUE(endsCancelled([&] {
        pthread_cancel(pthread_self());
        (void)subject.thread->join();
    }));
    EXPECT_EQ(hasExited(subject), "not exited");
    EXPECT_EQ(join(subject), "the runnable");
}
#endif

// ---- Who destroys what ----

TEST(ThreadTest, ThreadThatWasNeverStartedDestroysItsRunnable) {
    Census census;
    {
        const Thread thread(census.runnable([] {}), /*startDetached=*/false);
    }
    EXPECT_EQ(census.destroyed(), 1);
}

TEST(ThreadTest, DetachAfterTheWorkDestroysTheRunnableAtOnce) {
    Subject subject(/*startDetached=*/false);
    finished(subject);
    const long mutexes = mutexesAlive();
    subject.thread->detach();
    subject.joinable = false;
    EXPECT_EQ(subject.census.destroyed(), 1);
    EXPECT_EQ(subject.census.destroyer(), std::this_thread::get_id());
    EXPECT_EQ(mutexesAlive(), mutexes - 1);
}

TEST(ThreadTest, DetachBeforeTheEndLeavesTheRunnableToTheThread) {
    for (const bool startDetached : {false, true}) {
        Subject subject(startDetached);
        running(subject);
        if (!startDetached) (void)detach(subject);
        EXPECT_EQ(subject.census.destroyed(), 0);
        subject.release();
        subject.census.awaitNone();
        EXPECT_NE(subject.census.destroyer(), std::this_thread::get_id());
    }
}

// Keeps how many mutexes were alive, and how many of them held, when it was destroyed.
class Witness : public Runnable {
public:
    struct Testimony {
        std::atomic<bool> given{false};
        long alive = 0;
        long held = 0;
    };

    explicit Witness(Testimony& toGive) : testimony(toGive) {}
    ~Witness() override {
        testimony.alive = mutexesAlive();
        testimony.held = mutexesHeld();
        testimony.given = true;
    }
    void run() override {}

private:
    Testimony& testimony;
};

TEST(ThreadTest, RunnableIsDestroyedBeforeTheMutexAndWhileItIsFree) {
    for (const bool startDetached : {false, true}) {
        SCOPED_TRACE(startDetached);
        const long alive = mutexesAlive();
        const long held = mutexesHeld();
        Witness::Testimony testimony;
        Thread thread(std::make_unique<Witness>(testimony), startDetached);
        thread.start();
        if (!startDetached) {
            awaitExit(thread);
            thread.detach();
        }
        ASSERT_TRUE(comesTrue([&] { return testimony.given && mutexesAlive() == alive; }));
        EXPECT_EQ(testimony.alive, alive + 1);
        EXPECT_EQ(testimony.held, held);
    }
}

TEST(ThreadTest, EndOfTheWorkAndDetachEachPassTheMutexOnce) {
    Thread thread(std::make_unique<Idle>(), /*startDetached=*/false);
    {
        const Trail trail({Call::pthread_mutex_lock, Call::pthread_mutex_unlock,
                           Call::pthread_mutex_destroy, Call::pthread_mutexattr_settype});
        thread.start();
        // Only the thread's own steps can be there, until we ask whether it has exited.
        while (trail.ofParent().size() < 3) std::this_thread::yield();
        EXPECT_THAT(trail.ofParent(),
                    ElementsAre("pthread_mutexattr_settype(0)", "pthread_mutex_lock()",
                                "pthread_mutex_unlock()"));
    }
    awaitExit(thread);
    const Trail trail({Call::pthread_detach, Call::pthread_mutex_lock, Call::pthread_mutex_unlock,
                       Call::pthread_mutex_destroy});
    thread.detach();
    EXPECT_THAT(trail.ofParent(), ElementsAre("pthread_detach()", "pthread_mutex_lock()",
                                              "pthread_mutex_unlock()", "pthread_mutex_destroy()"));
}

TEST(ThreadTest, JoinedThreadIsNotAskedAgain) {
    Thread thread(std::make_unique<Idle>(), /*startDetached=*/false);
    thread.start();
    joinAndDestroy(thread);
    const unsigned long before = Fault::calls(Call::pthread_mutex_lock);
    EXPECT_TRUE(thread.getHasExited());
    EXPECT_EQ(Fault::calls(Call::pthread_mutex_lock), before);
}

// What the thread holds is never released, so a process of its own does this.
TEST(ThreadTest, DestroyedThreadNeitherStopsNorJoins) {
    const auto destroyWhileRunning = [] {
        std::promise<void> opener;
        auto* census = new Census;
        auto thread = std::make_unique<Thread>(census->runnable([&opener] {
            opener.get_future().wait();
            _exit(0);
        }),
                                               /*startDetached=*/false);
        thread->start();
        thread.reset();
        if (census->destroyed() != 0) _exit(1);
        opener.set_value();
        pause();
    };
    EXPECT_EXIT(destroyWhileRunning(), ExitedWithCode(0), "");
}

// The two steps of passing the mutex. The one that fails calls abort(), whose signal handler then
// sees what was done by that time.
constexpr Call kPassing[] = {Call::pthread_mutex_lock, Call::pthread_mutex_unlock};

// While one lives, locking and unlocking do nothing: a mutex whose release failed is still held.
struct LocksAside {
    const Fault lock{Call::pthread_mutex_lock, 0, 1, Fault::fromThenOn};
    const Fault unlock{Call::pthread_mutex_unlock, 0, 1, Fault::fromThenOn};
};

TEST(ThreadTest, EndOfTheWorkPassesTheMutexBeforeItLeavesItsMark) {
    static Thread* asked = nullptr;
    const auto endFails = [](Call call) {
        Gate gate;
        Thread thread(std::make_unique<Idle>(), /*startDetached=*/false);
        thread.setStartupHandler(passGate, &gate);
        thread.start();
        gate.awaitArrival();
        asked = &thread;
        std::signal(SIGABRT, [](int) {
            const LocksAside aside;
            _exit(asked->getHasExited() ? 1 : 0);
        });
        const Fault fault(call, EINVAL);
        gate.open();
        alarm(30);  // its signal is not the exit expected
        for (;;) pause();
    };
    for (const Call call : kPassing) {
        EXPECT_EXIT(endFails(call), ExitedWithCode(0), testing::Eq("")) << name(call);
    }
}

// Lasts until the gate is opened, and tells of its destruction.
class Lasting : public Runnable {
public:
    Lasting(Gate& end, std::atomic<bool>& whenDestroyed) : gate(end), destroyed(whenDestroyed) {}
    ~Lasting() override { destroyed = true; }
    void run() override {
        (void)&farewell;
        gate.pass();
    }

private:
    Gate& gate;
    std::atomic<bool>& destroyed;
};

// The work ends while detach() aborts: a thread that found its mark would destroy the runnable.
TEST(ThreadTest, DetachPassesTheMutexBeforeItLeavesItsMark) {
    static Gate gate;
    static std::atomic<bool> destroyed{false};
    const auto detachFails = [](Call call) {
        Thread thread(std::make_unique<Lasting>(gate, destroyed), /*startDetached=*/false);
        thread.start();
        gate.awaitArrival();
        std::signal(SIGABRT, [](int) {
            const LocksAside aside;
            gate.open();
            while (!gone && !destroyed) std::this_thread::yield();
            _exit(destroyed ? 1 : 0);
        });
        const Fault fault(call, EINVAL);
        alarm(30);  // its signal is not the exit expected
        thread.detach();
    };
    for (const Call call : kPassing) {
        EXPECT_EXIT(detachFails(call), ExitedWithCode(0), testing::Eq("")) << name(call);
    }
}

// ---- The end of the work crosses detach() ----

constexpr int kCrossings = 100000;

// How many crossings each side won.
struct Crossings {
    const pthread_t owner = pthread_self();
    std::atomic<long> byOwner{0};
    std::atomic<long> byThread{0};

    long all() const { return byOwner + byThread; }
};

// Threads with little stack, as long as one lives: the address sanitizer clears a thread's whole
// stack before it begins and after it ends, and that would be most of what a short one takes. The
// thread sanitizer needs more itself.
#if TARNUTIL_TEST_ASAN
class SmallStacks {
public:
    SmallStacks() {
        pthread_getattr_default_np(&before);
        pthread_attr_t small = before;
        pthread_attr_setstacksize(&small, 256UL * 1024);
        pthread_setattr_default_np(&small);
    }
    ~SmallStacks() { pthread_setattr_default_np(&before); }
    SmallStacks(const SmallStacks&) = delete;
    SmallStacks& operator=(const SmallStacks&) = delete;

private:
    pthread_attr_t before{};
};
#endif

void spin(unsigned long rounds) {
    for (volatile unsigned long i = 0; i < rounds; i = i + 1) {
    }
}

// Ends a moment after it is let go.
class Crossing : public Runnable {
public:
    Crossing(Crossings& of, unsigned long moment) : crossings(of), rounds(moment) {}
    ~Crossing() override {
        ++(pthread_equal(crossings.owner, pthread_self()) != 0 ? crossings.byOwner
                                                               : crossings.byThread);
    }
    void run() override {
        there = true;
        for (int i = 0; !go; ++i) {
            if (i > 1000) std::this_thread::yield();  // only one processor for both
        }
        spin(rounds);
    }
    // Returns when the thread is about to end.
    void letGo() {
        while (!there) std::this_thread::yield();
        go = true;
    }

private:
    Crossings& crossings;
    const unsigned long rounds;
    std::atomic<bool> there{false};
    std::atomic<bool> go{false};
};

// The owner waits a little longer before each detach() that follows one that came first, and a
// little shorter otherwise: so both sides keep arriving at the same moment, and each wins often.
// Sanitizers report what is freed twice, and the counts what is never freed.
TEST(ThreadStressTest, EndOfTheWorkMayCrossDetach) {
    Random random;
#if TARNUTIL_TEST_ASAN
    const SmallStacks small;
#endif
    Crossings crossings;
    unsigned long patience = 100;
    const long mutexes = mutexesAlive();
    for (int i = 1; i <= kCrossings; ++i) {
        auto* const crossing = new Crossing(crossings, random.upTo(99));
        Thread thread(std::unique_ptr<Runnable>(crossing), /*startDetached=*/false);
        thread.start();
        crossing->letGo();
        spin(patience + random.upTo(99));
        const long before = crossings.byOwner;
        thread.detach();
        const bool tooLate = crossings.byOwner > before;
        patience =
            tooLate ? patience - patience / 8 : std::min(patience + patience / 8 + 8, 20000UL);
        ASSERT_TRUE(comesTrue([&] { return crossings.all() > i - 20; })) << "a runnable is lost";
    }
    EXPECT_TRUE(comesTrue([&] { return crossings.all() == kCrossings; })) << "a runnable is lost";
    EXPECT_TRUE(comesTrue([&] { return mutexesAlive() == mutexes; })) << "a record is lost";
    EXPECT_GT(crossings.byOwner, 0);
    EXPECT_GT(crossings.byThread, 0);
    std::cout << "detach() won " << crossings.byOwner << " crossings, the thread "
              << crossings.byThread << "\n";
}

}  // namespace
