// SPDX-License-Identifier: Apache-2.0
#include "thrown.h"

#include <cstring>

#include <tarnutil/Exception.h>

namespace tarnutil_test {

std::string thrown(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const tarnutil::ErrnoException& e) {
        return e.kind() + "(" + std::to_string(e.getErrorNumber()) + "): " + e.what();
    } catch (const tarnutil::Exception& e) {
        return e.kind() + ": " + e.what();
    }
    return "(nothing was thrown)";
}

std::string refused(const std::string& what, int number) {
    return "tarnutil::Exception: " + what + std::strerror(number);
}

std::string errnoThrown(const std::string& message, int number) {
    const std::string code = std::to_string(number);
    return "tarnutil::ErrnoException(" + code + "): " + message + ": errno " + code + ": " +
           std::strerror(number);
}

}  // namespace tarnutil_test
