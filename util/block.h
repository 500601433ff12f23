// SPDX-License-Identifier: Apache-2.0
// Bytes handled sixteen at a time, with what every x86-64 processor has. The only file that asks
// for vector instructions.
#ifndef TARNUTIL_UTIL_BLOCK_H
#define TARNUTIL_UTIL_BLOCK_H

#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarnutil {

// Sixteen bytes, each a number of its own. A comparison sets all bits of the bytes for which it
// holds and none of the others.
class Block {
public:
    static constexpr unsigned size = sizeof(__m128i);
    static constexpr unsigned half = size / 2;

    // The bytes at `from`, which need no alignment.
    static Block at(const void* from) {
        return Block(_mm_loadu_si128(static_cast<const __m128i*>(from)));
    }

    // The eight bytes at `from`, and then zeros.
    static Block halfAt(const void* from) {
        return Block(_mm_loadl_epi64(static_cast<const __m128i*>(from)));
    }

    // Sixteen times `byte`.
    static Block of(char byte) { return Block(_mm_set1_epi8(byte)); }

    void storeTo(void* to) const { _mm_storeu_si128(static_cast<__m128i*>(to), bytes); }

    // The first eight bytes, and the last eight, as a number whose lowest byte is the first.
    std::uint64_t firstHalf() const { return static_cast<std::uint64_t>(_mm_cvtsi128_si64(bytes)); }
    std::uint64_t lastHalf() const { return Block(_mm_unpackhi_epi64(bytes, bytes)).firstHalf(); }

    // All bytes added up.
    std::size_t sum() const {
        const Block sums(_mm_sad_epu8(bytes, _mm_setzero_si128()));
        return sums.firstHalf() + sums.lastHalf();
    }

    // Bit i is the highest bit of byte i.
    unsigned mask() const { return static_cast<unsigned>(_mm_movemask_epi8(bytes)); }

    // a0 b0 a1 b1 ...: the first eight bytes of each, interleaved.
    static Block interleave(Block a, Block b) { return Block(_mm_unpacklo_epi8(a.bytes, b.bytes)); }

    // The upper four bits of each byte.
    Block highNibbles() const { return Block(_mm_srli_epi16(bytes, 4)) & of(0x0F); }

    // `byte` where `condition` holds, the own byte elsewhere.
    Block replacedWhere(Block condition, char byte) const {
        return Block(_mm_andnot_si128(condition.bytes, bytes)) | (condition & of(byte));
    }

    // Byte by byte, unsigned; + and - wrap around.
    friend Block operator<=(Block a, Block b) { return Block(_mm_min_epu8(a.bytes, b.bytes)) == a; }
    friend Block operator==(Block a, Block b) { return Block(_mm_cmpeq_epi8(a.bytes, b.bytes)); }
    friend Block operator|(Block a, Block b) { return Block(_mm_or_si128(a.bytes, b.bytes)); }
    friend Block operator&(Block a, Block b) { return Block(_mm_and_si128(a.bytes, b.bytes)); }
    friend Block operator+(Block a, Block b) { return Block(_mm_add_epi8(a.bytes, b.bytes)); }
    friend Block operator-(Block a, Block b) { return Block(_mm_sub_epi8(a.bytes, b.bytes)); }

private:
    explicit Block(__m128i sixteen) : bytes(sixteen) {}

    __m128i bytes;
};

// How many bytes of `text` are `wanted`.
inline std::size_t countOf(char wanted, std::string_view text) {
    constexpr std::size_t kMostBlocks = 255;  // what a byte can count
    const Block all = Block::of(wanted);
    std::size_t total = 0;
    while (text.size() >= Block::size) {
        const std::size_t blocks = std::min(text.size() / Block::size, kMostBlocks);
        Block counts = Block::of(0);
        for (std::size_t i = 0; i < blocks; ++i) {
            counts = counts - (Block::at(text.data() + i * Block::size) == all);
        }
        total += counts.sum();
        text.remove_prefix(blocks * Block::size);
    }
    for (const char c : text) total += c == wanted;
    return total;
}

// As many bytes as a number has bits.
constexpr std::size_t kWindow = 64;

// One bit for each byte of `window`, which has at most kWindow of them, that is `wanted`: the
// lowest bit is that of the first.
inline std::uint64_t placesOf(char wanted, std::string_view window) {
    const Block all = Block::of(wanted);
    std::uint64_t places = 0;
    std::size_t at = 0;
    for (; at + Block::size <= window.size(); at += Block::size) {
        places |= std::uint64_t{(Block::at(window.data() + at) == all).mask()} << at;
    }
    if (at + Block::half <= window.size()) {
        const unsigned mask = (Block::halfAt(window.data() + at) == all).mask();
        places |= std::uint64_t{mask & 0xFF} << at;
        at += Block::half;
    }
    for (; at < window.size(); ++at) places |= std::uint64_t{window[at] == wanted} << at;
    return places;
}

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_BLOCK_H
