// SPDX-License-Identifier: Apache-2.0
// Certificates: the first byte is the format asked for, the rest the input, read to its end.
#include "loaded.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    int format = data[0] % 4;
    const InputBio bio = asBio(data + 1, size - 1);
    while (Loaded<X509, X509_free>(TARNSSL_load_X509_bio(bio.get(), &format)) != nullptr) {
    }
    ERR_clear_error();
    return 0;
}
