// SPDX-License-Identifier: Apache-2.0
// A text of the form key=value, as maps and tokens write their entries.
#ifndef TARNUTIL_UTIL_KEY_VALUE_H
#define TARNUTIL_UTIL_KEY_VALUE_H

#include <algorithm>
#include <map>
#include <string>
#include <string_view>

namespace tarnutil {

// Stores `entry`, split at its first "=": without one, it is a key with an empty value. It replaces
// what `map` holds for that key. Quickest for keys in ascending order.
inline void store(std::map<std::string, std::string>& map, std::string_view entry) {
    const std::string_view key = entry.substr(0, entry.find('='));
    const std::string_view value = entry.substr(std::min(key.size() + 1, entry.size()));
    map.insert_or_assign(map.end(), std::string(key), value);
}

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_KEY_VALUE_H
