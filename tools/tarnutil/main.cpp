// SPDX-License-Identifier: Apache-2.0
// tarnutil: the library at the shell.
#include <exception>
#include <iostream>

#include <tarnutil/Exception.h>
#include <tarnutil/version.h>

#include "commands.h"
#include "output.h"

namespace tarnutil_command {
namespace {

constexpr const char* kExample = R"(Example:
  tarnutil token issue --key issuer.pem --user alice role=admin | tarnutil token check --key issuer.pub
)";

// Of what a subcommand threw.
ExitCode exitCodeOf(const std::exception& e) {
    const bool isAnswer = dynamic_cast<const Refused*>(&e) != nullptr ||
                          dynamic_cast<const tarnutil::Exception*>(&e) != nullptr;
    return isAnswer ? kRefused : kUnusable;
}

// Parses the arguments, which runs the subcommand, and turns what that throws into an exit code.
int parse(CLI::App& app, const bool& withTrace, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return kGood;
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? kGood : kUnusable;
    } catch (const std::exception& e) {
        printError(e, withTrace);
        return exitCodeOf(e);
    }
}

// Output that is lost, help or a refusal's details among it, counts more than what it said.
int run(CLI::App& app, const bool& withTrace, int argc, char** argv) {
    const int code = parse(app, withTrace, argc, argv);
    if (std::cout.flush()) return code;
    std::cerr << "tarnutil: cannot write the output\n";
    return kUnusable;
}

// All that the command can do.
void addCommands(CLI::App& app, bool& withTrace) {
    app.set_version_flag("--version", "tarnutil " TARNUTIL_VERSION);
    app.add_flag("--trace", withTrace,
                 "With an exception's message, print its class and stack trace");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(kExample);
    addBase64Command(app);
    addBitmapCommand(app);
    addCertCommand(app);
    addCiphersCommand(app);
    addDigestCommand(app);
    addEscapeCommand(app);
    addIpCommand(app);
    addRunCommand(app);
    addTokenCommand(app);
}

}  // namespace
}  // namespace tarnutil_command

// What CLI11 may throw while the command is put together is a mistake in it, and may end it.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    using namespace tarnutil_command;

    CLI::App app("libtarnutil at the shell", "tarnutil");
    bool withTrace = false;
    addCommands(app, withTrace);
    return run(app, withTrace, argc, argv);
}
