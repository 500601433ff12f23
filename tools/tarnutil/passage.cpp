// SPDX-License-Identifier: Apache-2.0
#include "passage.h"

#include <unistd.h>

#include <cerrno>
#include <climits>

namespace tarnutil_command {

pollfd Passage::awaited() const {
    if (!isOpen()) return {-1, 0, 0};
    if (cargo.empty()) return {source(), POLLIN, 0};
    return {sink(), POLLOUT, 0};
}

void Passage::advance() {
    if (cargo.empty()) {
        load();
    } else {
        unload();
    }
}

void Passage::load() {
    char piece[PIPE_BUF];  // no more than a pipe takes at once: a larger write might block
    const ssize_t size = read(source(), piece, sizeof piece);
    if (size > 0) {
        cargo.assign(piece, static_cast<std::size_t>(size));
    } else if (size == 0) {
        pipe.close(side);
    } else {
        closeUnlessTemporary(errno);
    }
}

void Passage::unload() {
    const ssize_t size = write(sink(), cargo.data(), cargo.size());
    if (size >= 0) {
        cargo.erase(0, static_cast<std::size_t>(size));
    } else {
        closeUnlessTemporary(errno);
    }
}

void Passage::closeUnlessTemporary(int error) {
    if (error == EINTR || error == EAGAIN) return;
    failed = error != EPIPE;
    pipe.close(side);
}

}  // namespace tarnutil_command
