// SPDX-License-Identifier: Apache-2.0
// The subcommands of tarnutil: each file adds its own to the application.
//
// A subcommand's callback does its work and returns for exit code 0, throws Refused for 1 and
// Unusable for 2; main prints what they and the library's exceptions say, which count as refusals:
// where one is not the answer to what was asked, the subcommand nests it in an Unusable.
#ifndef TARNUTIL_TOOLS_COMMANDS_H
#define TARNUTIL_TOOLS_COMMANDS_H

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

namespace tarnutil_command {

enum ExitCode { kGood = 0, kRefused = 1, kUnusable = 2 };

// The input was understood and the answer is no.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A file that cannot be read, a key that does not load, an argument that makes no sense.
struct Unusable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void addBase64Command(CLI::App& app);
void addBitmapCommand(CLI::App& app);
void addCertCommand(CLI::App& app);
void addCiphersCommand(CLI::App& app);
void addDigestCommand(CLI::App& app);
void addEscapeCommand(CLI::App& app);
void addIpCommand(CLI::App& app);
void addRunCommand(CLI::App& app);
void addTokenCommand(CLI::App& app);

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_COMMANDS_H
