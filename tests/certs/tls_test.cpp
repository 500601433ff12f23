// SPDX-License-Identifier: Apache-2.0
// Real handshakes over loopback between contexts that only these functions configured.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <tarnutil/cert.h>
#include <unistd.h>

#include <thread>

#include "material.h"

namespace tarnutil_test {
namespace {

using SslPtr = std::unique_ptr<SSL, FreeWith<SSL_free>>;

class Socket {
public:
    explicit Socket(int descriptor) : fd(descriptor) { EXPECT_GE(fd, 0); }
    ~Socket() { (void)close(fd); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    const int fd;
};

// A listening socket on a free port of loopback, and its address.
struct Listener {
    Listener() {
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(socket.fd, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(socket.fd, 1), 0);
        EXPECT_EQ(getsockname(socket.fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    }
    const Socket socket{::socket(AF_INET, SOCK_STREAM, 0)};
    sockaddr_in address = {};
};

SslCtxPtr configured(int version, const char* chain, const char* key) {
    SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
    SSL_CTX_set_min_proto_version(ctx.get(), version);
    SSL_CTX_set_max_proto_version(ctx.get(), version);
    EXPECT_EQ(TARNSSL_CTX_use_certificate_chain_file(ctx.get(), material(chain).c_str()), 1);
    EXPECT_EQ(TARNSSL_CTX_use_PrivateKey_file(ctx.get(), material(key).c_str(), nullptr), 1);
    return ctx;
}

SslPtr over(const Socket& socket, SSL_CTX* ctx) {
    SslPtr ssl(SSL_new(ctx));
    SSL_set_fd(ssl.get(), socket.fd);
    return ssl;
}

// Whether `cert` is the one in the file.
bool isTheOneIn(const char* name, X509* cert) {
    return X509_cmp(cert, certificate(name).get()) == 0;
}

class HandshakeTest : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Versions, HandshakeTest, testing::Values(TLS1_2_VERSION, TLS1_3_VERSION));

TEST_P(HandshakeTest, PeersReceiveTheLeafAndBothIntermediates) {
    const SslCtxPtr serving = configured(GetParam(), "chain.pem", "leaf.key.pem");
    const SslCtxPtr asking = configured(GetParam(), "chain.pem", "leaf.key.pem");
    SSL_CTX_set_verify(serving.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                       [](int, X509_STORE_CTX*) { return 1; });
    ASSERT_EQ(
        X509_STORE_add_cert(SSL_CTX_get_cert_store(asking.get()), certificate("root.pem").get()),
        1);
    SSL_CTX_set_verify(asking.get(), SSL_VERIFY_PEER, nullptr);

    const Listener listener;
    int received = 0;  // certificates that the server got, beside the client's own
    std::thread server([&] {
        const Socket socket(accept(listener.socket.fd, nullptr, nullptr));
        const SslPtr ssl = over(socket, serving.get());
        EXPECT_EQ(SSL_accept(ssl.get()), 1);
        received = sk_X509_num(SSL_get_peer_cert_chain(ssl.get()));
        EXPECT_EQ(SSL_write(ssl.get(), "hello", 5), 5);
    });

    const Socket socket(::socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(connect(socket.fd, reinterpret_cast<const sockaddr*>(&listener.address),
                      sizeof listener.address),
              0);
    const SslPtr ssl = over(socket, asking.get());
    EXPECT_EQ(SSL_connect(ssl.get()), 1);
    char greeting[6] = "";
    EXPECT_EQ(SSL_read(ssl.get(), greeting, 5), 5);
    server.join();

    EXPECT_STREQ(greeting, "hello");
    EXPECT_EQ(SSL_version(ssl.get()), GetParam());
    EXPECT_EQ(SSL_get_verify_result(ssl.get()), X509_V_OK);
    const STACK_OF(X509)* chain = SSL_get_peer_cert_chain(ssl.get());
    ASSERT_EQ(sk_X509_num(chain), 3);
    EXPECT_TRUE(isTheOneIn("leaf.pem", sk_X509_value(chain, 0)));
    EXPECT_TRUE(isTheOneIn("issuing.pem", sk_X509_value(chain, 1)));
    EXPECT_TRUE(isTheOneIn("policy.pem", sk_X509_value(chain, 2)));
    EXPECT_EQ(received, 2) << "a server counts its peer's own certificate apart";
}

}  // namespace
}  // namespace tarnutil_test
