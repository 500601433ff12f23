// SPDX-License-Identifier: Apache-2.0
// The bitmap beside the sets a user would take instead: eb/<operation>/<members>/<who>, where the
// members read as how many, how they lie, and the range: 1e5_random_2^27.
//
// Each operation is measured on a set that holds all members. What changes the set goes through a
// sample of them, which is taken out or put back while the clock stands. Each set finds in the
// caches what it left of itself in the round before, whatever else was measured meanwhile.
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "bench.h"
#include "eb_peers.h"
#include "event_counter.h"

namespace tarnutil_bench {
namespace {

using Positions = std::vector<std::uint64_t>;
using Random = std::mt19937_64;

// -- The members ----------------------------------------------------------------------------------

enum class Lie { random, clustered, dense };

struct Plan {
    const char* name;
    std::size_t count;
    Lie lie;
    unsigned exponent;
};

constexpr std::size_t kSample = 100000;
constexpr std::size_t kFew = 20;

struct Data {
    Positions members;    // ascending
    Positions sample;     // some of them, or all, in random order
    Positions ascending;  // the largest of them
    Positions others;     // positions that are no members
    Positions fewOthers;  // and a few of these
};

std::uint64_t anywhere(Random& random, unsigned exponent) { return random() >> (64 - exponent); }

// Runs of 64 neighbours at random places; 1 where each is to stand alone; all of them in one run.
std::size_t runLength(const Plan& plan) {
    switch (plan.lie) {
        case Lie::random:
            return 1;
        case Lie::clustered:
            return 64;
        case Lie::dense:
            return plan.count;
    }
    return 1;
}

Positions makeMembers(const Plan& plan, Random& random) {
    const std::size_t run = runLength(plan);
    const std::uint64_t last = (std::uint64_t{1} << plan.exponent) - run;
    Positions members;
    while (members.size() < plan.count) {
        while (members.size() < plan.count) {
            const std::uint64_t first = anywhere(random, plan.exponent) % (last + 1);
            for (std::size_t i = 0; i < run; ++i) members.push_back(first + i);
        }
        std::sort(members.begin(), members.end());
        members.erase(std::unique(members.begin(), members.end()), members.end());
    }
    return members;
}

Positions sampleOf(Positions members, Random& random) {
    std::shuffle(members.begin(), members.end(), random);
    members.resize(std::min(members.size(), kSample));
    members.shrink_to_fit();
    return members;
}

Positions largestOf(const Positions& members) {
    const std::size_t count = std::min(members.size(), kSample);
    return {members.end() - static_cast<std::ptrdiff_t>(count), members.end()};
}

Positions outside(const Plan& plan, const Positions& members, Random& random) {
    Positions found;
    while (found.size() < kSample) {
        const std::uint64_t pos = anywhere(random, plan.exponent);
        if (!std::binary_search(members.begin(), members.end(), pos)) found.push_back(pos);
    }
    return found;
}

const Data& dataOf(const Plan& plan) {
    static std::map<std::string, Data> made;
    Data& data = made[plan.name];
    if (data.members.empty()) {
        Random random(plan.count + plan.exponent);
        data.members = makeMembers(plan, random);
        data.sample = sampleOf(data.members, random);
        data.ascending = largestOf(data.members);
        data.others = outside(plan, data.members, random);
        data.fewOthers.assign(data.others.begin(), data.others.begin() + kFew);
    }
    return data;
}

// The one set of a kind and range that lives, refilled where the last benchmark had other members:
// all of them at a time would take tens of gigabytes.
template <class Set>
Set& filledWith(const Plan& plan) {
    struct Filled {
        std::string with;
        const Positions* members;
        std::unique_ptr<Set> set;
    };
    static std::map<unsigned, Filled> live;
    Filled& filled = live[plan.exponent];
    if (!filled.set) filled.set = std::make_unique<Set>(plan.exponent);
    if (filled.with != plan.name) {
        if (!filled.with.empty()) {
            for (const std::uint64_t pos : *filled.members) filled.set->clear(pos);
        }
        filled.with = plan.name;
        filled.members = &dataOf(plan).members;
        for (const std::uint64_t pos : *filled.members) filled.set->set(pos);
    }
    return *filled.set;
}

// -- Measuring ------------------------------------------------------------------------------------

// The events of a benchmark's iterations, beside their time.
class Events {
public:
    explicit Events(benchmark::State& measured) : state(measured) { resume(); }
    ~Events() {
        pause();
        report("instructions", instructions);
        report("cache_misses", misses);
    }
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    // Does what is not to be measured.
    template <class Work>
    void aside(Work work) {
        state.PauseTiming();
        pause();
        work();
        resume();
        state.ResumeTiming();
    }

private:
    void resume() {
        instructions.start();
        misses.start();
    }
    void pause() {
        misses.stop();
        instructions.stop();
    }
    void report(const char* name, const EventCounter& counter) {
        if (!counter.counts()) return;
        state.counters[name] = benchmark::Counter(static_cast<double>(counter.total()),
                                                  benchmark::Counter::kAvgIterations);
    }

    benchmark::State& state;
    EventCounter instructions{PERF_COUNT_HW_INSTRUCTIONS};
    EventCounter misses{PERF_COUNT_HW_CACHE_MISSES};
};

// One operation per iteration, over the positions again and again; `again` runs before each round.
template <class Operation, class Again>
void rounds(benchmark::State& state, const Positions& positions, Operation operation, Again again) {
    Events events(state);
    std::size_t at = positions.size();
    for (auto _ : state) {
        if (at == positions.size()) {
            events.aside(again);
            at = 0;
        }
        operation(positions[at++]);
    }
}

// As rounds, for what leaves the set as it was. One round is not timed, so that it begins with the
// caches as `again` would leave them.
template <class Operation>
void steadyRounds(benchmark::State& state, const Positions& positions, Operation operation) {
    for (const std::uint64_t pos : positions) operation(pos);
    rounds(state, positions, operation, [] {});
}

template <class Set>
void setThem(benchmark::State& state, const Plan& plan, const Positions& positions) {
    Set& set = filledWith<Set>(plan);
    const auto takeOut = [&] {
        for (const std::uint64_t pos : positions) set.clear(pos);
    };
    rounds(
        state, positions, [&](std::uint64_t pos) { set.set(pos); }, takeOut);
    for (const std::uint64_t pos : positions) set.set(pos);
}

template <class Set>
void clearThem(benchmark::State& state, const Plan& plan, const Positions& positions) {
    Set& set = filledWith<Set>(plan);
    const auto putBack = [&] {
        for (const std::uint64_t pos : positions) set.set(pos);
    };
    rounds(
        state, positions, [&](std::uint64_t pos) { set.clear(pos); }, putBack);
    putBack();
}

template <class Set>
void clearAndSet(benchmark::State& state, const Plan& plan, const Positions& positions) {
    Set& set = filledWith<Set>(plan);
    const auto both = [&](std::uint64_t pos) {
        set.clear(pos);
        set.set(pos);
    };
    steadyRounds(state, positions, both);
}

template <class Set>
void testThem(benchmark::State& state, const Plan& plan, const Positions& positions) {
    const Set& set = filledWith<Set>(plan);
    const auto test = [&](std::uint64_t pos) { benchmark::DoNotOptimize(set.isSet(pos)); };
    steadyRounds(state, positions, test);
}

template <class Set>
void findNext(benchmark::State& state, const Plan& plan, const Positions& positions) {
    const Set& set = filledWith<Set>(plan);
    const auto find = [&](std::uint64_t pos) { benchmark::DoNotOptimize(set.next(pos)); };
    steadyRounds(state, positions, find);
}

// Not timed: the row is there for its counter.
template <class Set>
void countBytes(benchmark::State& state, const Plan& plan, const Positions&) {
    const std::size_t bytes = filledWith<Set>(plan).bytes();
    for (auto _ : state) benchmark::DoNotOptimize(bytes);
    state.counters["bytes"] = static_cast<double>(bytes);
}

// -- Making and releasing -------------------------------------------------------------------------

// Fresh pages, given back all at once.
class FreshPages {
public:
    explicit FreshPages(std::size_t bytes)
        : size(bytes),
          memory(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        if (memory == MAP_FAILED) throw std::bad_alloc();
    }
    ~FreshPages() { munmap(memory, size); }
    FreshPages(const FreshPages&) = delete;
    FreshPages& operator=(const FreshPages&) = delete;

    void* start() const { return memory; }

    static void* alloc(void* self, std::size_t bytes) {
        auto* const own = static_cast<FreshPages*>(self);
        void* const block = static_cast<char*>(own->memory) + own->used;
        own->used += (bytes + 15) / 16 * 16;
        return own->used <= own->size ? block : nullptr;
    }
    static void release(void*, void*) {}

private:
    std::size_t size;
    std::size_t used = 0;
    void* memory;
};

// What the blocks of a bitmap take, each at a multiple of 16.
std::size_t bytesOf(unsigned exponent) {
    const std::size_t tops = std::size_t{1} << (exponent - 19);
    return tops * (sizeof(eb_top_t) + 64 + 65536) + tops / 256 * (sizeof(eb_l1_t) + 32) + 256;
}

void initAndFree(benchmark::State& state, unsigned exponent) {
    for (auto _ : state) {
        FreshPages pages(bytesOf(exponent));
        eb_t* eb = nullptr;
        if (eb_init(&eb, std::uint64_t{1} << exponent, &pages, FreshPages::alloc,
                    FreshPages::release) != 0) {
            state.SkipWithError("no memory");
            return;
        }
        eb_free(eb);
    }
}

void memsetFresh(benchmark::State& state, unsigned exponent) {
    for (auto _ : state) {
        FreshPages pages(bytesOf(exponent));
        benchmark::DoNotOptimize(std::memset(pages.start(), 0, bytesOf(exponent)));
    }
}

void addMaking(unsigned exponent) {
    const std::string row = "eb/init_free/2^" + std::to_string(exponent) + "/";
    const auto unit = benchmark::kMillisecond;
    add(row + "tarnutil", [exponent](benchmark::State& state) {
        initAndFree(state, exponent);
    })->Unit(unit);
    add(row + "memset", [exponent](benchmark::State& state) {
        memsetFresh(state, exponent);
    })->Unit(unit);
}

// -- The rows -------------------------------------------------------------------------------------

using Operation = void (*)(benchmark::State&, const Plan&, const Positions&);

void addRow(const char* operation, const Plan& plan, const char* who, Operation run,
            Positions Data::*positions, std::size_t iterations = 0) {
    add(
        std::string("eb/") + operation + "/" + plan.name + "/" + who,
        [=](benchmark::State& state) { run(state, plan, dataOf(plan).*positions); },
        static_cast<std::int64_t>(iterations));
}

template <class Set>
constexpr bool kSearches = !std::is_same_v<Set, VectorBool> && !std::is_same_v<Set, Roaring64>;

// What fills or empties a set runs in whole rounds: the first steps of one are cheaper than the
// last. A bitset walks the gaps, for milliseconds.
template <class Set>
void addRows(const Plan& plan) {
    const auto row = [&](const char* operation, Operation run, Positions Data::*positions,
                         std::size_t iterations = 0) {
        addRow(operation, plan, Set::kName, run, positions, iterations);
    };
    row("set", setThem<Set>, &Data::sample, kSample);
    row("set_ascending", setThem<Set>, &Data::ascending, kSample);
    row("test_hit", testThem<Set>, &Data::sample);
    row("test_miss", testThem<Set>, &Data::others);
    row("clear", clearThem<Set>, &Data::sample, kSample);
    row("clear_set", clearAndSet<Set>, &Data::sample);
    row("bytes", countBytes<Set>, &Data::sample, 1);
    if constexpr (std::is_same_v<Set, DynamicBitset>) {
        row("next", findNext<Set>, &Data::fewOthers, kFew);
    } else if constexpr (kSearches<Set>) {
        row("next", findNext<Set>, &Data::others);
    }
}

// clang-format off
const Plan kPlans[] = {
    // name                 members   lie             2^
    {"1e3_random_2^27",         1000, Lie::random,    27},
    {"1e3_clustered_2^27",      1000, Lie::clustered, 27},
    {"1e3_dense_2^27",          1000, Lie::dense,     27},
    {"1e5_random_2^27",       100000, Lie::random,    27},
    {"1e5_clustered_2^27",    100000, Lie::clustered, 27},
    {"1e5_dense_2^27",        100000, Lie::dense,     27},
    {"1e7_random_2^27",     10000000, Lie::random,    27},
    {"1e7_clustered_2^27",  10000000, Lie::clustered, 27},
    {"1e7_dense_2^27",      10000000, Lie::dense,     27},
    {"1e3_random_2^32",         1000, Lie::random,    32},
    {"1e3_clustered_2^32",      1000, Lie::clustered, 32},
    {"1e3_dense_2^32",          1000, Lie::dense,     32},
    {"1e5_random_2^32",       100000, Lie::random,    32},
    {"1e5_clustered_2^32",    100000, Lie::clustered, 32},
    {"1e5_dense_2^32",        100000, Lie::dense,     32},
    {"1e7_random_2^32",     10000000, Lie::random,    32},
    {"1e7_clustered_2^32",  10000000, Lie::clustered, 32},
    {"1e7_dense_2^32",      10000000, Lie::dense,     32},
};
// clang-format on

void addAll() {
    for (const Plan& plan : kPlans) {
        addRows<Tarnutil>(plan);
        addRows<Roaring32>(plan);
        addRows<Roaring64>(plan);
        addRows<StdSet>(plan);
        addRows<VectorBool>(plan);
        addRows<DynamicBitset>(plan);
    }
    for (const unsigned exponent : {27U, 30U, 32U}) addMaking(exponent);
}

const tarnutil_bench::Added added(addAll);

}  // namespace
}  // namespace tarnutil_bench
