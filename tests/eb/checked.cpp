// SPDX-License-Identifier: Apache-2.0
#include "checked.h"

#include <algorithm>

#include "verifier.h"

namespace tarnutil_test {
namespace {

bool matches(const eb_l1_t& rec, const EbModel::Extremes& expected) {
    return rec.min == expected.first && rec.max == expected.second;
}

bool matches(const eb_top_t& top, const EbModel::Extremes& expected) {
    return top.min == expected.first && top.max == expected.second;
}

const char* compareAlong(const eb_t* eb, const EbModel& model, std::uint64_t pos) {
    const std::uint64_t t = pos / EbModel::kTop;
    const std::uint64_t l = pos % EbModel::kTop / EbModel::kLeaf;
    const eb_top_t& top = eb->tops[t];
    if (!matches(eb->top_aux[t / EbModel::kAux], model.aux(t / EbModel::kAux)))
        return "record of tops";
    if (!matches(top, model.top(t))) return "top";
    if (!matches(top.summary, model.summary(t))) return "summary";
    if (!matches(top.leaves[l], model.leaf(t, l))) return "leaf";
    return nullptr;
}

}  // namespace

CheckedBitmap::CheckedBitmap(PristineBitmap& bitmap)
    : eb(bitmap.get()), model(bitmap.positionCount()) {
    bitmap.restore();
}

const char* CheckedBitmap::applyToBoth(EbOperation operation, std::uint64_t pos) {
    switch (operation) {
        case EbOperation::set:
            model.set(pos);
            return eb_set(eb, pos) == 0 ? nullptr : "result of eb_set";
        case EbOperation::isSet:
            return eb_is_set(eb, pos) == (model.isSet(pos) ? 1 : 0) ? nullptr
                                                                    : "result of eb_is_set";
        case EbOperation::clear:
            model.clear(pos);
            eb_clear(eb, pos);
            return nullptr;
        case EbOperation::clearTop:
            model.clearTop(pos);
            eb_clear_top(eb, pos);
            return nullptr;
        case EbOperation::findNext:
            return eb_find_next(eb, pos) == model.findNext(pos) ? nullptr
                                                                : "result of eb_find_next";
    }
    return "no such operation";
}

const char* CheckedBitmap::compareHandle() const {
    const bool same = eb->min == model.min() && eb->max == model.max() &&
                      eb->min_top == model.minTop() && eb->max_top == model.maxTop();
    return same ? nullptr : "handle";
}

const char* CheckedBitmap::checkAlong(std::uint64_t pos) const {
    if (const char* says = compareAlong(eb, model, pos)) return says;
    return brokenAlong(eb, pos);
}

const char* CheckedBitmap::apply(EbOperation operation, std::uint64_t pos) {
    const std::uint64_t before = eb->min;
    if (const char* says = applyToBoth(operation, pos)) return says;
    if (const char* says = compareHandle()) return says;
    if (const char* says = checkAlong(pos)) return says;
    if (eb->min == before) return nullptr;
    for (const std::uint64_t smallest : {before, eb->min}) {
        if (smallest == EbModel::kNone) continue;
        if (const char* says = checkAlong(smallest)) return says;
    }
    return nullptr;
}

const char* CheckedBitmap::checkTop(std::uint64_t pos) const {
    const std::uint64_t t = pos / EbModel::kTop;
    if (const char* says = brokenInTop(eb, static_cast<std::uint32_t>(t))) return says;
    const std::vector<std::uint64_t> found = positionsInTop(eb, t);
    const auto& expected = model.below();
    return std::equal(found.begin(), found.end(), expected.lower_bound(t * EbModel::kTop),
                      expected.lower_bound((t + 1) * EbModel::kTop))
               ? nullptr
               : "members";
}

const char* CheckedBitmap::checkAll() const {
    if (const char* says = compareHandle()) return says;
    if (const char* says = brokenAnywhere(eb)) return says;
    const std::vector<std::uint64_t> found = positionsInTops(eb);
    const auto& expected = model.below();
    return std::equal(found.begin(), found.end(), expected.begin(), expected.end()) ? nullptr
                                                                                    : "members";
}

}  // namespace tarnutil_test
