// SPDX-License-Identifier: Apache-2.0
// Catches every exception class of the library by its own type, across the library's boundary, in a
// program whose own symbols are hidden. Exits with the number of the first class that was missed.
#include <tarnutil/CryptoUtil.h>
#include <tarnutil/Exception.h>
#include <tarnutil/File.h>
#include <tarnutil/Pipe.h>
#include <tarnutil/version.h>

#include <string>

namespace {

// Whether `thrower` throws exactly an `E` that is caught by that type.
template <class E>
bool catches(void (*thrower)(), const std::string& kind) {
    try {
        thrower();
    } catch (const E& e) {
        return e.kind() == kind && dynamic_cast<const TraceableException*>(&e) == &e &&
               !e.getStackTrace().empty();
    }
    return false;
}

void throwTraceable() { throw TraceableException(); }
void throwException() { tarnutil::CryptoUtil::computeSha1Digest("/no/such/file"); }
void throwErrno() { tarnutil::Pipe().substitute(-1, tarnutil::Pipe::READ); }
void throwIo() { tarnutil::File::removeFile("/no/such/file"); }

}  // namespace

int main() {
    if (!catches<TraceableException>(throwTraceable, "TraceableException")) return 1;
    if (!catches<tarnutil::Exception>(throwException, "tarnutil::Exception")) return 2;
    if (!catches<tarnutil::ErrnoException>(throwErrno, "tarnutil::ErrnoException")) return 3;
    if (!catches<tarnutil::IOException>(throwIo, "tarnutil::IOException")) return 4;
    if (!catches<tarnutil::Exception>(throwIo, "tarnutil::IOException")) return 5;
    const int numbers[] = {TARNUTIL_VERSION_MAJOR, TARNUTIL_VERSION_MINOR, TARNUTIL_VERSION_PATCH};
    const std::string version = std::to_string(numbers[0]) + '.' + std::to_string(numbers[1]) +
                                '.' + std::to_string(numbers[2]);
    return version == TARNUTIL_VERSION ? 0 : 6;
}
