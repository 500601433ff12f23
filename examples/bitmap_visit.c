/* SPDX-License-Identifier: Apache-2.0 */
/* Visits every member of a bitmap in ascending order. */
#include <stdio.h>
#include <stdlib.h>

#include <tarnutil/eb.h>

#include "member_from.h"

static const uint64_t members[] = {3, 4, 1000, 5 * 1024 + 700, 524288 + 63, 524288 + 64, 99999999};
static const size_t count = sizeof(members) / sizeof(members[0]);
static size_t visited;

static void visit(uint64_t pos) {
    printf("%llu\n", (unsigned long long)pos);
    if (visited == count || pos != members[visited]) exit(1);
    ++visited;
}

static void* take(void* ctx, size_t size) {
    (void)ctx;
    return malloc(size);
}

static void give_back(void* ctx, void* block) {
    (void)ctx;
    free(block);
}

int main(void) {
    eb_t* eb;
    uint64_t pos;
    size_t i;

    if (eb_init(&eb, (uint64_t)1 << 27, NULL, take, give_back) != 0) return 1;
    for (i = 0; i < count; ++i) eb_set(eb, members[i]);
    for (pos = member_from(eb, 0); pos != MEMBER_NONE; pos = member_from(eb, pos + 1)) visit(pos);
    eb_free(eb);
    return visited == count ? 0 : 1;
}
