/* SPDX-License-Identifier: Apache-2.0 */
/* Brings a bitmap into the state that the guide calls S, and asks it what the guide says of it. */
#include <stdlib.h>

#include <tarnutil/eb.h>

static void* take(void* ctx, size_t size) { return ctx == NULL ? malloc(size) : NULL; }
static void give_back(void* ctx, void* block) { (void)ctx, free(block); }

int main(void) {
    eb_t* eb;
    if (eb_init(&eb, (uint64_t)1 << 33, NULL, take, give_back) != 0) return 1;
    /* snippet */
    if (eb->min != 5 || eb->max != (1 << 19) + 7 || eb->min_top != 0xFFFFFFFF) return 2;
    eb_clear(eb, 0);
    if (eb->max_top != eb->min_top || eb_find_next(eb, 5) != UINT64_MAX) return 3;
    eb_clear(eb, 5);
    if (eb->min != UINT64_MAX || eb->max != 0) return 4;
    return 0; /* which gives the memory back at once */
}
