// SPDX-License-Identifier: Apache-2.0
// A cipher string against the model of the tests: the same result, report and list, whole links.
//
// The first byte is the context's flags and whether to expand; a line feed parts the string from
// what "default" stands for.
#include <tarnutil/ssl_suite.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "require.h"
#include "ssl_suite_model.h"

using tarnutil_test::ModelItem;
using tarnutil_test::SelectionModel;

namespace {

int note(void* terms, ssl_suite_ctx_t*, const char* term) {
    static_cast<std::vector<std::string>*>(terms)->push_back(term);
    return 0;
}

std::vector<ModelItem> listOf(const ssl_suite_ctx_t& ctx) {
    std::vector<ModelItem> items;
    ssl_suite_entry_t* const* link = &ctx.first;
    for (; *link != nullptr; link = &(*link)->next) {
        require((*link)->prev == link);
        require(items.size() < SSL_SUITE_COUNT);
        items.push_back({(*link)->suite, ((*link)->flags & SSL_SUITE_ENTRY_ENABLED) != 0,
                         ((*link)->flags & SSL_SUITE_ENTRY_DRAFT_DTLS) != 0});
    }
    require(ctx.last == link);
    return items;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const unsigned flags = data[0] & 15u;
    const bool expand = (data[0] & 16u) == 0;
    std::string text(data + 1, data + size), default_string;
    const std::size_t end = text.find('\n');
    if (end != std::string::npos) {
        default_string = text.substr(end + 1).c_str();  // up to its first zero byte
        text.resize(end);
    }

    const auto ctx = std::make_unique<ssl_suite_ctx_t>();
    ssl_suite_ctx_init(ctx.get());
    ctx->flags = static_cast<std::uint8_t>(flags);
    ctx->report = "on";
    SelectionModel model;
    model.list = listOf(*ctx);
    model.admitsRsa = (flags & SSL_SUITE_CTX_FIPS_RSA) != 0;
    model.admitsEcdsa = (flags & SSL_SUITE_CTX_FIPS_ECDSA) != 0;
    model.admitsGmssl = flags >= SSL_SUITE_CTX_GMSSL;
    if (end != std::string::npos) {
        ctx->default_string = default_string.c_str();
        model.defaultString = default_string;
    }

    std::vector<std::string> unknown;
    const int status = ssl_suite_cmd(ctx.get(), text.data(), static_cast<unsigned>(text.size()),
                                     expand, note, &unknown);
    require(status == (model.apply(text, expand) ? 1 : 0));
    require(listOf(*ctx) == model.list);
    require(unknown == model.unknownTerms);
    return 0;
}
