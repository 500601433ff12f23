// SPDX-License-Identifier: Apache-2.0
// tarnutil token: issues authentication tokens and checks them.
#include <tarnutil/CryptoUtil.h>

#include <ctime>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "input.h"
#include "keys.h"
#include "output.h"

namespace tarnutil_command {
namespace {

using Attributes = std::map<std::string, std::string>;
using tarnutil::CryptoUtil;

constexpr const char* kExample = R"(Example:
  $ tarnutil token issue --key issuer.pem --user alice role=admin >token
  $ tarnutil token check --key issuer.pub --max-age 600 <token
)";

constexpr const char* kIssueExample = R"(Example:
  $ tarnutil token issue --key issuer.pem --password-file secret --user alice role=admin
)";

constexpr const char* kCheckExample = R"(Example:
  $ tarnutil token check --cert issuer.crt --max-age 600 --json <token
Exit code 0: good; 1: refused; 2: the key or the token could not be read.
)";

struct IssueOptions {
    std::string key, passwordFile, user;
    std::vector<std::string> attributes;
    long time = 0;
    bool json = false;
};

struct CheckOptions {
    std::string key, certificate, token = "-";
    long maxAge = -1;
    bool json = false;
};

struct Content {
    std::string user;
    Attributes attributes;
    long time = 0;
};

Attributes attributesOf(const std::vector<std::string>& arguments) {
    Attributes attributes;
    for (const std::string& argument : arguments) {
        const std::size_t sign = argument.find('=');
        if (sign == std::string::npos) throw Unusable("not KEY=VALUE: " + argument);
        if (!attributes.emplace(argument.substr(0, sign), argument.substr(sign + 1)).second) {
            throw Unusable("given twice: " + argument.substr(0, sign));
        }
    }
    return attributes;
}

std::string utc(long time) {
    const std::time_t seconds = time;
    std::tm fields{};
    char text[sizeof "9999-12-31T23:59:59Z"];
    gmtime_r(&seconds, &fields);
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &fields)};
}

void print(const Content& content) {
    std::cout << "user: " << printable(content.user) << '\n'
              << "time: " << content.time << " (" << utc(content.time) << ")\n";
    for (const auto& [name, value] : content.attributes) {
        std::cout << "attribute: " << printable(name) << '=' << printable(value) << '\n';
    }
}

void refuseUnlessFresh(long time, long maxAge) {
    const long age = std::time(nullptr) - time;
    if (age > maxAge) {
        throw Refused("The token is " + std::to_string(age) + " seconds old, which is more than " +
                      std::to_string(maxAge) + ".");
    }
    if (age < -maxAge) {
        throw Refused("The token's time lies " + std::to_string(-age) +
                      " seconds in the future, which is more than " + std::to_string(maxAge) + ".");
    }
}

void issue(const IssueOptions& options, bool withTime) {
    const Attributes attributes = attributesOf(options.attributes);
    const RsaPtr key = privateKey(options.key, options.passwordFile);
    const std::string token =
        withTime ? CryptoUtil::generateAuthToken(options.user, attributes, options.time, key.get())
                 : CryptoUtil::generateAuthToken(options.user, attributes, key.get());
    if (options.json) {
        printJson({{"token", token}});
    } else {
        std::cout << token << '\n';
    }
}

void check(const CheckOptions& options) {
    const RsaPtr key =
        options.key.empty() ? certifiedKey(options.certificate) : publicKey(options.key);
    const std::string token = options.token == "-" ? contentOf("-") : options.token;
    Content content;
    CryptoUtil::decryptAuthToken(withoutEnd(token), content.user, content.attributes, content.time,
                                 key.get());
    if (options.maxAge >= 0) refuseUnlessFresh(content.time, options.maxAge);
    if (options.json) {
        printJson(
            {{"user", content.user}, {"time", content.time}, {"attributes", content.attributes}});
    } else {
        print(content);
    }
}

void addIssue(CLI::App& token) {
    const auto options = std::make_shared<IssueOptions>();
    CLI::App* const command = token.add_subcommand("issue", "Make a token with a private key");
    command->add_option("--key", options->key, "File of the RSA private key, PEM or DER")
        ->required();
    command->add_option("--password-file", options->passwordFile,
                        "File whose first line unlocks the key");
    command->add_option("--user", options->user, "Name of the user")->required();
    CLI::Option* const time = command->add_option(
        "--time", options->time, "Seconds since the epoch, instead of the current time");
    command->add_option("KEY=VALUE", options->attributes, "Attributes of the user");
    command->add_flag("--json", options->json, "Print JSON");
    command->footer(kIssueExample);
    command->callback([options, time] { issue(*options, time->count() > 0); });
}

void addCheck(CLI::App& token) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* const command = token.add_subcommand("check", "Open a token with a public key");
    CLI::Option_group* const keys = command->add_option_group("Key", "Exactly one of:");
    keys->add_option("--key", options->key, "File of the RSA public key, PEM or DER");
    keys->add_option("--cert", options->certificate, "File of a certificate that holds it");
    keys->require_option(1);
    command
        ->add_option("--max-age", options->maxAge,
                     "Refuse a token whose time is more seconds away than this")
        ->check(CLI::NonNegativeNumber);
    command->add_option("TOKEN", options->token, "The token, or - to read it from standard input")
        ->capture_default_str();
    command->add_flag("--json", options->json, "Print JSON");
    command->footer(kCheckExample);
    command->callback([options] { check(*options); });
}

}  // namespace

void addTokenCommand(CLI::App& app) {
    CLI::App* const token = app.add_subcommand("token", "Issue and check authentication tokens");
    token->require_subcommand(1);
    token->footer(kExample);
    addIssue(*token);
    addCheck(*token);
}

}  // namespace tarnutil_command
