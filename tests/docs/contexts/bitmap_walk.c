/* SPDX-License-Identifier: Apache-2.0 */
/* Walks over members around the bounds of leaves and tops. */
#include <stdlib.h>

#include <tarnutil/eb.h>

/* the function: snippet */

static const uint64_t members[] = {3, 4, 1000, 5 * 1024 + 700, 524288 + 63, 524288 + 64, 99999999};
static unsigned visited;

static void visit(uint64_t pos) {
    if (visited == sizeof members / sizeof *members || pos != members[visited]) exit(1);
    ++visited;
}

static void* take(void* ctx, size_t size) { return ctx == NULL ? malloc(size) : NULL; }
static void give_back(void* ctx, void* block) { (void)ctx, free(block); }

int main(void) {
    eb_t* eb;
    uint64_t pos;
    unsigned i;
    if (eb_init(&eb, (uint64_t)1 << 27, NULL, take, give_back) != 0) return 1;
    for (i = 0; i < sizeof members / sizeof *members; ++i) eb_set(eb, members[i]);
    /* the loop: snippet */
    eb_free(eb);
    return visited == i ? 0 : 1;
}
