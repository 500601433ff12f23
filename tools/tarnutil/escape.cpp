// SPDX-License-Identifier: Apache-2.0
// tarnutil escape: text escaped for a shell or a regular expression.
#include <iostream>
#include <memory>
#include <string>

#include <tarnutil/StringUtil.h>

#include "commands.h"
#include "input.h"

namespace tarnutil_command {
namespace {

constexpr const char* kExample =
    R"HELP(Line feeds, tabs and carriage returns pass --shell as they are: to run a program with foreign
text, hand it over as an argument of its own ("tarnutil run") instead of escaping it.

Examples:
  tarnutil escape --shell "it's a \$HOME"
  grep -E "$(tarnutil escape --regex 'a.b')" file
  printf 'a|b' | tarnutil escape --regex
)HELP";

struct Options {
    bool isForShell = false;
    std::string text;
};

void escape(const Options& options, bool hasText) {
    tarnutil::tarnstring text(hasText ? options.text : contentOf("-"));
    if (options.isForShell) {
        text.shell_escape();
    } else {
        text.regex_escape();
    }
    std::cout << text;
    if (hasText) std::cout << '\n';
}

}  // namespace

void addEscapeCommand(CLI::App& app) {
    auto options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("escape", "Put a backslash where a reader would take a byte for more");
    CLI::Option_group* const dialect = command->add_option_group("dialect");
    dialect->add_flag("--shell", options->isForShell, "For a POSIX shell");
    dialect->add_flag("--regex", "For an ECMAScript, Perl or POSIX extended expression");
    dialect->require_option(1);
    const CLI::Option* const text =
        command->add_option("STRING", options->text, "The text; standard input without it");
    command->footer(kExample);
    command->callback([options, text] { escape(*options, text->count() > 0); });
}

}  // namespace tarnutil_command
