// SPDX-License-Identifier: Apache-2.0
// A pool of workers that take jobs off a queue, built of Mutex, Condition and Thread.
//
//   worker_pool [WORKERS [JOBS]]
#include <algorithm>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include <tarnutil/Condition.h>
#include <tarnutil/Mutex.h>
#include <tarnutil/Thread.h>

using tarnutil::Condition;
using tarnutil::Mutex;
using tarnutil::Runnable;
using tarnutil::Thread;

namespace {

using Job = std::function<void()>;

// Jobs in the order in which they came. A failing lock leaves nothing to save, so it aborts.
class Queue {
public:
    void put(Job job) {
        const Mutex::LockHolder lock(mutex);
        jobs.push_back(std::move(job));
        changed.signal();
    }

    // No more jobs come: workers end when the queue is empty.
    void close() {
        const Mutex::LockHolder lock(mutex);
        closed = true;
        changed.broadcast();
    }

    // Waits for a job; an empty function when there is none left to come.
    Job take() {
        const Mutex::LockHolder lock(mutex);
        while (jobs.empty() && !closed) changed.wait(mutex);
        if (jobs.empty()) return Job();
        Job job = std::move(jobs.front());
        jobs.pop_front();
        return job;
    }

private:
    Mutex mutex{/*abort=*/true, Mutex::NORMAL};
    Condition changed{/*abort=*/true};
    std::deque<Job> jobs TARNUTIL_GUARDED_BY(mutex);
    bool closed TARNUTIL_GUARDED_BY(mutex) = false;
};

class Worker : public Runnable {
public:
    explicit Worker(Queue& from) : queue(from) {}

    void run() override {
        while (const Job job = queue.take()) job();
    }

private:
    Queue& queue;
};

// Workers that begin with the pool and end with it, after the last job.
class Pool {
public:
    // If a worker cannot start, those that have are joined: once the constructor that this one
    // calls is through, there is a pool for the destructor to end.
    explicit Pool(std::size_t size) : Pool() {
        workers.reserve(size);  // a thread that runs needs its place
        for (std::size_t i = 0; i < size; ++i) {
            auto worker = std::make_unique<Worker>(queue);
            auto thread = std::make_unique<Thread>(std::move(worker), /*startDetached=*/false);
            thread->start();
            workers.push_back(std::move(thread));
        }
    }
    ~Pool() {
        queue.close();
        for (const auto& worker : workers) std::unique_ptr<Runnable>(worker->join());
    }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    void run(Job job) { queue.put(std::move(job)); }

private:
    Pool() = default;

    Queue queue;
    std::vector<std::unique_ptr<Thread>> workers;
};

// Whether so many workers add the numbers of so many jobs up.
bool addUp(int workers, int jobs) {
    Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    long sum = 0;
    {
        Pool pool(static_cast<std::size_t>(workers));
        for (int i = 1; i <= jobs; ++i) {
            pool.run([&mutex, &sum, i] {
                const Mutex::LockHolder lock(mutex);
                sum += i;
            });
        }
    }
    std::cout << workers << " workers added 1 to " << jobs << ": " << sum << "\n";
    return sum == static_cast<long>(jobs) * (jobs + 1) / 2;
}

}  // namespace

int main(int argc, char** argv) try {
    const int workers = argc > 1 ? std::max(std::atoi(argv[1]), 1) : 4;
    const int jobs = argc > 2 ? std::atoi(argv[2]) : 1000;
    return addUp(workers, jobs) ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return EXIT_FAILURE;
}
