// SPDX-License-Identifier: Apache-2.0
// A selection of suites for the tests of cipher strings: a context, and what became of it.
#ifndef TARNUTIL_TESTS_SSL_SUITE_SELECTION_H
#define TARNUTIL_TESTS_SSL_SUITE_SELECTION_H

#include <tarnutil/ssl_suite.h>

#include <memory>
#include <string>
#include <vector>

#include "ssl_suite_model.h"

namespace tarnutil_test {

// Records of the catalogue, in an order.
using Indices = std::vector<unsigned>;

Indices wholeCatalogue();

// A context over the records of `suites`, in that order, and what its callback was told.
class Selection {
public:
    explicit Selection(const Indices& suites = wholeCatalogue());

    ssl_suite_ctx_t* operator->() { return ctx.get(); }
    ssl_suite_ctx_t* get() { return ctx.get(); }

    int apply(const std::string& text, bool expand = true);

    // Every entry, in list order.
    std::vector<ModelItem> list() const;
    Indices order() const;

    // The enabled ones, in list order.
    Indices offer() const;

    // Whether the links lead through the list both ways and its end is known.
    bool isLinked() const;

    std::vector<std::string> reported;

private:
    void append(ssl_suite_entry_t& entry, unsigned suite);
    static int note(void* self, ssl_suite_ctx_t* ctx, const char* term);

    std::unique_ptr<ssl_suite_ctx_t> ctx;
    Indices members;
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SSL_SUITE_SELECTION_H
