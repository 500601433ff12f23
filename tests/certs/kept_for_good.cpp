// SPDX-License-Identifier: Apache-2.0
// Asks for the address of a revocation list, whose list is never released. Alone in a program for
// leak checkers to look at: kept_for_good CERTIFICATE
#include <tarnutil/cert.h>

#include <cstdio>
#include <cstring>

namespace {

// Asks and forgets, and leaves no pointer to the answer in a register or on the stack.
__attribute__((noinline)) bool asks(const char* path) {
    X509* const cert = TARNSSL_load_X509_file(path);
    if (cert == nullptr) return false;
    const unsigned char* const url = TARNSSL_X509_get_first_crl_dp(cert);
    const bool found = url != nullptr;
    X509_free(cert);
    return found;
}

__attribute__((noinline)) void overwriteStack() {
    volatile char room[16384];
    for (volatile char& byte : room) byte = 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || !asks(argv[1])) {
        std::fputs("no address in that certificate\n", stderr);
        return 2;
    }
    overwriteStack();
    return 0;
}
