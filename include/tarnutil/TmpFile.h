// SPDX-License-Identifier: Apache-2.0
// A temporary file or directory that removes itself.
//
// Keep none as a static object where ProcessExecutor runs: a child that cannot be executed leaves
// through exit, which would destroy its copy, and with it the caller's entry.
//
// Errors:  create throws ErrnoException with the errno of the failed call. clear and the destructor
//          drop what fails: an entry that cannot be removed stays behind.
//          In create: A failed allocation ends the process (std::terminate).
//          In getPath: A failed allocation throws std::bad_alloc.
// Threads: one object belongs to one thread at a time. No thread may change TMPDIR, or any other
//          part of the environment, while create runs.
#ifndef TARNUTIL_TMPFILE_H
#define TARNUTIL_TMPFILE_H

#include <string>

#include <tarnutil/export.h>

namespace tarnutil {

class TARNUTIL_API TmpFile {
public:
    // Owns nothing yet.
    TmpFile() noexcept;

    // As clear.
    ~TmpFile();

    TmpFile(const TmpFile&) = delete;
    TmpFile& operator=(const TmpFile&) = delete;

    // Makes an empty file (mode 0600, open for reading and writing, inherited by programs started
    // later) or an empty directory (mode 0700), after clearing what the object owned before.
    //
    // The entry is "tmp" and six characters, in the directory that the environment variable TMPDIR
    // names, or in /tmp if it is not set. A TMPDIR that is set but empty means the root directory;
    // a slash at its end is kept, as in /var/tmp//tmpXXXXXX.
    //
    // Throws ErrnoException "Failed to create temporary directory using template: " or "Failed to
    // create temporary file using template: " and the path, ending in XXXXXX. The object is then
    // empty.
    void create(bool directory);

    // The path of the entry; empty if none is owned.
    std::string getPath() const;

    // The descriptor of the file, which the object goes on owning; -1 for a directory, and if
    // nothing is owned.
    int getFd() const noexcept;

    // Removes the entry, a directory with all that is in it, then closes the descriptor. The path
    // is followed as it is at that time: an entry renamed away is safe, another one that took its
    // place is removed.
    void clear() noexcept;

private:
    std::string path;
    int fd = -1;
};

}  // namespace tarnutil
#endif  // TARNUTIL_TMPFILE_H
