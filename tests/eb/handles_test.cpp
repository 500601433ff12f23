// SPDX-License-Identifier: Apache-2.0
// Several bitmaps at a time: each is as if it were the only one.
#include <gmock/gmock.h>

#include <array>
#include <thread>

#include "checked.h"
#include "random.h"
#include "rounds.h"

using namespace tarnutil_test;

namespace {

// One step of a bitmap and its model, at any of some positions that meet at every level.
const char* anyStep(CheckedBitmap& checked, Random& random) {
    constexpr EbOperation kOperations[] = {EbOperation::set,      EbOperation::set,
                                           EbOperation::isSet,    EbOperation::clear,
                                           EbOperation::clearTop, EbOperation::findNext};
    const std::uint64_t top = random.upTo(3) * EbModel::kTop;
    const std::uint64_t leaf = random.upTo(3) * EbModel::kLeaf;
    return checked.apply(kOperations[random.upTo(std::size(kOperations) - 1)],
                         top + leaf + random.upTo(3));
}

TEST(EbHandlesTest, DrivenInTurnAreIndependent) {
    PristineBitmap bitmaps[] = {PristineBitmap(27), PristineBitmap(27), PristineBitmap(28)};
    std::array<CheckedBitmap, 3> checked = {CheckedBitmap(bitmaps[0]), CheckedBitmap(bitmaps[1]),
                                            CheckedBitmap(bitmaps[2])};
    Random random;
    for (unsigned step = 0; step < inRounds(30000); ++step) {
        ASSERT_STREQ(anyStep(checked[step % checked.size()], random), nullptr) << step;
    }
    for (const CheckedBitmap& each : checked) EXPECT_STREQ(each.checkAll(), nullptr);
}

TEST(EbHandlesTest, DrivenByAThreadEachAreIndependent) {
    const auto drive = [](Random random) {
        PristineBitmap bitmap(27);
        CheckedBitmap checked(bitmap);
        for (unsigned step = 0; step < inRounds(30000); ++step) {
            ASSERT_STREQ(anyStep(checked, random), nullptr) << step;
        }
        EXPECT_STREQ(checked.checkAll(), nullptr);
    };
    Random first;
    Random second;
    std::thread other(drive, second);
    drive(first);
    other.join();
}

}  // namespace
