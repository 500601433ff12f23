// SPDX-License-Identifier: Apache-2.0
// A TLS server configured from two files: tls_server CHAIN KEY [CLIENTS]
//
// Prints the port of loopback that it listens on, greets so many clients (1 if not said), and ends.
#include <arpa/inet.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <tarnutil/cert.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

struct Free {
    void operator()(SSL_CTX* ctx) const { SSL_CTX_free(ctx); }
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};

// Says what OpenSSL's error queue holds.
int complain(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    ERR_print_errors_fp(stderr);
    return 1;
}

// A socket that listens on a free port of loopback, whose number it prints; -1 on failure.
int listenOnLoopback() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr* const generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    if (listener == -1 || bind(listener, generic, size) != 0 || listen(listener, 5) != 0 ||
        getsockname(listener, generic, &size) != 0) {
        return -1;
    }
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return listener;
}

// The next client. A connection that came to nothing is no reason to end, nor is a want of
// descriptors or memory, which may pass.
int nextClient(int listener) {
    for (;;) {
        const int client = accept(listener, nullptr, nullptr);
        if (client != -1) return client;
        if (errno == EINTR || errno == ECONNABORTED) continue;
        std::perror("no client");
        (void)sleep(1);
    }
}

void greet(SSL_CTX* ctx, int client) {
    const std::unique_ptr<SSL, Free> ssl(SSL_new(ctx));
    ERR_clear_error();  // SSL_get_error looks at the queue: what stood there is none of its
                        // business
    if (ssl == nullptr || SSL_set_fd(ssl.get(), client) != 1 || SSL_accept(ssl.get()) != 1) {
        (void)complain("no handshake");
        return;
    }
    (void)SSL_write(ssl.get(), "hello\n", 6);
    (void)SSL_shutdown(ssl.get());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: tls_server CHAIN KEY [CLIENTS]\n");
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);  // a client that went away shows in the result of a write
    const std::unique_ptr<SSL_CTX, Free> ctx(SSL_CTX_new(SSLv23_method()));
    if (ctx == nullptr) return complain("no context");
    if (TARNSSL_CTX_use_certificate_chain_file(ctx.get(), argv[1]) != 1) return complain(argv[1]);
    if (TARNSSL_CTX_use_PrivateKey_file(ctx.get(), argv[2], nullptr) != 1) return complain(argv[2]);

    const int listener = listenOnLoopback();
    if (listener == -1) return complain("no port to listen on");
    for (int left = argc > 3 ? std::atoi(argv[3]) : 1; left > 0; --left) {
        const int client = nextClient(listener);
        greet(ctx.get(), client);
        (void)close(client);
    }
    (void)close(listener);
    return 0;
}
