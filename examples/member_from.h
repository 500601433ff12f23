/* SPDX-License-Identifier: Apache-2.0 */
/* The smallest member of a bitmap at or above a position, by means of eb_find_next as it is.
 *
 * eb_find_next answers the next member only within a leaf, or when it is the smallest of its top.
 * All its other answers say that the search has to go on, and how far it may skip. Taken from the
 * start of the top of the position, cut to 32 bits as the answer is, an answer
 *
 *   inside the top    is the next member if it lies above the position and is a member; if not, the
 *                     rest of the position's leaf is empty;
 *   2^32 - 1 above    says that the rest of the leaf is empty, if it is the first of its top;
 *   anywhere else     says that the rest of the top is empty.
 *
 * This holds in every range: the answer is put back into the top that it was asked for. A member
 * that comes back after eb_clear_top may lie below `min` or above `max` of the handle, and is not
 * found there.
 */
#ifndef MEMBER_FROM_H
#define MEMBER_FROM_H

#include <tarnutil/eb.h>

#define MEMBER_NONE UINT64_MAX

/* The first position after the span of `span` positions, a power of two, that holds `pos`. */
static inline uint64_t after_span(uint64_t pos, uint64_t span) { return (pos | (span - 1)) + 1; }

/* The smallest member at or above `pos`; MEMBER_NONE if there is none. */
static inline uint64_t member_from(const eb_t* eb, uint64_t pos) {
    const uint64_t leaf_span = (uint64_t)1 << 10;
    const uint64_t top_span = (uint64_t)1 << 19;

    if (pos < eb->min) pos = eb->min;
    while (pos <= eb->max) {
        const uint64_t top = pos & ~(top_span - 1);
        uint64_t step;

        if (eb_is_set(eb, pos)) return pos;
        step = eb_find_next(eb, pos) - (uint32_t)top;
        if (step < top_span && top + step > pos && eb_is_set(eb, top + step)) return top + step;
        pos = after_span(pos, step < top_span || step == 0xFFFFFFFF ? leaf_span : top_span);
    }
    return MEMBER_NONE;
}

#endif /* MEMBER_FROM_H */
