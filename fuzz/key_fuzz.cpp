// SPDX-License-Identifier: Apache-2.0
// Private keys, PEM with a password and DER.
#include "loaded.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    char password[] = "secret";
    const InputBio bio = asBio(data, size);
    const Loaded<EVP_PKEY, EVP_PKEY_free> key(TARNSSL_load_PrivateKey_bio(bio.get(), password));
    const InputBio again = asBio(data, size);
    const Loaded<RSA, RSA_free> rsa(TARNSSL_load_RSA_bio(again.get(), nullptr));
    ERR_clear_error();
    return 0;
}
