/* SPDX-License-Identifier: Apache-2.0 */
/* A set of positions out of a fixed range of 2^27 to 2^50, in memory that is all taken at the
 * start.
 *
 * A handle costs about 1.095 bits for every position of its range, set or not, and no operation but
 * eb_init allocates. Setting, testing and clearing touch three levels: the handle, one of its tops
 * (2^19 positions each) and one of that top's leaves (1024 positions each). Every level keeps its
 * smallest member in its own header and not below, so that a level with one member has nothing
 * under it. docs/bitmap.md draws the geometry.
 *
 * Positions are not compared with the size of the range: one at or beyond it is undefined
 * behaviour.
 *
 * Errors:  only eb_init fails, by its result. Nothing here throws, prints or sets errno.
 * Threads: no locks. One handle belongs to one thread at a time; distinct handles are independent.
 */
#ifndef TARNUTIL_EB_H
#define TARNUTIL_EB_H

#include <stddef.h>
#include <stdint.h>

#include <tarnutil/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A record of up to 1024 bits. Callers may read the records of a handle, never write them. */
typedef struct __attribute__((packed)) eb_l1 {
    uint16_t min;    /* smallest member, not in `words`; 0xFFFF when the record is empty */
    uint16_t max;    /* largest member, in `words` unless it equals `min`; 0 when empty */
    uint64_t* words; /* bit i is bit (i & 63) of words[i >> 6], in a block that record 0 owns */
} eb_l1_t;

/* 2^19 = 524,288 neighbouring positions, held as offsets from the first of them. */
typedef struct eb_top {
    uint32_t min;        /* smallest offset, not in the leaves; 0xFFFFFFFF when the top is empty */
    uint32_t max;        /* largest offset, in the leaves unless it equals `min`; 0 when empty, or
                            0xFFFFFFFF once offset 0 of the empty top has been cleared */
    eb_l1_t leaves[512]; /* 1024 bits each */
    eb_l1_t summary;     /* 512 bits: the leaves that hold anything */
} eb_top_t;

/* A handle. */
typedef struct eb {
    uint32_t top_shift; /* the range is 2^(top_shift + 19) positions in 2^top_shift tops */
    eb_top_t* tops;     /* 2^top_shift of them */
    eb_l1_t* top_aux;   /* 256 bits each: the tops that hold anything, `min_top` left out */
    uint64_t min;       /* smallest member, all-ones when the set is empty; in no top, unless
                           eb_clear_top promoted it. A member that comes back after that (see
                           there) may lie below `min` or above `max` */
    uint64_t max;       /* largest member, 0 when the set is empty; above 2^32 positions it may be
                           no member once eb_clear_top has folded it */
    uint32_t min_top;   /* smallest top that holds anything; 0xFFFFFFFF when none does */
    uint32_t max_top;   /* largest such top; 0 when there is none, or 0xFFFFFFFF once a position of
                           the empty top 0 has been cleared meanwhile */
    void* ctx;          /* what `alloc` and `free` get as their first argument */

    /* The memory functions that eb_init was given. */
    void* (*alloc)(void* ctx, size_t size);
    void (*free)(void* ctx, void* ptr);
} eb_t;

/* Makes an empty set over the `n` positions 0 to n - 1 and stores its handle in `*out`; release it
 * with eb_free. `n` is a power of two from 2^27 to 2^50.
 *
 * All memory comes from `alloc(ctx, bytes)`, which returns a block aligned for any type or NULL,
 * and goes back through `free(ctx, block)`: 4 blocks and 2 more for every 2^19 positions. Blocks
 * need not be zeroed.
 *
 * Returns 0, or -1 without touching `*out` if `n` is no such number, or -1 with `*out` NULL if
 * `alloc` returned NULL. After such a failure only the handle itself has been given back: all other
 * blocks taken so far stay with the caller's allocator. An allocator that can drop them all at
 * once, as in examples/bitmap_arena.c, loses nothing. */
TARNUTIL_API int eb_init(eb_t** out, uint64_t n, void* ctx, void* (*alloc)(void* ctx, size_t size),
                         void (*free)(void* ctx, void* ptr));

/* Gives every block back, the handle last. `eb` may not be NULL. */
TARNUTIL_API void eb_free(eb_t* eb);

/* Adds `pos`, which may be a member already. Always returns 0. */
TARNUTIL_API int eb_set(eb_t* eb, uint64_t pos);

/* Returns 1 if `pos` is a member, 0 if not. */
TARNUTIL_API int eb_is_set(const eb_t* eb, uint64_t pos);

/* Removes `pos`, which need not be a member. A smallest member that eb_clear_top promoted is still
 * a member after the first eb_clear, or comes back later: see there. */
TARNUTIL_API void eb_clear(eb_t* eb, uint64_t pos);

/* Removes all members of the top that holds `pos`: the 2^19 positions that share pos >> 19.
 *
 * If the smallest member of the set goes, the next one takes its place but is not taken out of its
 * top. The set then holds it twice: eb_clear of it takes only one of the two (and if it is the only
 * member, leaves one that shows up again when the set is next added to). A member that comes back
 * so may lie below `min` or above `max`, where eb_find_next does not look.
 *
 * Whether the smallest and the largest member go is decided on the low 32 bits of the positions,
 * and their successors are folded to 32 bits: in a range above 2^32 positions both may come out
 * wrong. */
TARNUTIL_API void eb_clear_top(eb_t* eb, uint64_t pos);

/* Looks for the member that follows `pos`. The answer is one of these, the first that applies:
 *
 *   `min`                       if `pos` is below it (all-ones if the set is empty);
 *   all-ones                    if `pos` is at or above `max`;
 *
 * then, if the top of `pos` (t = pos >> 19, l = the leaf of `pos` in it, base = t << 19 cut to its
 * low 32 bits) holds a member of its own at or above `pos`:
 *
 *   the member that follows     if it lies in the leaf of `pos`, or is the smallest of the top of
 *                               `pos`; above 2^32 positions cut likewise: base plus its offset;
 *   base - 1                    if `pos` is the largest of the top (all-ones for base 0);
 *   base + b                    if the leaf is empty, where b is the bit of the member that follows
 *                               within its own leaf: the offset of that leaf is left out;
 *   base + l * 1024 - 1         if `pos` is not below the largest of the leaf; for leaf 0 that is
 *                               base + 0xFFFFFFFF;
 *
 * and otherwise:
 *
 *   the smallest of the top     if only one top holds anything;
 *   the smallest of top x + 256 where x is the second smallest top that holds anything, modulo 256;
 *                               0xFFFFFFFF positions after its start if that top is empty, and
 *                               all-ones if there is no such top.
 *
 * Here a top holds all members of its 2^19 positions but the smallest member of the set, and a leaf
 * all members of its 1024 positions but that and the smallest of the top. So an answer is the next
 * member only if it is above `pos`, in the same top and a member; examples/bitmap_visit.c visits
 * them all.
 */
TARNUTIL_API uint64_t eb_find_next(const eb_t* eb, uint64_t pos);

#ifdef __cplusplus
}
#endif
#endif /* TARNUTIL_EB_H */
