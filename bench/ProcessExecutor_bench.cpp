// SPDX-License-Identifier: Apache-2.0
// Running a child behind three pipes, from a small and from a large process, and reading from it;
// beside the same by hand and four libraries.
#include <Poco/Pipe.h>
#include <Poco/Process.h>
#include <gio/gio.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/process.hpp>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <tarnutil/ProcessExecutor.h>
#include <tarnutil/TmpFile.h>

#include "bench.h"

namespace {

using tarnutil::Pipe;
using tarnutil::ProcessExecutor;
using tarnutil::TmpFile;

constexpr const char* kProgram = "/bin/true";
constexpr std::size_t kText = 16U << 20;
constexpr std::size_t kResident = 1U << 30;

// --- by hand ---

// The descriptors of three pipes, and the steps that parent and child take with them.
struct Streams {
    int in[2];
    int out[2];
    int err[2];

    Streams() {
        if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) std::abort();
    }

    void becomeStandard() const {
        (void)dup2(in[0], STDIN_FILENO);
        (void)dup2(out[1], STDOUT_FILENO);
        (void)dup2(err[1], STDERR_FILENO);
        for (const int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) (void)close(fd);
    }

    void keepParentsEnds() const {
        for (const int fd : {in[0], out[1], err[1]}) (void)close(fd);
    }

    void closeParentsEnds() const {
        for (const int fd : {in[1], out[0], err[0]}) (void)close(fd);
    }
};

void reap(pid_t child, const Streams& streams) {
    int status = 0;
    (void)waitpid(child, &status, 0);
    streams.closeParentsEnds();
}

pid_t forked(const Streams& streams, const char* const* argv) {
    const pid_t child = fork();
    if (child == 0) {
        streams.becomeStandard();
        (void)execv(argv[0], const_cast<char* const*>(argv));
        _exit(127);
    }
    streams.keepParentsEnds();
    return child;
}

void withFork() {
    const Streams streams;
    const char* argv[] = {kProgram, nullptr};
    reap(forked(streams, argv), streams);
}

void withSpawn() {
    const Streams streams;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, streams.in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, streams.out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, streams.err[1], STDERR_FILENO);
    for (const int* ends : {streams.in, streams.out, streams.err}) {
        posix_spawn_file_actions_addclose(&actions, ends[0]);
        posix_spawn_file_actions_addclose(&actions, ends[1]);
    }
    const char* argv[] = {kProgram, nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, kProgram, &actions, nullptr, const_cast<char* const*>(argv), environ) !=
        0) {
        std::abort();
    }
    posix_spawn_file_actions_destroy(&actions);
    streams.keepParentsEnds();
    reap(child, streams);
}

// --- by library ---

void withTarnutil() {
    const char* argv[] = {kProgram, nullptr};
    ProcessExecutor child(kProgram);
    child.exec(argv);
    (void)child.wait();
}

void withBoost() {
    namespace bp = boost::process;
    bp::pipe in;
    bp::pipe out;
    bp::pipe err;
    bp::child child(kProgram, (bp::std_in < in), (bp::std_out > out), (bp::std_err > err));
    child.wait();
}

void withPoco() {
    Poco::Pipe in;
    Poco::Pipe out;
    Poco::Pipe err;
    const Poco::ProcessHandle child = Poco::Process::launch(kProgram, {}, &in, &out, &err);
    (void)child.wait();
}

void withGlib() {
    const auto flags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDIN_PIPE |
                                                     G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                     G_SUBPROCESS_FLAGS_STDERR_PIPE);
    GSubprocess* child = g_subprocess_new(flags, nullptr, kProgram, nullptr);
    (void)g_subprocess_wait(child, nullptr, nullptr);
    g_object_unref(child);
}

// --- memory that the process has ---

// Pages of the small kind, all present: what fork has to copy the tables of.
class Resident {
public:
    explicit Resident(std::size_t bytes) : size(bytes) {
        if (size == 0) return;
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) std::abort();
        (void)madvise(memory, size, MADV_NOHUGEPAGE);
        for (std::size_t at = 0; at < size; at += 4096) static_cast<char*>(memory)[at] = 1;
    }
    ~Resident() {
        if (size != 0) (void)munmap(memory, size);
    }
    Resident(const Resident&) = delete;
    Resident& operator=(const Resident&) = delete;

private:
    std::size_t size;
    void* memory = nullptr;
};

template <class Work>
void spawnRow(const char* who, Work work) {
    for (const std::size_t resident : {std::size_t{0}, kResident}) {
        const std::string name =
            "ProcessExecutor/exec_wait/" + std::to_string(resident) + "/" + who;
        // Making the memory takes longer: the framework is not to try how often is enough.
        const std::int64_t iterations = resident != 0 ? 12 : 0;
        tarnutil_bench::add(
            name,
            [resident, work](benchmark::State& state) {
                const Resident memory(resident);
                for (auto _ : state) work();
            },
            iterations)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    }
}

// --- reading ---

// Reads to the end and returns how much there was.
std::size_t drained(int fd) {
    static std::array<char, 65536> buffer;
    std::size_t total = 0;
    ssize_t size = 0;
    while ((size = read(fd, buffer.data(), buffer.size())) > 0) {
        total += static_cast<std::size_t>(size);
    }
    return total;
}

// A file of kText bytes for cat to print.
const std::string& textFile() {
    static TmpFile file;
    static const std::string path = [] {
        file.create(/*directory=*/false);
        if (ftruncate(file.getFd(), kText) != 0) std::abort();
        return file.getPath();
    }();
    return path;
}

std::size_t readWithTarnutil(const char* path) {
    const char* argv[] = {"/bin/cat", path, nullptr};
    ProcessExecutor child(argv[0]);
    child.exec(argv);
    const std::size_t total = drained(child.stdoutPipe.getDescriptor(Pipe::READ));
    (void)child.wait();
    return total;
}

std::size_t readWithRawPipes(const char* path) {
    const char* argv[] = {"/bin/cat", path, nullptr};
    const Streams streams;
    const pid_t child = forked(streams, argv);
    const std::size_t total = drained(streams.out[0]);
    reap(child, streams);
    return total;
}

template <class Work>
void readRow(const char* who, Work work) {
    tarnutil_bench::add("ProcessExecutor/read/" + std::to_string(kText) + "/" + who,
                        [work](benchmark::State& state) {
                            const char* path = textFile().c_str();
                            for (auto _ : state) {
                                if (work(path) != kText) state.SkipWithError("text was lost");
                            }
                            state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                                                    static_cast<std::int64_t>(kText));
                        })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

void addAll() {
    spawnRow("tarnutil", withTarnutil);
    spawnRow("fork_execv", withFork);
    spawnRow("posix_spawn", withSpawn);
    spawnRow("boost::process", withBoost);
    spawnRow("Poco::Process", withPoco);
    spawnRow("GSubprocess", withGlib);
    readRow("tarnutil", readWithTarnutil);
    readRow("raw_pipe", readWithRawPipes);
}

const tarnutil_bench::Added added(addAll);

}  // namespace
