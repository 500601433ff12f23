// SPDX-License-Identifier: Apache-2.0
// Every question to whatever certificate loads, with buffers of a size from the input. The address
// of a revocation list is kept for good by design, so that it is none of the leaks to look for.
#include "loaded.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int room = data[0] + 1;
    const Loaded<X509, X509_free> cert(
        TARNSSL_load_X509_buf(data + 1, static_cast<int>(size - 1), nullptr));
    if (cert != nullptr) {
        char text[256];
        (void)TARNSSL_verify_issuer(cert.get(), cert.get());
        (void)TARNSSL_X509_to_fingerprint_str(cert.get(), text, static_cast<std::size_t>(room));
        (void)TARNSSL_X509_get_SANs_str(cert.get(), text, room);
        AUTHORITY_INFO_ACCESS* access = nullptr;
        if (TARNSSL_get_ocsp_resp_url_from_aia(cert.get(), &access) != nullptr) {
            sk_ACCESS_DESCRIPTION_pop_free(access, ACCESS_DESCRIPTION_free);
        }
        const KeptForGood list;
        (void)TARNSSL_X509_get_first_crl_dp(cert.get());
    }
    ERR_clear_error();
    return 0;
}
