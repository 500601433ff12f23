// SPDX-License-Identifier: Apache-2.0
#include "standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include "commands.h"

namespace tarnutil_command {
namespace {

bool isOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

}  // namespace

void openStandardStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The lowest number that is free is this one: those below are open by now.
        if (!isOpen(fd) && open("/dev/null", O_RDONLY) != fd) {
            throw Unusable("cannot open /dev/null");
        }
    }
}

}  // namespace tarnutil_command
