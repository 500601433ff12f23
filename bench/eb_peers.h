// SPDX-License-Identifier: Apache-2.0
// The bitmap and the sets a user would take instead, behind one face: set, isSet, clear, next,
// bytes.
//
// Each is made for the positions below 2^exponent. next answers a position after the given one, or
// anything if there is none.
#ifndef TARNUTIL_BENCH_EB_PEERS_H
#define TARNUTIL_BENCH_EB_PEERS_H

#include <roaring/roaring.h>

#include <boost/dynamic_bitset.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <roaring/roaring64map.hh>
#include <set>
#include <vector>

#include <tarnutil/eb.h>

namespace tarnutil_bench {

// malloc that keeps count.
struct CountingAllocator {
    std::size_t bytes = 0;

    static void* alloc(void* self, std::size_t count) {
        static_cast<CountingAllocator*>(self)->bytes += count;
        return std::malloc(count);
    }
    static void release(void*, void* block) { std::free(block); }
};

class Tarnutil {
public:
    static constexpr const char* kName = "tarnutil";

    explicit Tarnutil(unsigned exponent) {
        const std::uint64_t positions = std::uint64_t{1} << exponent;
        if (eb_init(&eb, positions, &memory, CountingAllocator::alloc,
                    CountingAllocator::release) != 0) {
            throw std::bad_alloc();
        }
    }
    ~Tarnutil() { eb_free(eb); }
    Tarnutil(const Tarnutil&) = delete;
    Tarnutil& operator=(const Tarnutil&) = delete;

    void set(std::uint64_t pos) { eb_set(eb, pos); }
    bool isSet(std::uint64_t pos) const { return eb_is_set(eb, pos) != 0; }
    void clear(std::uint64_t pos) { eb_clear(eb, pos); }
    std::uint64_t next(std::uint64_t pos) const { return eb_find_next(eb, pos); }
    std::size_t bytes() const { return memory.bytes; }

private:
    CountingAllocator memory;
    eb_t* eb = nullptr;
};

class Roaring32 {
public:
    static constexpr const char* kName = "roaring_bitmap_t";

    explicit Roaring32(unsigned) : bitmap(roaring_bitmap_create(), roaring_bitmap_free) {}

    void set(std::uint64_t pos) { roaring_bitmap_add(bitmap.get(), narrow(pos)); }
    bool isSet(std::uint64_t pos) const {
        return roaring_bitmap_contains(bitmap.get(), narrow(pos));
    }
    void clear(std::uint64_t pos) { roaring_bitmap_remove(bitmap.get(), narrow(pos)); }
    std::uint64_t next(std::uint64_t pos) const {
        roaring_uint32_iterator_t at;
        roaring_init_iterator(bitmap.get(), &at);
        roaring_move_uint32_iterator_equalorlarger(&at, narrow(pos) + 1);
        return at.current_value;
    }
    std::size_t bytes() const {
        roaring_statistics_t statistics;
        roaring_bitmap_statistics(bitmap.get(), &statistics);
        return statistics.n_bytes_array_containers + statistics.n_bytes_run_containers +
               statistics.n_bytes_bitset_containers;
    }

private:
    static std::uint32_t narrow(std::uint64_t pos) { return static_cast<std::uint32_t>(pos); }

    std::unique_ptr<roaring_bitmap_t, void (*)(const roaring_bitmap_t*)> bitmap;
};

// Has no search from a position.
class Roaring64 {
public:
    static constexpr const char* kName = "Roaring64Map";

    explicit Roaring64(unsigned) {}

    void set(std::uint64_t pos) { bitmap.add(pos); }
    bool isSet(std::uint64_t pos) const { return bitmap.contains(pos); }
    void clear(std::uint64_t pos) { bitmap.remove(pos); }
    std::size_t bytes() const { return bitmap.getSizeInBytes(); }

private:
    Roaring64Map bitmap;
};

class StdSet {
public:
    static constexpr const char* kName = "std::set";

    explicit StdSet(unsigned) {}

    void set(std::uint64_t pos) { members.insert(pos); }
    bool isSet(std::uint64_t pos) const { return members.find(pos) != members.end(); }
    void clear(std::uint64_t pos) { members.erase(pos); }
    std::uint64_t next(std::uint64_t pos) const {
        const auto at = members.upper_bound(pos);
        return at == members.end() ? 0 : *at;
    }
    std::size_t bytes() const { return members.size() * kNodeBytes; }

private:
    static constexpr std::size_t kNodeBytes = 48;  // the block that malloc gives for a node of 40

    std::set<std::uint64_t> members;
};

// Has no search from a position.
class VectorBool {
public:
    static constexpr const char* kName = "std::vector<bool>";

    explicit VectorBool(unsigned exponent) : bits(std::size_t{1} << exponent) {}

    void set(std::uint64_t pos) { bits[pos] = true; }
    bool isSet(std::uint64_t pos) const { return bits[pos]; }
    void clear(std::uint64_t pos) { bits[pos] = false; }
    std::size_t bytes() const { return bits.size() / 8; }

private:
    std::vector<bool> bits;
};

class DynamicBitset {
public:
    static constexpr const char* kName = "boost::dynamic_bitset";

    explicit DynamicBitset(unsigned exponent) : bits(std::size_t{1} << exponent) {}

    void set(std::uint64_t pos) { bits.set(pos); }
    bool isSet(std::uint64_t pos) const { return bits.test(pos); }
    void clear(std::uint64_t pos) { bits.reset(pos); }
    std::uint64_t next(std::uint64_t pos) const { return bits.find_next(pos); }
    std::size_t bytes() const { return bits.size() / 8; }

private:
    boost::dynamic_bitset<> bits;
};

}  // namespace tarnutil_bench
#endif  // TARNUTIL_BENCH_EB_PEERS_H
