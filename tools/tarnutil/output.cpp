// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string_view>

#include <tarnutil/Exception.h>
#include <tarnutil/StringUtil.h>

namespace tarnutil_command {
namespace {

// How UTF-8 begins: a lead byte that calls for so many bytes in all, and the second of them. The
// ranges leave out overlong forms, surrogates, what is beyond U+10FFFF, and C1.
struct Lead {
    unsigned char first, last;
    unsigned char length;
    unsigned char secondFirst, secondLast;
};
constexpr Lead kLeads[] = {
    // clang-format off
    // lead       length  second
    {0xC2, 0xC2,  2,      0xA0, 0xBF},  // 80 to 9F are the control characters of C1
    {0xC3, 0xDF,  2,      0x80, 0xBF},
    {0xE0, 0xE0,  3,      0xA0, 0xBF},
    {0xE1, 0xEC,  3,      0x80, 0xBF},
    {0xED, 0xED,  3,      0x80, 0x9F},
    {0xEE, 0xEF,  3,      0x80, 0xBF},
    {0xF0, 0xF0,  4,      0x90, 0xBF},
    {0xF1, 0xF3,  4,      0x80, 0xBF},
    {0xF4, 0xF4,  4,      0x80, 0x8F},
    // clang-format on
};

bool isWithin(char c, unsigned char first, unsigned char last) {
    const auto byte = static_cast<unsigned char>(c);
    return first <= byte && byte <= last;
}

bool isPlainAscii(char c) { return isWithin(c, ' ', '~') && c != '\\'; }

bool begins(std::string_view text, const Lead& lead) {
    if (text.size() < lead.length || !isWithin(text[0], lead.first, lead.last)) return false;
    if (!isWithin(text[1], lead.secondFirst, lead.secondLast)) return false;
    const std::string_view rest = text.substr(2, lead.length - 2U);
    return std::all_of(rest.begin(), rest.end(), [](char c) { return isWithin(c, 0x80, 0xBF); });
}

// How many bytes at the beginning of `text`, which is not empty, are a character that can be shown
// as it is.
std::size_t shownAsItIs(std::string_view text) {
    if (isPlainAscii(text[0])) return 1;
    for (const Lead& lead : kLeads) {
        if (begins(text, lead)) return lead.length;
    }
    return 0;
}

void printTrace(const TraceableException& e) {
    std::cerr << e.kind() << '\n';
    for (const std::string& line : e.getStackTrace()) std::cerr << "  at " << line << '\n';
}

void printTraceOf(const std::exception& e) {
    if (const auto* const traceable = dynamic_cast<const TraceableException*>(&e)) {
        return printTrace(*traceable);
    }
    try {
        std::rethrow_if_nested(e);
    } catch (const std::exception& nested) {
        printTraceOf(nested);
    }
}

}  // namespace

std::string printable(const std::string& text) {
    std::string safe;
    for (std::size_t at = 0; at < text.size();) {
        if (const std::size_t length = shownAsItIs(std::string_view(text).substr(at))) {
            safe.append(text, at, length);
            at += length;
        } else {
            const auto byte = static_cast<unsigned char>(text[at++]);
            safe += "\\x" + tarnutil::StringUtil::toHexString({byte});
        }
    }
    return safe;
}

std::string counted(std::size_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

void printJson(const nlohmann::ordered_json& json) {
    using ErrorHandler = nlohmann::ordered_json::error_handler_t;
    std::cout << json.dump(2, ' ', /*ensure_ascii=*/false, ErrorHandler::replace) << '\n';
}

void printError(const std::exception& e, bool withTrace) {
    std::cerr << "tarnutil: " << e.what() << '\n';
    if (withTrace) printTraceOf(e);
}

}  // namespace tarnutil_command
