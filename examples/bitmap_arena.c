/* SPDX-License-Identifier: Apache-2.0 */
/* A bitmap whose memory comes from an arena, so that a failed eb_init leaks nothing.
 *
 * When an allocation fails, eb_init gives back the handle alone: the blocks taken before stay with
 * the allocator. An arena that the caller drops as a whole gets all of them back. As it is one
 * reservation of address space, it costs no more than what is really used of it, and dropping it is
 * one call.
 */
#define _DEFAULT_SOURCE /* MAP_ANONYMOUS and MAP_NORESERVE */

#include <stdio.h>
#include <sys/mman.h>

#include <tarnutil/eb.h>

typedef struct arena {
    char* memory;
    size_t size;
    size_t used;
} arena_t;

static int arena_open(arena_t* arena, size_t size) {
    void* memory = mmap(NULL, size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return -1;
    arena->memory = memory;
    arena->size = size;
    arena->used = 0;
    return 0;
}

/* Takes every block back at once. */
static void arena_drop(arena_t* arena) { munmap(arena->memory, arena->size); }

static void* arena_alloc(void* ctx, size_t size) {
    arena_t* arena = ctx;
    const size_t rounded = (size + 63) / 64 * 64; /* each block on a cache line of its own */
    if (rounded > arena->size - arena->used) return NULL;
    arena->used += rounded;
    return arena->memory + arena->used - rounded;
}

/* Blocks go back with the arena. */
static void arena_free(void* ctx, void* block) {
    (void)ctx;
    (void)block;
}

/* Enough for a bitmap of `n` positions: its blocks and the rounding of each. */
static size_t arena_size(uint64_t n) {
    const size_t tops = (size_t)(n >> 19);
    return tops * (sizeof(eb_top_t) + 64 + 65536) + (tops / 256) * (sizeof(eb_l1_t) + 32) +
           sizeof(eb_t) + 4 * 64;
}

/* Returns 0 if a bitmap of `n` positions in an arena of `size` bytes does what is expected of it.
 */
static int use(uint64_t n, size_t size, int expected) {
    arena_t arena;
    eb_t* eb = NULL;
    int result;

    if (arena_open(&arena, size) != 0) return -1;
    result = eb_init(&eb, n, &arena, arena_alloc, arena_free);
    printf("%zu of %zu bytes used: eb_init returns %d\n", arena.used, arena.size, result);
    if (result == 0) {
        eb_set(eb, n - 1);
        result = eb_is_set(eb, n - 1) && !eb_is_set(eb, 0) ? 0 : -2;
        eb_free(eb);
    }
    arena_drop(&arena); /* whether eb_init failed or not */
    return result == expected ? 0 : -1;
}

int main(void) {
    const uint64_t n = (uint64_t)1 << 27;

    if (use(n, arena_size(n), 0) != 0) return 1;
    if (use(n, arena_size(n) / 2, -1) != 0)
        return 1; /* too small: fails half way, and leaks nothing */
    return 0;
}
