// SPDX-License-Identifier: Apache-2.0
// base64: any text is decoded or refused, and any bytes come back from their text.
#include <tarnutil/CryptoUtil.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <tarnutil/Exception.h>

using tarnutil::CryptoUtil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const std::string text(data, data + size);
        if (CryptoUtil::base64Decode(text).size() > size / 4 * 3 + 3) std::abort();
    } catch (const tarnutil::Exception&) {
        // refused
    }
    const std::vector<unsigned char> bytes(data, data + size);
    const std::string text = CryptoUtil::base64Encode(bytes);
    if (text.size() != (size + 2) / 3 * 4) std::abort();
    if (CryptoUtil::base64Decode(text) != bytes) std::abort();
    return 0;
}
