// SPDX-License-Identifier: Apache-2.0
// tarnutil base64: bytes as one line of base64, and back.
#include <tarnutil/CryptoUtil.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "input.h"

namespace tarnutil_command {
namespace {

using tarnutil::CryptoUtil;

constexpr const char* kExample = R"(Example:
  $ tarnutil base64 <picture.png >picture.txt
  $ tarnutil base64 -d <picture.txt >picture.png
)";

struct Options {
    std::string file = "-";
    bool decode = false;
};

// OpenSSL's decoder drops what it cannot read without a word. That nothing was dropped shows when
// the bytes are encoded again.
std::vector<unsigned char> decoded(const std::string& text) {
    std::vector<unsigned char> data = CryptoUtil::base64Decode(text);
    if (CryptoUtil::base64Encode(data) != text) {
        throw Refused("The text is not one line of base64.");
    }
    return data;
}

void run(const Options& options) {
    const std::string input = contentOf(options.file);
    if (options.decode) {
        const std::vector<unsigned char> data = decoded(withoutEnd(input));
        std::cout.write(reinterpret_cast<const char*>(data.data()),
                        static_cast<std::streamsize>(data.size()));
    } else {
        std::cout << CryptoUtil::base64Encode({input.begin(), input.end()}) << '\n';
    }
}

}  // namespace

void addBase64Command(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("base64", "Encode and decode base64");
    command->add_flag("-d,--decode", options->decode, "Decode one line of base64");
    command->add_option("FILE", options->file, "A file, or - for standard input")
        ->capture_default_str();
    command->footer(kExample);
    command->callback([options] { run(*options); });
}

}  // namespace tarnutil_command
