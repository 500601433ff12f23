// SPDX-License-Identifier: Apache-2.0
// The field codec: reads fields off any bytes, by turns an integer and a string, until one is cut
// short. What was read has to be what is written again.
#include <tarnutil/CryptoUtil.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <tarnutil/Exception.h>

#include "require.h"

namespace {

using tarnutil::CryptoUtil;
using Bytes = std::vector<unsigned char>;

// Reads what it can and writes it to `again`; returns how many bytes were left.
unsigned long readAll(Bytes& input, Bytes& again) {
    unsigned char* cursor = input.data();
    unsigned long remaining = input.size();
    try {
        for (bool isString = false;; isString = !isString) {
            if (isString) {
                CryptoUtil::insertString(again, CryptoUtil::getString(cursor, remaining));
            } else {
                CryptoUtil::insertUInt32T(again, CryptoUtil::getUInt32T(cursor, remaining));
            }
            require(cursor + remaining == input.data() + input.size());
        }
    } catch (const tarnutil::Exception&) {
        require(cursor + remaining == input.data() + input.size());
        return remaining;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes input(data, data + size), again;
    const unsigned long left = readAll(input, again);
    // A string that is cut short leaves its length read, but not written again.
    require(again.size() + left == size || again.size() + 4 + left == size);
    require(std::equal(again.begin(), again.end(), input.begin()));
    CryptoUtil::insertHash(again);
    return 0;
}
