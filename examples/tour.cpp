// SPDX-License-Identifier: Apache-2.0
// A tour of the library: a server that issues and checks authentication tokens over TLS.
//
//   tour CHAIN KEY TOKEN_KEY CIPHERS
//
// It prints where on loopback it listens. Each line that a client sends is answered by a line:
//
//   token USER [NAME=VALUE ...]   a token for the user, with these attributes
//   check TOKEN                   whom it was issued to, and its attributes
//   status                        the numbers of the open connections
//   journal                       what was asked so far, packed by gzip, as base64
//   stop TOKEN                    ends the server, if the token has the attribute may=stop
//
// A refused client is told why; where it went wrong, the trace, goes to standard error.
#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <memory>

#include <tarnutil/Condition.h>
#include <tarnutil/CryptoUtil.h>
#include <tarnutil/Exception.h>
#include <tarnutil/Executor.h>
#include <tarnutil/File.h>
#include <tarnutil/ProcessExecutor.h>
#include <tarnutil/StringUtil.h>
#include <tarnutil/TmpFile.h>
#include <tarnutil/cert.h>
#include <tarnutil/ip.h>

#include "member_from.h"
#include "pick_suites.h"

// Traces name the functions that a program exports: these are in no anonymous namespace.
namespace tour {

using namespace tarnutil;
using Attributes = std::map<std::string, std::string>;

// Throws unless `done`, with the reason that OpenSSL's error queue gives.
void require(bool done, const std::string& what) {
    if (done) return;
    const char* const reason = ERR_reason_error_string(ERR_peek_last_error());
    throw Exception(what + ": " + (reason != nullptr ? reason : "no reason given"));
}

// Says what failed and where, in one piece, and is done with it: TLS looks at the queue too.
void report(const std::string& who, const Exception& e) {
    std::string text = who + ": " + e.kind() + ": " + e.what() + "\n";
    for (const std::string& frame : e.getStackTrace()) text += "  at " + frame + "\n";
    std::cerr << text;
    ERR_clear_error();
}

// --- The connections: the numbers of those that are open are members of a bitmap -----------------

class Connections {
public:
    Connections() {
        const auto allocate = [](void*, std::size_t size) { return std::malloc(size); };
        const auto release = [](void*, void* block) { std::free(block); };
        if (eb_init(&open, 1U << 27, nullptr, allocate, release) != 0) throw Exception("No memory");
    }
    ~Connections() { eb_free(open); }
    // The smallest number that is free.
    std::uint64_t add() {
        const Mutex::LockHolder lock(mutex);
        std::uint64_t number = 0;
        while (eb_is_set(open, number) != 0) ++number;
        (void)eb_set(open, number);
        return number;
    }
    void remove(std::uint64_t number) {
        const Mutex::LockHolder lock(mutex);
        eb_clear(open, number);
    }
    std::string text() {
        const Mutex::LockHolder lock(mutex);
        std::string text = "open:";
        for (std::uint64_t at = 0; (at = member_from(open, at)) != MEMBER_NONE; ++at)
            text += " " + std::to_string(at);
        return text;
    }

private:
    Mutex mutex{/*abort=*/true, Mutex::NORMAL};
    eb_t* open TARNUTIL_GUARDED_BY(mutex) = nullptr;
};

// --- The journal: a file in a temporary directory, and a child that packs it ---------------------

class Journal {
public:
    Journal() { directory.create(/*directory=*/true); }
    // What cannot be noted is no reason to refuse anybody.
    void note(const std::string& line) {
        const Mutex::LockHolder lock(mutex);
        std::FILE* const file = std::fopen(path().c_str(), "ae");
        const FileCloser closer(file);
        if (file != nullptr) (void)std::fprintf(file, "%s\n", line.c_str());
    }
    std::string packed() {
        const Mutex::LockHolder lock(mutex);  // one child at a time: it inherits what is open
        ProcessExecutor gzip("/bin/gzip");
        const pid_t caller = getpid();
        try {
            gzip.exec({"gzip", "--stdout", path()});
        } catch (const Exception&) {
            if (getpid() != caller) _exit(127);  // a child that must not go on as a second server
            throw;
        }
        std::vector<unsigned char> output;
        const int end = gzip.stdoutPipe.getDescriptor(Pipe::READ);
        unsigned char piece[4096];
        for (ssize_t size = 0; (size = read(end, piece, sizeof piece)) > 0;)
            output.insert(output.end(), piece, piece + size);
        if (gzip.wait() != 0) throw Exception("The journal could not be packed.");
        return CryptoUtil::base64Encode(output);
    }

private:
    std::string path() const { return File::composeFullPath(directory.getPath(), "journal"); }
    TmpFile directory;
    Mutex mutex{/*abort=*/true, Mutex::NORMAL};
};

// --- The server: workers that take turns in accepting, and a clock -------------------------------

// The first word of a text, and the rest.
std::pair<std::string, std::string> cut(std::string text) {
    std::vector<std::string> words;
    StringUtil::split(StringUtil::trim(text, " \r\n"), ' ', words, /*max=*/1);
    words.resize(2);
    return {words[0], words[1]};
}

struct Task : Runnable {
    explicit Task(std::function<void()> function) : work(std::move(function)) {}
    void run() override { work(); }
    const std::function<void()> work;
};

class Server {
public:
    Server(const char* chain, const char* chainKey, const char* tokenKey, const char* ciphers)
        : tls(SSL_CTX_new(TLS_server_method()), SSL_CTX_free),
          key(TARNSSL_load_RSA_file(tokenKey, nullptr), RSA_free) {
        require(tls != nullptr && key != nullptr, "No TLS, or no key for tokens");
        require(TARNSSL_CTX_use_certificate_chain_file(tls.get(), chain) == 1,
                "Could not load the chain");
        require(TARNSSL_CTX_use_PrivateKey_file(tls.get(), chainKey, nullptr) == 1,
                "Could not load its key");
        pickSuites(tls.get(), ciphers);
        require(BIO_do_accept(listener.get()) == 1, "Could not listen");
        (void)BIO_get_fd(listener.get(), &door);
        (void)fcntl(door, F_SETFD, FD_CLOEXEC);
        std::cout << "127.0.0.1:" << BIO_get_accept_port(listener.get()) << std::endl;
        clock.start();
    }
    ~Server() {
        stop();
        const std::unique_ptr<Runnable> task(clock.join());
    }
    // Returns when a client has stopped the server.
    void run() {
        Task worker([this] { serve(); });
        Executor::execute({&worker, &worker, &worker, &worker}, nullptr, nullptr, nullptr, nullptr);
    }

private:
    // The next client; -1 once the server is stopped. That a client gave up, or that there is a
    // want of descriptors, passes.
    int nextClient(sockaddr_in& peer) {
        for (;;) {
            socklen_t size = sizeof peer;
            auto* const address = reinterpret_cast<sockaddr*>(&peer);
            const int client = accept4(door, address, &size, SOCK_CLOEXEC);
            if (client != -1) return client;
            const Mutex::LockHolder lock(mutex);
            if (!stopped) (void)changed.timedWait(mutex, 1000);
            if (stopped) return -1;
        }
    }
    void serve() {
        sockaddr_in peer = {};
        for (int client = 0; (client = nextClient(peer)) != -1;) {
            const std::uint64_t number = connections.add();
            char text[64];
            ip_addr_t ip = {};
            ip_pton_r(inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text), &ip);
            (void)ip_nptop_r(&ip, ntohs(peer.sin_port), text, sizeof text);
            converse(client, "client " + std::to_string(number) + " at " + text);
            connections.remove(number);
        }
    }
    void converse(int client, const std::string& name) {
        using Bio = std::shared_ptr<BIO>;
        const timeval patience = {10, 0};  // seconds, microseconds
        (void)setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        const Bio socket(BIO_new_socket(client, BIO_CLOSE), BIO_free);
        if (!socket) (void)close(client);
        const Bio secure(BIO_new_ssl(tls.get(), /*client=*/0), BIO_free);
        const Bio lines(BIO_new(BIO_f_buffer()), BIO_free);
        if (!socket || !secure || !lines) return report(name, Exception("No memory"));
        (void)BIO_push(lines.get(), BIO_push(secure.get(), socket.get()));
        if (BIO_do_handshake(lines.get()) != 1) return report(name, Exception("No handshake"));
        char line[8192];
        while (BIO_gets(lines.get(), line, sizeof line) > 0) {
            const std::string reply = answer(name, line) + "\n";
            if (BIO_puts(lines.get(), reply.c_str()) <= 0 || BIO_flush(lines.get()) != 1) return;
        }
    }
    std::string answer(const std::string& who, const std::string& line) try {
        const auto [request, rest] = cut(line);
        journal.note(who + ": " + request);
        if (request == "token") return issue(rest);
        if (request == "check") return "accepted: " + StringUtil::toString(accepted(rest));
        if (request == "status") return connections.text();
        if (request == "journal") return journal.packed();
        if (request != "stop") throw Exception("There is no such request.");
        if (accepted(rest)["may"] != "stop") throw Exception("The token does not say may=stop.");
        stop();
        return "stopping";
    } catch (const Exception& e) {
        report(who, e);
        return std::string("refused: ") + e.what();
    }
    std::string issue(const std::string& request) {
        const auto [user, words] = cut(request);
        Attributes attributes;
        if (!words.empty()) attributes = StringUtil::fromString<Attributes>(words);
        return CryptoUtil::generateAuthToken(user, attributes, key.get());
    }
    // The attributes of a token that was issued within an hour of now, and the user among them.
    Attributes accepted(const std::string& token) {
        Attributes attributes;
        std::string user;
        long issued = 0;
        CryptoUtil::decryptAuthToken(token, user, attributes, issued, key.get());
        if (std::labs(std::time(nullptr) - issued) > 3600)
            throw Exception("Not a token of this hour.");
        attributes["user"] = user;
        return attributes;
    }
    // Notes every minute who is connected.
    void tick() {
        const Mutex::LockHolder lock(mutex);
        while (!stopped)
            if (!changed.timedWait(mutex, 60000)) journal.note(connections.text());
    }
    void stop() {
        const Mutex::LockHolder lock(mutex);
        stopped = true;
        changed.broadcast();
        (void)shutdown(door, SHUT_RDWR);
    }

    const std::shared_ptr<SSL_CTX> tls;
    const std::shared_ptr<RSA> key;
    const std::shared_ptr<BIO> listener{BIO_new_accept("127.0.0.1:0"), BIO_free_all};
    int door = -1;  // its descriptor
    Connections connections;
    Journal journal;
    Thread clock{std::make_unique<Task>([this] { tick(); }), /*startDetached=*/false};
    Mutex mutex{/*abort=*/true, Mutex::NORMAL};
    Condition changed{/*abort=*/true};
    bool stopped TARNUTIL_GUARDED_BY(mutex) = false;
};

}  // namespace tour

int main(int argc, char** argv) try {
    if (argc != 5) {
        std::cerr << "usage: tour CHAIN KEY TOKEN_KEY CIPHERS\n";
        return 2;
    }
    std::signal(SIGPIPE, [](int) {});  // a client that went away shows in the result of a write
    tour::Server(argv[1], argv[2], argv[3], argv[4]).run();
} catch (const tarnutil::Exception& e) {
    tour::report("tour", e);
    return 1;
}
