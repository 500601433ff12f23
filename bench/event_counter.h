// SPDX-License-Identifier: Apache-2.0
// Counts what the processor does between two points, where the machine lets us.
#ifndef TARNUTIL_BENCH_EVENT_COUNTER_H
#define TARNUTIL_BENCH_EVENT_COUNTER_H

#include <linux/perf_event.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace tarnutil_bench {

// One hardware event of this thread, in user space.
class EventCounter {
public:
    explicit EventCounter(std::uint64_t event) {
        perf_event_attr attributes{};
        attributes.size = sizeof(attributes);
        attributes.type = PERF_TYPE_HARDWARE;
        attributes.config = event;
        attributes.disabled = 1;
        attributes.exclude_kernel = 1;
        fd = static_cast<int>(syscall(SYS_perf_event_open, &attributes, 0, -1, -1, 0));
    }
    ~EventCounter() {
        if (counts()) close(fd);
    }
    EventCounter(const EventCounter&) = delete;
    EventCounter& operator=(const EventCounter&) = delete;

    bool counts() const { return fd >= 0; }  // false where the machine has no such counter
    void start() { control(PERF_EVENT_IOC_ENABLE); }
    void stop() { control(PERF_EVENT_IOC_DISABLE); }

    // The events of all spans so far.
    std::uint64_t total() const {
        std::uint64_t value = 0;
        return counts() && read(fd, &value, sizeof(value)) == sizeof(value) ? value : 0;
    }

private:
    void control(unsigned long request) {
        if (counts()) ioctl(fd, request, 0);
    }

    int fd;
};

}  // namespace tarnutil_bench
#endif  // TARNUTIL_BENCH_EVENT_COUNTER_H
