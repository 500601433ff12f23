// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/TmpFile.h>

#include <unistd.h>

#include <cstdlib>
#include <utility>

#include <tarnutil/Exception.h>
#include <tarnutil/File.h>

#include "boundary.h"
#include "uncancelled.h"

namespace tarnutil {
namespace {

// Quirk: a TMPDIR that is set but empty is taken as it is, which names the root directory. Pinned
// by TmpFileTest.AnEmptyTmpdirMeansTheRootDirectory.
std::string nameTemplate() {
    const char* directory = ::getenv("TMPDIR");
    return std::string(directory != nullptr ? directory : "/tmp") + "/tmpXXXXXX";
}

}  // namespace

TmpFile::TmpFile() noexcept = default;

TmpFile::~TmpFile() { clear(); }

void TmpFile::create(bool directory) {
    admitOnly<Exception>([&] {
        clear();
        const std::string pattern = nameTemplate();
        std::string name = pattern;
        if (directory) {
            if (::mkdtemp(name.data()) == nullptr) {
                throw ErrnoException("Failed to create temporary directory using template: " +
                                     pattern);
            }
        } else {
            fd = ::mkstemp(name.data());
            if (fd == -1) {
                throw ErrnoException("Failed to create temporary file using template: " + pattern);
            }
        }
        path = std::move(name);
    });
}

std::string TmpFile::getPath() const { return path; }

int TmpFile::getFd() const noexcept { return fd; }

void TmpFile::clear() noexcept {
    const Uncancelled uncancelled;
    if (!path.empty()) dropExceptions([&] { (void)File::remove(path, /*recursive=*/true); });
    path.clear();
    if (fd != -1) (void)::close(fd);
    fd = -1;
}

}  // namespace tarnutil
