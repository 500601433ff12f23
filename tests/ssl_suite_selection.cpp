// SPDX-License-Identifier: Apache-2.0
#include "ssl_suite_selection.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <numeric>

namespace tarnutil_test {

Indices wholeCatalogue() {
    Indices all(SSL_SUITE_COUNT);
    std::iota(all.begin(), all.end(), 0u);
    return all;
}

Selection::Selection(const Indices& suites) : ctx(new ssl_suite_ctx_t), members(suites) {
    ssl_suite_ctx_init(ctx.get());
    ctx->first = nullptr;
    ctx->last = &ctx->first;
    for (std::size_t i = 0; i < suites.size(); ++i) append(ctx->entries[i], suites[i]);
    ctx->report = "yes";
}

int Selection::apply(const std::string& text, bool expand) {
    // A copy of exactly that size, so that a sanitizer sees a read past its end.
    const std::vector<char> bytes(text.begin(), text.end());
    return ssl_suite_cmd(ctx.get(), bytes.data(), static_cast<unsigned>(bytes.size()), expand, note,
                         this);
}

std::vector<ModelItem> Selection::list() const {
    std::vector<ModelItem> items;
    for (const ssl_suite_entry_t* entry = ctx->first; entry != nullptr; entry = entry->next) {
        items.push_back({entry->suite, (entry->flags & SSL_SUITE_ENTRY_ENABLED) != 0,
                         (entry->flags & SSL_SUITE_ENTRY_DRAFT_DTLS) != 0});
    }
    return items;
}

Indices Selection::order() const {
    Indices suites;
    for (const ModelItem& item : list()) suites.push_back(item.suite);
    return suites;
}

Indices Selection::offer() const {
    Indices suites;
    for (const ModelItem& item : list()) {
        if (item.enabled) suites.push_back(item.suite);
    }
    return suites;
}

bool Selection::isLinked() const {
    ssl_suite_entry_t* const* link = &ctx->first;
    std::size_t count = 0;
    for (; *link != nullptr; link = &(*link)->next) {
        if ((*link)->prev != link || ++count > members.size()) return false;
    }
    return ctx->last == link;
}

void Selection::append(ssl_suite_entry_t& entry, unsigned suite) {
    entry = {nullptr, ctx->last, static_cast<std::uint16_t>(suite), 0, 0};
    *ctx->last = &entry;
    ctx->last = &entry.next;
}

int Selection::note(void* self, ssl_suite_ctx_t* ctx, const char* term) {
    Selection& selection = *static_cast<Selection*>(self);
    EXPECT_EQ(ctx, selection.ctx.get());
    selection.reported.push_back(term);
    return static_cast<int>(selection.reported.size());  // of no meaning to the library
}

}  // namespace tarnutil_test
