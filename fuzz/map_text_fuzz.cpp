// SPDX-License-Identifier: Apache-2.0
// Text read as a map: the words in it, said in another way, and the way back.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <tarnutil/StringUtil.h>

using tarnutil::StringUtil;
using Map = std::map<std::string, std::string>;

namespace {

// The map, one byte at a time.
Map model(const std::string& text) {
    Map map;
    std::string key, value;
    bool inValue = false;
    for (const char c : text + " ") {
        if (c == ' ') {
            map[key] = value;
            key.clear();
            value.clear();
            inValue = false;
        } else if (c == '=' && !inValue) {
            inValue = true;
        } else {
            (inValue ? value : key) += c;
        }
    }
    return map;
}

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    const Map map = StringUtil::fromString<Map>(text);
    require(map == model(text));

    // What was read has no spaces and no "=" in its keys, so it comes back from its text.
    require(StringUtil::fromString<Map>(StringUtil::toString(map)) == map);

    std::vector<std::string> pieces;
    StringUtil::split(std::vector<unsigned char>(data, data + size), ' ', pieces,
                      static_cast<unsigned>(size % 5));
    std::string joined = pieces.front();
    for (std::size_t i = 1; i < pieces.size(); ++i) joined += " " + pieces[i];
    require(joined == text);
    return 0;
}
