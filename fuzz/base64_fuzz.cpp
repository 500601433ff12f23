// SPDX-License-Identifier: Apache-2.0
// base64: any text is decoded or refused, and any bytes come back from their text.
#include <tarnutil/CryptoUtil.h>

#include <cstdint>
#include <string>
#include <vector>

#include <tarnutil/Exception.h>

#include "require.h"

using tarnutil::CryptoUtil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const std::string text(data, data + size);
        require(CryptoUtil::base64Decode(text).size() <= size / 4 * 3 + 3);
    } catch (const tarnutil::Exception&) {
        // refused
    }
    const std::vector<unsigned char> bytes(data, data + size);
    const std::string text = CryptoUtil::base64Encode(bytes);
    require(text.size() == (size + 2) / 3 * 4);
    require(CryptoUtil::base64Decode(text) == bytes);
    return 0;
}
