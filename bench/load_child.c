/* SPDX-License-Identifier: Apache-2.0 */
/* load_child LIBRARY...: loads them one after the other and prints how many nanoseconds that took.
 */
#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

static long long now(void) {
    struct timespec at;
    (void)clock_gettime(CLOCK_MONOTONIC, &at);
    return at.tv_sec * 1000000000LL + at.tv_nsec;
}

int main(int argc, char** argv) {
    const long long start = now();
    for (int i = 1; i < argc; ++i) {
        if (dlopen(argv[i], RTLD_NOW | RTLD_GLOBAL) == NULL) {
            (void)fprintf(stderr, "%s\n", dlerror());
            return 1;
        }
    }
    (void)printf("%lld\n", now() - start);
    return 0;
}
