// SPDX-License-Identifier: Apache-2.0
// Revocation lists.
#include "loaded.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InputBio bio = asBio(data, size);
    const Loaded<X509_CRL, X509_CRL_free> list(TARNSSL_load_X509_CRL_bio(bio.get()));
    ERR_clear_error();
    return 0;
}
