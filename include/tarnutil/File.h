// SPDX-License-Identifier: Apache-2.0
// Files and directories: text of paths, queries, creating, copying, listing and removing; and
// FileCloser, the owner of a standard I/O stream.
//
// Paths are bytes in the encoding of the file system. They are taken as plain text: nothing is
// normalised, "." and ".." are names like any other, and "/" is the only separator.
//
// Errors:  removeFile, getFileSize, getAllocatedFileSize and copy throw tarnutil::IOException and
//          nothing else; the other operations report by result and leave errno as the failing call
//          set it, unless said otherwise below.
//          In the four that throw IOException, and in makeDirectory: A failed allocation ends the
//          process (std::terminate). In the functions on path text, list and remove:
//          A failed allocation throws std::bad_alloc.
// Threads: any thread may call any function. What other threads and processes do to the same files
//          at the same time shows.
#ifndef TARNUTIL_FILE_H
#define TARNUTIL_FILE_H

#include <cstdint>
#include <cstdio>
#include <set>
#include <string>

#include <tarnutil/export.h>

namespace tarnutil {

class TARNUTIL_API File {
public:
    File() = delete;

    // Tells whether `path` names anything. With `followLinks` false a symbolic link is looked at
    // itself, so a dangling one exists. Any failure, such as a forbidden directory on the way, is
    // false.
    static bool exists(const std::string& path, bool followLinks) noexcept;

    // As exists, for a directory. With `followLinks` false a link to a directory is none. If `path`
    // is there but is no directory, errno is not set.
    static bool isDirectory(const std::string& path, bool followLinks) noexcept;

    // Removes one name that is not a directory; a symbolic link is removed itself.
    // Throws IOException "Cannot remove file [PATH]; error=[TEXT]", with the system's text.
    static void removeFile(const std::string& path);

    // Returns what follows the last "/", which is nothing for "dir/"; a path without "/" whole.
    static std::string getFileNameFromPath(const std::string& path);

    // Returns what precedes the last "/", or "/" if that one is first. A slash at the end counts:
    // "/a/b/" yields "/a/b". A path without "/" is returned whole, not as ".".
    static std::string getDirectoryNameFromPath(const std::string& path);

    // Returns the path one component shorter: "/a/b" and "/a/b/" yield "/a", "/a" yields "/".
    // Spaces and tabs behind a slash at the end are dropped with it; behind a name they are part of
    // the name. The root is its own parent, and so is a path without "/". Slashes before the last
    // component stay but for one: "a//b" yields "a/"; and "a/" yields "a".
    static std::string getParentDirectoryName(const std::string& path);

    // Returns `directory`, a "/" unless it is empty or ends in one, and `name`. A "/" at the start
    // of `name` stays: "/a" and "/x" yield "/a//x".
    static std::string composeFullPath(const std::string& directory, const std::string& name);

    // Makes the directory `path` with mode 0777 less the umask; `recursive` makes its missing
    // parents too. Returns whether it is a directory now, made or found. If `path` is there but is
    // no directory, errno is not set.
    //
    // False may surprise. If another process makes the directory between the look and the making,
    // errno is EEXIST, and the directory is there. And a recursive call takes the parent that
    // getParentDirectoryName names, so that of these relative paths, where nothing is there yet,
    //   "name/"   makes "name", as the parent, and then fails with EEXIST
    //   "a//b"    makes "a", and then fails with EEXIST; called again, it makes "b"
    //   "a/b/ "   makes "a", the parent, but no "a/b", and then fails with ENOENT
    static bool makeDirectory(const std::string& path, bool recursive) noexcept;

    // Returns the size in bytes, links followed.
    // Throws IOException "Could not get size of file 'PATH': TEXT", with the system's text.
    static std::uint64_t getFileSize(const std::string& path);

    // Returns the bytes that the file takes on the disk, links followed: less than its size if it
    // has holes.
    // Throws IOException "Could not get allocated size of file 'PATH': TEXT".
    static std::uint64_t getAllocatedFileSize(const std::string& path);

    // Copies the contents and the permission bits, set-user-id and the like included, of `source`
    // to `destination`, which is made or overwritten. Links are followed. Owner, group and times
    // are not copied.
    //
    // Throws IOException, without the system's text:
    //   "Could not find file 'SOURCE'"                                destination left as it was
    //   "Could not open source file 'SOURCE'"                         destination left as it was
    //   "Could not open destination file 'DESTINATION'"               destination left as it was
    //   "Error reading from file 'SOURCE'"                            destination removed
    //   "Error writing to file 'DESTINATION'"                         destination removed
    //   "Could not set permissions for file 'DESTINATION'"            destination removed
    // What goes wrong when the files are closed is not reported: sync and compare if that matters.
    // Copying a file to itself empties it. A cancellation of the calling thread may pass while the
    // files are opened, read or written; once both are open, the destination is removed.
    static void copy(const std::string& source, const std::string& destination);

    // Adds the names in `directory`, without "." and "..", to `names`, which is not cleared first.
    // Returns false if the directory could not be opened, with `names` untouched, or not be read to
    // its end, with the names read so far. With `recursive` true, later calls have then set errno.
    //
    // With `recursive` true, the contents of subdirectories are added as "subdirectory/name". This
    // goes one level down and no deeper, and does not enter symbolic links. Every name in `names`
    // is looked up in `directory`, also those that were there before the call, and a subdirectory
    // that cannot be listed is passed over in silence.
    static bool list(const std::string& directory, std::set<std::string>& names, bool recursive);

    // Removes a file, a symbolic link or an empty directory; with `recursive` true, a directory
    // with all that is in it, at any depth. Returns whether everything is gone: the first entry
    // that cannot be removed, in the order of names, ends the call, and what came before it is
    // gone. A path that names nothing yields false, and so does a directory that cannot be listed
    // to its end, with nothing in it removed.
    static bool remove(const std::string& path, bool recursive);
};

// Owner of an open stream, which it closes once: on close() or at the end of its life.
//
// Errors:  none; what fclose reports is dropped.
// Threads: one thread at a time.
class TARNUTIL_API FileCloser {
public:
    // Takes over `file`, which may be null.
    explicit FileCloser(std::FILE* file) noexcept;
    ~FileCloser();

    FileCloser(const FileCloser&) = delete;
    FileCloser& operator=(const FileCloser&) = delete;

    // Closes the stream. Does nothing if there is none, or none any more.
    void close() noexcept;

private:
    std::FILE* stream;
};

}  // namespace tarnutil
#endif  // TARNUTIL_FILE_H
