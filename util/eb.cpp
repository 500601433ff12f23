// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/eb.h>

#include <cstring>
#include <utility>

// A position is  top | leaf | bit:  2^top_shift tops, 512 leaves to a top, 1024 bits to a leaf.
// Three kinds of bit record share one form: a leaf, the summary of a top (one bit per leaf) and a
// record of top_aux (one bit per top).
namespace {

constexpr unsigned kTopShift = 19;   // positions of a top
constexpr unsigned kLeafShift = 10;  // positions of a leaf
constexpr unsigned kAuxShift = 8;    // tops of a top_aux record

constexpr uint32_t kOffsetMask = (1U << kTopShift) - 1;
constexpr uint32_t kBitMask = (1U << kLeafShift) - 1;
constexpr uint32_t kAuxMask = (1U << kAuxShift) - 1;

constexpr unsigned kLeavesPerTop = 1U << (kTopShift - kLeafShift);
constexpr unsigned kWordBits = 64;
constexpr unsigned kLeafWords = (1U << kLeafShift) / kWordBits;
constexpr unsigned kSummaryWords = kLeavesPerTop / kWordBits;
constexpr unsigned kAuxWords = (1U << kAuxShift) / kWordBits;

constexpr unsigned kSmallestRange = 27;  // as powers of two
constexpr unsigned kLargestRange = 50;

constexpr uint16_t kNoBit = 0xFFFF;
constexpr uint32_t kNoOffset = 0xFFFFFFFF;
constexpr uint32_t kNoTop = 0xFFFFFFFF;
constexpr uint64_t kNoPosition = UINT64_MAX;

static_assert(sizeof(eb_l1_t) == 12, "the record layout is part of the binary interface");
static_assert(sizeof(eb_top_t) == 8 + (kLeavesPerTop + 1) * sizeof(eb_l1_t), "no padding in a top");

uint32_t top_of(uint64_t pos) { return static_cast<uint32_t>(pos >> kTopShift); }
uint32_t offset_of(uint64_t pos) { return static_cast<uint32_t>(pos) & kOffsetMask; }
uint32_t leaf_of(uint32_t offset) { return offset >> kLeafShift; }
uint32_t bit_of(uint32_t offset) { return offset & kBitMask; }
uint64_t first_of_top(uint32_t t) { return uint64_t{t} << kTopShift; }

// ---- bit records ----

uint64_t bit_in_word(uint32_t i) { return uint64_t{1} << (i % kWordBits); }
uint32_t lowest_bit(uint64_t word) { return static_cast<uint32_t>(__builtin_ctzll(word)); }
uint32_t highest_bit(uint64_t word) {
    return kWordBits - 1 - static_cast<uint32_t>(__builtin_clzll(word));
}

bool is_empty(const eb_l1_t* rec) { return rec->min == kNoBit; }

void make_empty(eb_l1_t* rec) {
    rec->min = kNoBit;
    rec->max = 0;
}

// The smallest bit above `i` in `words`, a leaf's or a summary's; -1 if there is none.
int leaf_find_next(const uint64_t* words, unsigned word_count, uint32_t i) {
    uint32_t w = i / kWordBits;
    if (i % kWordBits < kWordBits - 1) {
        const uint64_t above = words[w] >> (i % kWordBits + 1);
        if (above != 0) return static_cast<int>(i + 1 + lowest_bit(above));
    }
    while (++w < word_count) {
        if (words[w] != 0) return static_cast<int>(w * kWordBits + lowest_bit(words[w]));
    }
    return -1;
}

// The largest member below `i`, which is above the minimum. If there is no bit down to the word of
// the minimum, it is the minimum itself, which is not in the words.
uint16_t last_before(const eb_l1_t* rec, const uint64_t* words, uint32_t i) {
    const uint32_t lowest = rec->min / kWordBits;
    uint32_t w = i / kWordBits;
    uint64_t below = words[w] & (bit_in_word(i) - 1);
    while (below == 0 && w > lowest) below = words[--w];
    return below == 0 ? rec->min : static_cast<uint16_t>(w * kWordBits + highest_bit(below));
}

// Adds a bit; returns whether the record was empty before. `words` are the record's own; see
// words_of_leaf for why they are passed.
bool set1(eb_l1_t* rec, uint64_t* words, uint32_t i) {
    auto bit = static_cast<uint16_t>(i);
    if (bit <= rec->min) {  // always, in an empty record
        if (is_empty(rec)) {
            rec->min = rec->max = bit;
            return true;
        }
        if (bit == rec->min) return false;
        const uint16_t old_min = rec->min;
        rec->min = bit;
        bit = old_min;
    }
    words[bit / kWordBits] |= bit_in_word(bit);
    if (bit > rec->max) rec->max = bit;
    return false;
}

// `word` is the one of the record's that holds `i`.
bool is_set1(const eb_l1_t* rec, const uint64_t* word, uint32_t i) {
    if (i <= rec->min) return i == rec->min;
    if (i > rec->max) return false;
    return (*word >> (i % kWordBits) & 1) != 0;
}

// Removes a bit; returns whether it was the record's last.
bool clear1(eb_l1_t* rec, uint64_t* words, unsigned word_count, uint32_t i) {
    if (i <= rec->min) {  // always, in an empty record; below the minimum lies nothing
        if (i != rec->min) return false;
        if (i == rec->max) {
            make_empty(rec);
            return true;
        }
        rec->min = static_cast<uint16_t>(leaf_find_next(words, word_count, i));
        i = rec->min;
    }
    words[i / kWordBits] &= ~bit_in_word(i);
    // A new minimum, moved up from the words, may be the maximum as well: nothing is below it.
    if (i == rec->max && i != rec->min) rec->max = last_before(rec, words, i);
    return false;
}

bool set1(eb_l1_t* rec, uint32_t i) { return set1(rec, rec->words, i); }
bool clear1(eb_l1_t* rec, unsigned word_count, uint32_t i) {
    return clear1(rec, rec->words, word_count, i);
}

// Takes the words of `count` records of `bits` bits each, as one zeroed block, and makes the
// records empty. Returns 0, or -1 if there is no memory; the first record is then empty and its
// pointer null.
int allocate1_array(eb_l1_t* records, uint32_t count, uint32_t bits, void* ctx,
                    void* (*alloc)(void* ctx, size_t size)) {
    const size_t bytes = count * bits / 8;
    records[0].words = static_cast<uint64_t*>(alloc(ctx, bytes));
    make_empty(&records[0]);
    if (records[0].words == nullptr) return -1;
    std::memset(records[0].words, 0, bytes);
    for (uint32_t j = 1; j < count; ++j) {
        make_empty(&records[j]);
        records[j].words = records[j - 1].words + bits / kWordBits;
    }
    return 0;
}

// Gives back the block of words that the first of `count` records owns.
void release1_array(const eb_t* eb, eb_l1_t* records, uint32_t count) {
    eb->free(eb->ctx, records[0].words);
    for (uint32_t j = 0; j < count; ++j) records[j].words = nullptr;
}

// ---- one top ----

bool is_empty(const eb_top_t* top) { return top->min == kNoOffset; }

void make_empty(eb_top_t* top) {
    top->min = kNoOffset;
    top->max = 0;
}

// The words of the leaves follow each other: those of a leaf are found without waiting for its
// record.
uint64_t* words_of_leaf(const eb_top_t* top, uint32_t leaf) {
    return top->leaves[0].words + std::size_t{leaf} * kLeafWords;
}
uint64_t* word_of(const eb_top_t* top, uint32_t offset) {
    return top->leaves[0].words + offset / kWordBits;
}

// Asks for the record and the word of an offset before either is looked at: which of them is needed
// depends on the set too much for a processor to guess, and both are far from the rest.
void prefetch_leaf(const eb_top_t* top, uint32_t offset) {
    __builtin_prefetch(&top->leaves[leaf_of(offset)]);
    __builtin_prefetch(word_of(top, offset));
}

// The smallest and the largest offset in the leaves, which are not empty.
uint32_t first_in_leaves(const eb_top_t* top) {
    const uint32_t leaf = top->summary.min;
    return (leaf << kLeafShift) + top->leaves[leaf].min;
}
uint32_t last_in_leaves(const eb_top_t* top) {
    const uint32_t leaf = top->summary.max;
    return (leaf << kLeafShift) + top->leaves[leaf].max;
}

// Adds an offset to the leaves, and a mark of its leaf with the first one.
void set_in_leaves(eb_top_t* top, uint32_t offset) {
    const uint32_t leaf = leaf_of(offset);
    const bool is_first = set1(&top->leaves[leaf], words_of_leaf(top, leaf), bit_of(offset));
    if (is_first) set1(&top->summary, leaf);
}

// One of two without a branch: `yes` if all bits of `mask` are set, `no` if none is.
uint64_t chosen(uint64_t mask, uint64_t yes, uint64_t no) { return no ^ ((no ^ yes) & mask); }

uint64_t* chosen(uint64_t mask, uint64_t* yes, uint64_t* no) {
    const uint64_t address =
        chosen(mask, reinterpret_cast<uintptr_t>(yes), reinterpret_cast<uintptr_t>(no));
    return reinterpret_cast<uint64_t*>(address);  // NOLINT(performance-no-int-to-ptr)
}

// Adds an offset above all others of a top that is not empty. In a leaf that holds something, it
// becomes a bit of the words; in an empty one it becomes the minimum, and the leaf is marked. Which
// word changes is chosen, not branched to: a processor would guess wrong for every third member or
// so, and members often come in ascending order.
void append(eb_top_t* top, uint32_t offset) {
    const uint32_t leaf = leaf_of(offset);
    eb_l1_t* rec = &top->leaves[leaf];
    eb_l1_t* summary = &top->summary;
    const uint64_t if_first = is_empty(rec) ? ~uint64_t{0} : 0;
    top->max = offset;
    rec->min = static_cast<uint16_t>(chosen(if_first, bit_of(offset), rec->min));
    rec->max = static_cast<uint16_t>(bit_of(offset));
    if (is_empty(summary)) {  // and so was the leaf
        set1(summary, leaf);
        return;
    }
    uint64_t* words = chosen(if_first, summary->words, top->leaves[0].words);
    const auto i = static_cast<uint32_t>(chosen(if_first, leaf, offset));
    words[i / kWordBits] |= bit_in_word(i);
    summary->max = static_cast<uint16_t>(leaf);  // as it was, unless the leaf was empty
}

// Adds an offset; returns whether the top was empty before.
bool top_set(eb_top_t* top, uint32_t offset) {
    if (offset <= top->min) {  // always, in an empty top
        if (is_empty(top)) {
            top->min = top->max = offset;
            return true;
        }
        if (offset == top->min) return false;
        std::swap(offset, top->min);
    }
    if (offset > top->max) {
        append(top, offset);
    } else {
        set_in_leaves(top, offset);
    }
    return false;
}

bool top_is_set(const eb_top_t* top, uint32_t offset) {
    if (offset <= top->min || offset > top->max) return offset == top->min;
    return is_set1(&top->leaves[leaf_of(offset)], word_of(top, offset),
                   bit_of(offset));  // an unmarked leaf is empty
}

// Removes an offset from the leaves, and the mark of its leaf with the last one.
void clear_in_leaves(eb_top_t* top, uint32_t offset) {
    const uint32_t leaf = leaf_of(offset);
    const bool was_last =
        clear1(&top->leaves[leaf], words_of_leaf(top, leaf), kLeafWords, bit_of(offset));
    if (was_last) clear1(&top->summary, kSummaryWords, leaf);
}

// Quirk: clearing offset 0 of an empty top leaves its maximum all-ones, like its minimum. Nothing
// reads the maximum of an empty top. Pinned by EbClearTest.OffsetZeroOfAnEmptyTopMarksItsMaximum.
void top_clear(eb_top_t* top, uint32_t offset) {
    if (offset == top->min) {
        if (offset == top->max) return make_empty(top);
        top->min = first_in_leaves(top);
        offset = top->min;
    }
    clear_in_leaves(top, offset);
    if (offset == top->max) top->max = is_empty(&top->summary) ? top->min : last_in_leaves(top);
}

void top_reset(eb_top_t* top) {
    make_empty(top);
    make_empty(&top->summary);
    std::memset(top->summary.words, 0, kSummaryWords * sizeof(uint64_t));
    for (eb_l1_t& leaf : top->leaves) make_empty(&leaf);
    std::memset(top->leaves[0].words, 0, sizeof(uint64_t) * kLeavesPerTop * kLeafWords);
}

// ---- the summary of tops ----

uint32_t top_count(const eb_t* eb) { return 1U << eb->top_shift; }
uint32_t aux_count(const eb_t* eb) { return 1U << (eb->top_shift - kAuxShift); }

bool has_top(const eb_t* eb) { return eb->min_top != kNoTop; }

// The first record of top_aux from `record` on that is not empty; aux_count if all are.
uint32_t first_aux_from(const eb_t* eb, uint32_t record) {
    while (record < aux_count(eb) && is_empty(&eb->top_aux[record])) ++record;
    return record;
}

// The largest top marked in the records of top_aux up to `record`, or the smallest top of all.
uint32_t last_top_upto(const eb_t* eb, uint32_t record) {
    while (is_empty(&eb->top_aux[record])) {
        if (record-- == 0) return eb->min_top;
    }
    return (record << kAuxShift) + eb->top_aux[record].max;
}

void top_aux_set(eb_t* eb, uint32_t t) {
    if (t <= eb->min_top) {  // always, while there is no top
        if (!has_top(eb)) {
            eb->min_top = eb->max_top = t;
            return;
        }
        if (t == eb->min_top) return;
        std::swap(t, eb->min_top);
    }
    set1(&eb->top_aux[t >> kAuxShift], t & kAuxMask);
    if (t > eb->max_top) eb->max_top = t;
}

// A top is marked, as the smallest or in its record, exactly when it holds anything.
bool top_aux_is_set(const eb_t* eb, uint32_t t) {
    if (t <= eb->min_top) return t == eb->min_top;
    if (t > eb->max_top) return false;
    return !is_empty(&eb->tops[t]);  // which is what the mark says, and is read next anyway
}

// Removes the mark of top `t`, which may have none.
//
// Quirk: while there is no top at all, the largest top reads 0, and removing the mark of top 0
// makes it all-ones, like the smallest. Pinned by
// EbClearTest.TopZeroWhileThereIsNoTopMarksTheLargestTop.
void top_aux_clear(eb_t* eb, uint32_t t) {
    if (t == eb->min_top) {
        if (t == eb->max_top) {
            eb->min_top = kNoTop;
            eb->max_top = 0;
            return;
        }
        const uint32_t record = first_aux_from(eb, t >> kAuxShift);
        if (record < aux_count(eb)) t = (record << kAuxShift) + eb->top_aux[record].min;
        eb->min_top = t;
    }
    clear1(&eb->top_aux[t >> kAuxShift], kAuxWords, t & kAuxMask);
    if (t == eb->max_top) eb->max_top = last_top_upto(eb, t >> kAuxShift);
}

// ---- the handle ----

bool is_empty(const eb_t* eb) { return eb->min == kNoPosition; }

void make_empty(eb_t* eb) {
    eb->min = kNoPosition;
    eb->max = 0;
}

// The smallest and the largest position in the tops, of which there is one.
uint64_t first_in_tops(const eb_t* eb) {
    return first_of_top(eb->min_top) + eb->tops[eb->min_top].min;
}
uint64_t last_in_tops(const eb_t* eb) {
    return first_of_top(eb->max_top) + eb->tops[eb->max_top].max;
}

int allocate_top(eb_top_t* top, void* ctx, void* (*alloc)(void* ctx, size_t size)) {
    make_empty(top);
    if (allocate1_array(&top->summary, 1, kLeavesPerTop, ctx, alloc) != 0) return -1;
    return allocate1_array(top->leaves, kLeavesPerTop, 1U << kLeafShift, ctx, alloc);
}

// Takes everything below the handle. Both arrays are asked for before either is looked at.
int allocate_levels(eb_t* eb, void* ctx, void* (*alloc)(void* ctx, size_t size)) {
    eb->tops = static_cast<eb_top_t*>(alloc(ctx, top_count(eb) * sizeof(eb_top_t)));
    eb->top_aux = static_cast<eb_l1_t*>(alloc(ctx, aux_count(eb) * sizeof(eb_l1_t)));
    if (eb->tops == nullptr || eb->top_aux == nullptr) return -1;
    for (uint32_t t = 0; t < top_count(eb); ++t) {
        if (allocate_top(&eb->tops[t], ctx, alloc) != 0) return -1;
    }
    return allocate1_array(eb->top_aux, aux_count(eb), 1U << kAuxShift, ctx, alloc);
}

// Adds a position to the tops, and a mark of its top with the first one.
void set_in_tops(eb_t* eb, uint64_t pos) {
    const uint32_t t = top_of(pos);
    if (top_set(&eb->tops[t], offset_of(pos))) top_aux_set(eb, t);
}

// Removes a position from the tops, and the mark of its top if that is empty afterwards.
void clear_in_tops(eb_t* eb, uint64_t pos) {
    eb_top_t* top = &eb->tops[top_of(pos)];
    prefetch_leaf(top, offset_of(pos));
    top_clear(top, offset_of(pos));
    if (is_empty(top)) top_aux_clear(eb, top_of(pos));
}

// The low 32 bits of the first position of the top of `pos`.
//
// Quirk: a range above 2^32 positions folds onto 32 bits here and in the two below. Pinned by
// EbFoldTest.
uint32_t folded_top(uint64_t pos) { return static_cast<uint32_t>(pos) & ~kOffsetMask; }
uint32_t folded_first(uint32_t t) { return t << kTopShift; }
uint32_t folded(uint64_t pos) { return static_cast<uint32_t>(pos); }

// What find_next answers for an offset up to the largest of its top.
uint64_t next_in_top(const eb_top_t* top, uint64_t base, uint32_t offset) {
    if (offset < top->min) return base + top->min;
    // Quirk: nothing more in this top is answered by the position before it.
    // Pinned by EbFindNextTest.TheLargestOfATopAnswersThePositionBeforeTheTop.
    if (offset == top->max) return base - 1;

    const uint32_t leaf = leaf_of(offset);
    const uint32_t bit = bit_of(offset);
    const eb_l1_t* rec = &top->leaves[leaf];
    if (!is_empty(rec)) {
        const uint32_t leaf_base = leaf << kLeafShift;
        if (bit < rec->min) return base + (leaf_base + rec->min);
        // Quirk: nothing more in this leaf is answered likewise, in 32 bits.
        // Pinned by EbFindNextTest.TheLargestOfALeafAnswersThePositionBeforeTheLeaf.
        if (bit >= rec->max) return base + (leaf_base - 1);
        return base + (leaf_base + static_cast<uint32_t>(
                                       leaf_find_next(words_of_leaf(top, leaf), kLeafWords, bit)));
    }
    // Quirk: the leaf's own offset is left out. Callers expect the value as it is.
    // Pinned by EbFindNextTest.TheNextLeafComesWithoutItsOffset.
    const eb_l1_t* summary = &top->summary;
    const uint32_t next =
        leaf < summary->min
            ? summary->min
            : static_cast<uint32_t>(leaf_find_next(summary->words, kSummaryWords, leaf));
    return base + top->leaves[next].min;
}

// What find_next answers when the top of its position has nothing more: the smallest of another
// top.
//
// Quirk: the search starts at the smallest top, wherever the position is, and takes the top it
// finds to be one of the second record. Pinned by
// EbFindNextTest.TheNextTopIsLookedForInTheSecondRecord.
uint64_t next_in_tops(const eb_t* eb) {
    if (!has_top(eb)) return kNoPosition;
    if (eb->min_top == eb->max_top) return first_in_tops(eb);
    const uint32_t record = first_aux_from(eb, eb->min_top >> kAuxShift);
    if (record >= aux_count(eb)) return kNoPosition;
    const uint32_t t = eb->top_aux[record].min + (1U << kAuxShift);
    if (t >= top_count(eb)) return kNoPosition;
    return first_of_top(t) + eb->tops[t].min;
}

}  // namespace

int eb_init(eb_t** out, uint64_t n, void* ctx, void* (*alloc)(void* ctx, size_t size),
            void (*free)(void* ctx, void* ptr)) {
    if (n == 0 || (n & (n - 1)) != 0) return -1;
    const uint32_t exponent = lowest_bit(n);
    if (exponent < kSmallestRange || exponent > kLargestRange) return -1;

    *out = nullptr;
    auto* eb = static_cast<eb_t*>(alloc(ctx, sizeof(eb_t)));
    if (eb == nullptr) return -1;
    std::memset(eb, 0, sizeof(*eb));
    make_empty(eb);
    eb->min_top = kNoTop;
    eb->top_shift = exponent - kTopShift;
    if (allocate_levels(eb, ctx, alloc) != 0) {
        free(ctx, eb);
        return -1;
    }
    eb->ctx = ctx;
    eb->alloc = alloc;
    eb->free = free;
    *out = eb;
    return 0;
}

void eb_free(eb_t* eb) {
    for (uint32_t t = 0; t < top_count(eb); ++t) {
        release1_array(eb, &eb->tops[t].summary, 1);
        release1_array(eb, eb->tops[t].leaves, kLeavesPerTop);
    }
    release1_array(eb, eb->top_aux, aux_count(eb));
    eb->free(eb->ctx, eb->tops);
    eb->free(eb->ctx, eb->top_aux);
    eb->free(eb->ctx, eb);
}

int eb_set(eb_t* eb, uint64_t pos) {
    if (pos <= eb->min) {  // always, in an empty bitmap
        if (is_empty(eb)) {
            eb->min = eb->max = pos;
            return 0;
        }
        if (pos == eb->min) return 0;
        std::swap(pos, eb->min);
    }
    if (pos > eb->max) eb->max = pos;
    set_in_tops(eb, pos);
    return 0;
}

int eb_is_set(const eb_t* eb, uint64_t pos) {
    if (is_empty(eb)) return 0;
    if (pos == eb->min) return 1;
    const uint32_t t = top_of(pos);
    const eb_top_t* top = &eb->tops[t];
    // The leaf's record is needed soon, and far from the rest.
    __builtin_prefetch(&top->leaves[leaf_of(offset_of(pos))]);
    if (t < eb->min_top || t > eb->max_top) return 0;
    return top_is_set(top, offset_of(pos)) ? 1 : 0;  // an unmarked top is empty
}

void eb_clear(eb_t* eb, uint64_t pos) {
    if (is_empty(eb)) return;
    if (pos == eb->min) {
        if (pos == eb->max || !has_top(eb)) return make_empty(eb);
        eb->min = first_in_tops(eb);
        pos = eb->min;
    }
    clear_in_tops(eb, pos);
    if (pos == eb->max) eb->max = has_top(eb) ? last_in_tops(eb) : eb->min;
}

// Quirk: a smallest member that moves up from the tops stays in its top as well. Pinned by
// EbClearTopTest.ThePromotedMinimumStaysInItsTop.
void eb_clear_top(eb_t* eb, uint64_t pos) {
    if (is_empty(eb)) return;
    const bool takes_min = folded_top(eb->min) == folded_top(pos);
    if (!has_top(eb)) {
        if (takes_min) make_empty(eb);
        return;
    }
    top_aux_clear(eb, top_of(pos));
    top_reset(&eb->tops[top_of(pos)]);
    if (has_top(eb)) {
        if (takes_min) eb->min = folded(first_in_tops(eb));
        if (folded_top(eb->max) == folded_top(pos)) eb->max = folded(last_in_tops(eb));
    } else if (takes_min) {
        make_empty(eb);
    } else {
        eb->max = eb->min;
    }
}

uint64_t eb_find_next(const eb_t* eb, uint64_t pos) {
    if (pos < eb->min) return eb->min;
    if (pos >= eb->max) return kNoPosition;
    const uint32_t t = top_of(pos);
    const eb_top_t* top = &eb->tops[t];
    if (top_aux_is_set(eb, t) && offset_of(pos) <= top->max) {
        return next_in_top(top, folded_first(t), offset_of(pos));
    }
    return next_in_tops(eb);
}
