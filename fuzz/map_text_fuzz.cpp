// SPDX-License-Identifier: Apache-2.0
// Text read as a map and split, beside plain loops, and the way back.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tarnutil/StringUtil.h>

#include "require.h"
#include "text_model.h"

using tarnutil::StringUtil;
using namespace tarnutil_test;
using Map = std::map<std::string, std::string>;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    const Map map = StringUtil::fromString<Map>(text);
    require(map == modelMap(text));

    // What was read has no spaces and no "=" in its keys, so it comes back from its text.
    require(StringUtil::fromString<Map>(StringUtil::toString(map)) == map);

    std::vector<std::string> pieces, expected;
    const auto limit = static_cast<unsigned>(size % 5);
    StringUtil::split(std::vector<unsigned char>(data, data + size), ' ', pieces, limit);
    modelSplit(text, ' ', expected, limit);
    require(pieces == expected);
    return 0;
}
