// SPDX-License-Identifier: Apache-2.0
// A suite under its three names.
#ifndef TARNUTIL_TOOLS_CIPHER_NAMES_H
#define TARNUTIL_TOOLS_CIPHER_NAMES_H

#include <string>
#include <vector>

namespace tarnutil_command {

struct SuiteNames {
    unsigned id;
    std::string own;
    std::string iana;     // "" if the number is not registered
    std::string openssl;  // "" if the OpenSSL that is linked does not have the suite
};

// Every suite of the catalogue once, in its order.
std::vector<SuiteNames> crossReference();

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_CIPHER_NAMES_H
