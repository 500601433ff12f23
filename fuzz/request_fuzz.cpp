// SPDX-License-Identifier: Apache-2.0
// Certificate requests, and the names that they ask for.
#include "loaded.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InputBio bio = asBio(data, size);
    const Loaded<X509_REQ, X509_REQ_free> request(TARNSSL_load_X509_REQ_bio(bio.get(), nullptr));
    if (request != nullptr) {
        char names[64];
        TARNSSL_X509_REQ_get_SANs_str(request.get(), names, sizeof names);
    }
    ERR_clear_error();
    return 0;
}
