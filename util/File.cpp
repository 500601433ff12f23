// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/File.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <utility>

#include <tarnutil/Exception.h>

#include "boundary.h"
#include "uncancelled.h"

namespace tarnutil {
namespace {

constexpr mode_t kPermissionBits = 07777;
constexpr std::uint64_t kStatBlock = 512;  // the unit of st_blocks on every file system
constexpr std::size_t kCopyStep = 4096;

// What `path` is, or nothing, with errno telling why.
std::optional<struct stat> status(const std::string& path, bool followLinks) noexcept {
    struct stat found;
    const int rc = followLinks ? stat(path.c_str(), &found) : lstat(path.c_str(), &found);
    if (rc != 0) return std::nullopt;
    return found;
}

// As status with links followed; throws `what` + path + "': " + the system's text.
struct stat statusOrThrow(const std::string& path, const char* what) {
    const std::optional<struct stat> found = status(path, /*followLinks=*/true);
    if (found) return *found;
    const int error = errno;
    throw IOException(what + path + "': " + Exception::getStrerror(error));
}

void copyContents(std::ifstream& in, const std::string& source, std::ofstream& out,
                  const std::string& destination) {
    char buffer[kCopyStep];
    while (!in.eof()) {
        in.read(buffer, sizeof buffer);
        if (in.bad()) throw IOException("Error reading from file '" + source + "'");
        out.write(buffer, in.gcount());
        if (out.bad()) throw IOException("Error writing to file '" + destination + "'");
    }
}

struct CloseDirectory {
    void operator()(DIR* directory) const noexcept { (void)closedir(directory); }
};
using DirectoryPtr = std::unique_ptr<DIR, CloseDirectory>;

// Reads the next entry of `directory`. `*entry` is null at the end; the result is an error number.
int nextEntry(DIR* directory, dirent* storage, dirent** entry) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    // Unlike readdir, it tells an error from the end without errno.
    return readdir_r(directory, storage, entry);
#pragma GCC diagnostic pop
}

bool isSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Adds the names in `directory`, which it closes. False if they could not be read to the end.
bool addEntries(const DirectoryPtr directory, std::set<std::string>& names) {
    for (;;) {
        dirent storage;
        dirent* entry = nullptr;
        if (nextEntry(directory.get(), &storage, &entry) != 0) return false;
        if (entry == nullptr) return true;
        if (!isSelfOrParent(entry->d_name)) names.insert(entry->d_name);
    }
}

// Adds what lies in the subdirectories of `directory` that `names` holds.
void addEntriesOfSubdirectories(const std::string& directory, std::set<std::string>& names) {
    const std::set<std::string> candidates = names;
    for (const std::string& name : candidates) {
        const std::string path = directory + "/" + name;
        if (!File::isDirectory(path, /*followLinks=*/false)) continue;
        std::set<std::string> inner;
        (void)File::list(path, inner, /*recursive=*/false);
        for (const std::string& entry : inner) names.insert(name + "/" + entry);
    }
}

}  // namespace

bool File::exists(const std::string& path, bool followLinks) noexcept {
    return status(path, followLinks).has_value();
}

bool File::isDirectory(const std::string& path, bool followLinks) noexcept {
    const std::optional<struct stat> found = status(path, followLinks);
    return found && S_ISDIR(found->st_mode);
}

void File::removeFile(const std::string& path) {
    admitOnly<IOException>([&] {
        if (unlink(path.c_str()) != -1) return;
        const int error = errno;
        throw IOException("Cannot remove file [" + path + "]; error=[" +
                          Exception::getStrerror(error) + "]");
    });
}

std::string File::getFileNameFromPath(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string File::getDirectoryNameFromPath(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return path;
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string File::getParentDirectoryName(const std::string& path) {
    std::string rest = path;
    for (;;) {
        const std::size_t slash = rest.rfind('/');
        if (slash == std::string::npos) return rest;
        if (slash == 0) return "/";
        const bool endsInSlash = slash == rest.find_last_not_of(" \t");
        rest.erase(slash);
        if (!endsInSlash) return rest;
    }
}

std::string File::composeFullPath(const std::string& directory, const std::string& name) {
    const bool needsSlash = !directory.empty() && directory.back() != '/';
    return needsSlash ? directory + "/" + name : directory + name;
}

bool File::makeDirectory(const std::string& path, bool recursive) noexcept {
    if (const std::optional<struct stat> found = status(path, /*followLinks=*/true)) {
        return S_ISDIR(found->st_mode);
    }
    if (errno != ENOENT) return false;
    if (recursive) {
        const std::string parent = getParentDirectoryName(path);
        if (parent != path && !makeDirectory(parent, /*recursive=*/true)) return false;
    }
    return mkdir(path.c_str(), 0777) == 0;
}

std::uint64_t File::getFileSize(const std::string& path) {
    return admitOnly<IOException>([&] {
        const struct stat found = statusOrThrow(path, "Could not get size of file '");
        return static_cast<std::uint64_t>(found.st_size);
    });
}

std::uint64_t File::getAllocatedFileSize(const std::string& path) {
    return admitOnly<IOException>([&] {
        const struct stat found = statusOrThrow(path, "Could not get allocated size of file '");
        return static_cast<std::uint64_t>(found.st_blocks) * kStatBlock;
    });
}

void File::copy(const std::string& source, const std::string& destination) {
    admitOnly<IOException>([&] {
        const std::optional<struct stat> found = status(source, /*followLinks=*/true);
        if (!found) throw IOException("Could not find file '" + source + "'");
        std::ifstream in(source, std::ios::binary);
        if (!in) throw IOException("Could not open source file '" + source + "'");
        std::ofstream out(destination, std::ios::binary | std::ios::trunc);
        if (!out) throw IOException("Could not open destination file '" + destination + "'");
        try {
            copyContents(in, source, out, destination);
            in.close();
            out.close();
            if (chmod(destination.c_str(), found->st_mode & kPermissionBits) != 0) {
                throw IOException("Could not set permissions for file '" + destination + "'");
            }
        } catch (...) {
            (void)unlink(destination.c_str());
            throw;
        }
    });
}

bool File::list(const std::string& directory, std::set<std::string>& names, bool recursive) {
    DirectoryPtr open(opendir(directory.c_str()));
    if (!open) return false;
    const bool complete = addEntries(std::move(open), names);
    if (recursive) addEntriesOfSubdirectories(directory, names);
    return complete;
}

bool File::remove(const std::string& path, bool recursive) {
    const bool holdsEntries = isDirectory(path, /*followLinks=*/false);
    if (!holdsEntries || !recursive) return std::remove(path.c_str()) == 0;
    std::set<std::string> names;
    if (!list(path, names, /*recursive=*/false)) return false;
    for (const std::string& name : names) {
        if (!remove(path + "/" + name, /*recursive=*/true)) return false;
    }
    return std::remove(path.c_str()) == 0;
}

FileCloser::FileCloser(std::FILE* file) noexcept : stream(file) {}

FileCloser::~FileCloser() { close(); }

void FileCloser::close() noexcept {
    if (stream == nullptr) return;
    const Uncancelled uncancelled;  // what is still to be written may be a cancellation point
    (void)std::fclose(stream);
    stream = nullptr;
}

}  // namespace tarnutil
