// SPDX-License-Identifier: Apache-2.0
// Captures what the program itself, or a library that prints, writes to standard output.
//
// A pipe holds 64 KiB. Whoever may write more needs a reader in a thread of its own; this one reads
// at the end.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>

#include <tarnutil/Exception.h>
#include <tarnutil/Pipe.h>

using tarnutil::Pipe;

namespace {

std::string readAll(int fd) {
    std::string text;
    std::array<char, 4096> buffer;
    ssize_t size = 0;
    while ((size = read(fd, buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return text;
}

// What `action` writes to standard output, up to 64 KiB.
std::string captured(const std::function<void()>& action) {
    std::fflush(stdout);  // what was printed before belongs to the real output
    Pipe pipe;
    pipe.open();
    pipe.substitute(STDOUT_FILENO, Pipe::WRITE);
    action();
    std::fflush(stdout);  // and what was printed since to the pipe
    pipe.restore();
    pipe.close(Pipe::WRITE);  // the last writer: the text now has an end
    return readAll(pipe.getDescriptor(Pipe::READ));
}

}  // namespace

int main() {
    try {
        const std::string text = captured([] {
            std::puts("from this program");
            std::cout << "from a stream" << std::endl;
            if (std::system("echo from a child") != 0) std::puts("no shell");
        });
        std::puts("back on the real output");
        return text == "from this program\nfrom a stream\nfrom a child\n" ? 0 : 1;
    } catch (const tarnutil::Exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
}
