// SPDX-License-Identifier: Apache-2.0
// Replaces a file so that readers see the old content or the new one, never half of it.
//
// The new content is made in a temporary file and renamed over the old one, which is atomic only
// within one file system. TmpFile works where the environment variable TMPDIR says: let it name the
// directory of the target, as here.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include <tarnutil/Exception.h>
#include <tarnutil/TmpFile.h>

using tarnutil::ErrnoException;
using tarnutil::TmpFile;

namespace {

void writeAll(int fd, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t size = write(fd, text.data() + done, text.size() - done);
        if (size == -1) throw ErrnoException("Could not write the new content");
        done += static_cast<std::size_t>(size);
    }
}

// Whatever fails on the way, `path` keeps its old content and `tmp` removes the new one.
void replace(const std::string& path, const std::string& content) {
    TmpFile tmp;
    tmp.create(/*directory=*/false);
    writeAll(tmp.getFd(), content);
    if (fchmod(tmp.getFd(), 0644) != 0) throw ErrnoException("Could not set the permissions");
    // On the disk before it has the name, or a crash could leave the name with nothing behind it.
    if (fsync(tmp.getFd()) != 0) throw ErrnoException("Could not save the new content");
    if (rename(tmp.getPath().c_str(), path.c_str()) != 0) {
        throw ErrnoException("Could not replace " + path);
    }
    // `tmp` removes what has its path at the end: since the rename, nothing.
}

std::string contentOf(const std::string& path) {
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool replacesTwice() {
    TmpFile directory;
    directory.create(/*directory=*/true);
    setenv("TMPDIR", directory.getPath().c_str(), /*overwrite=*/1);
    const std::string path = directory.getPath() + "/settings";
    replace(path, "first\n");
    const bool first = contentOf(path) == "first\n";
    replace(path, "second\n");
    return first && contentOf(path) == "second\n";
}

}  // namespace

int main() {
    try {
        return replacesTwice() ? 0 : 1;
    } catch (const tarnutil::Exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
}
