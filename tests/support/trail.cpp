// SPDX-License-Identifier: Apache-2.0
#include "trail.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "fault.h"

namespace tarnutil_test {
namespace {

constexpr std::size_t kMostSteps = 1000;
constexpr std::size_t kMostNumbers = 3;

}  // namespace

struct Trail::Step {
    Call call;
    bool parent;
    std::size_t count;
    long numbers[kMostNumbers];
};

struct Trail::Shared {
    pid_t parent;
    bool wanted[static_cast<std::size_t>(Call::count)];
    std::atomic<std::size_t> used;
    Step steps[kMostSteps];
};

std::atomic<Trail::Shared*> Trail::current{nullptr};

Trail::Trail(std::initializer_list<Call> calls) {
    void* memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED || current != nullptr) std::abort();
    auto* shared = new (memory) Shared{};
    shared->parent = getpid();
    for (const Call call : calls) shared->wanted[static_cast<std::size_t>(call)] = true;
    current = shared;
}

Trail::~Trail() { munmap(current.exchange(nullptr), sizeof(Shared)); }

void Trail::step(Call call, const long* numbers, std::size_t count) {
    Shared* shared = current;
    if (shared == nullptr || !shared->wanted[static_cast<std::size_t>(call)]) return;
    const std::size_t at = shared->used++;
    if (at >= kMostSteps || count > kMostNumbers) std::abort();
    Step& made = shared->steps[at];
    made.call = call;
    made.parent = getpid() == shared->parent;
    made.count = count;
    std::copy_n(numbers, count, made.numbers);
}

std::vector<std::string> Trail::steps(bool parent) const {
    const Shared& shared = *current.load();
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < shared.used; ++i) {
        const Step& made = shared.steps[i];
        if (made.parent != parent) continue;
        std::string text = std::string(name(made.call)) + "(";
        for (std::size_t n = 0; n < made.count; ++n) {
            text += (n == 0 ? "" : ", ") + std::to_string(made.numbers[n]);
        }
        texts.push_back(text + ")");
    }
    return texts;
}

}  // namespace tarnutil_test
