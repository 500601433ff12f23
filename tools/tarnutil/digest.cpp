// SPDX-License-Identifier: Apache-2.0
// tarnutil digest: the digests of files, in the format of sha1sum and md5sum.
#include <tarnutil/CryptoUtil.h>
#include <tarnutil/Exception.h>
#include <tarnutil/File.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "progress.h"

namespace tarnutil_command {
namespace {

using tarnutil::CryptoUtil;
using tarnutil::File;

constexpr const char* kExample = R"(Example:
  $ tarnutil digest release.tar.gz >release.sha1
  $ sha1sum --check release.sha1
)";

struct Options {
    bool md5 = false;
    std::vector<std::string> files;
};

std::string hex(const std::vector<unsigned char>& bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

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

std::vector<unsigned char> digestOf(const std::string& name, bool md5) {
    const std::string path = name == "-" ? "/dev/stdin" : name;
    requireReadable(path, name);
    const std::uint64_t size =
        File::exists(path, /*followLinks=*/true) ? File::getFileSize(path) : 0;
    const Progress progress(name, size);
    return md5 ? CryptoUtil::computeMd5Digest(path) : CryptoUtil::computeSha1Digest(path);
}

// Whether the digest could be printed; says on standard error why not.
bool printed(const std::string& name, bool md5) {
    try {
        std::cout << line(hex(digestOf(name, md5)), name) << '\n';
        return true;
    } catch (const std::exception& e) {
        std::cerr << "tarnutil: " << e.what() << '\n';
        return false;
    }
}

void run(const Options& options) {
    std::size_t unread = 0;
    for (const std::string& file : options.files) {
        if (!printed(file, options.md5)) ++unread;
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
    command->callback([options] { run(*options); });
}

}  // namespace tarnutil_command
