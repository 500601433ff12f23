// SPDX-License-Identifier: Apache-2.0
// tarnutil digest: the digests of files, in the format of sha1sum and md5sum.
#include <sys/stat.h>
#include <tarnutil/CryptoUtil.h>
#include <tarnutil/Exception.h>
#include <tarnutil/File.h>
#include <tarnutil/StringUtil.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "input.h"
#include "output.h"
#include "progress.h"

namespace tarnutil_command {
namespace {

using tarnutil::CryptoUtil;
using tarnutil::File;
using tarnutil::StringUtil;

constexpr const char* kExample = R"(Example:
  $ tarnutil digest release.tar.gz >release.sha1
  $ sha1sum --check release.sha1
)";

struct Options {
    bool md5 = false, withTrace = false;
    std::vector<std::string> files;
};

// One line as sha1sum prints it: a name with a line break or a backslash is escaped, and the line
// says so by a backslash at its start.
std::string line(const std::string& digest, const std::string& name) {
    std::string escaped;
    for (const char c : name) {
        if (c == '\n') {
            escaped += "\\n";
        } else if (c == '\r') {
            escaped += "\\r";
        } else if (c == '\\') {
            escaped += "\\\\";
        } else {
            escaped += c;
        }
    }
    return (escaped == name ? "" : "\\") + digest + "  " + escaped;
}

// To the library a failed read is the end of the file: what does not even begin is refused here.
// Only what can be read again is tried.
void requireReadable(const std::string& path, const std::string& name) {
    if (File::isDirectory(path, /*followLinks=*/true)) throw Unusable(name + " is a directory");
    if (!std::filesystem::is_regular_file(path)) return;
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return;  // the library says why
    const tarnutil::FileCloser closer(file);
    (void)std::fgetc(file);
    if (std::ferror(file) != 0) throw Unusable("cannot read " + name);
}

std::vector<unsigned char> digestOfFile(const std::string& path, const std::string& name,
                                        bool md5) {
    requireReadable(path, name);
    const std::uint64_t size =
        File::exists(path, /*followLinks=*/true) ? File::getFileSize(path) : 0;
    const Progress progress(name, size);
    return md5 ? CryptoUtil::computeMd5Digest(path) : CryptoUtil::computeSha1Digest(path);
}

// Whether opening /dev/stdin reads what the descriptor would: a file is opened at its beginning,
// wherever the descriptor stands in it (a pipe has no such place), and a socket not at all.
bool canReopenStandardInput() {
    struct stat status {};
    if (fstat(STDIN_FILENO, &status) != 0) return true;  // the library says why
    return !S_ISSOCK(status.st_mode) && lseek(STDIN_FILENO, 0, SEEK_CUR) <= 0;
}

std::vector<unsigned char> digestOfStandardInput(bool md5) {
    if (canReopenStandardInput()) return digestOfFile("/dev/stdin", "-", md5);
    const std::string content = contentOf("-");
    std::vector<unsigned char> data(content.begin(), content.end());
    return md5 ? CryptoUtil::computeMd5Digest(data) : CryptoUtil::computeSha1Digest(data);
}

std::string digestOf(const std::string& name, bool md5) {
    return StringUtil::toHexString(name == "-" ? digestOfStandardInput(md5)
                                               : digestOfFile(name, name, md5));
}

// Whether the digest could be printed; says on standard error why not.
bool printed(const std::string& name, const Options& options) {
    try {
        std::cout << line(digestOf(name, options.md5), name) << '\n';
        return true;
    } catch (const std::exception& e) {
        printError(e, options.withTrace);
        return false;
    }
}

void run(const Options& options) {
    std::size_t unread = 0;
    for (const std::string& file : options.files) {
        if (!printed(file, options)) ++unread;
    }
    if (unread > 0) {
        throw Unusable(std::to_string(unread) + " of " + std::to_string(options.files.size()) +
                       " files could not be read");
    }
}

}  // namespace

void addDigestCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("digest", "Print the digests of files as sha1sum does");
    command->add_flag("--md5", options->md5, "MD5 instead of SHA-1");
    command->add_option("FILE", options->files, "Files, - for standard input")->required();
    command->footer(kExample);
    command->callback([options, trace = app.get_option("--trace")] {
        options->withTrace = trace->count() > 0;
        run(*options);
    });
}

}  // namespace tarnutil_command
