// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets over OpenSSL share: owners, and input as a BIO.
#ifndef TARNUTIL_FUZZ_LOADED_H
#define TARNUTIL_FUZZ_LOADED_H

#include <openssl/err.h>
#include <tarnutil/cert.h>

#include <cstddef>
#include <cstdint>
#include <memory>

template <class Object, void (*Free)(Object*)>
struct FreeLoaded {
    void operator()(Object* object) const { Free(object); }
};
template <class Object, void (*Free)(Object*)>
using Loaded = std::unique_ptr<Object, FreeLoaded<Object, Free>>;

inline void freeBio(BIO* bio) { (void)BIO_free(bio); }
using InputBio = Loaded<BIO, freeBio>;

inline InputBio asBio(const std::uint8_t* data, std::size_t size) {
    return InputBio(BIO_new_mem_buf(data, static_cast<int>(size)));
}

// LeakSanitizer's own functions, where the program has it.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

// What is allocated while an object of this class lives counts as no leak.
class KeptForGood {
public:
    KeptForGood() {
        if (__lsan_disable != nullptr) __lsan_disable();
    }
    ~KeptForGood() {
        if (__lsan_enable != nullptr) __lsan_enable();
    }
    KeptForGood(const KeptForGood&) = delete;
    KeptForGood& operator=(const KeptForGood&) = delete;
};

#endif  // TARNUTIL_FUZZ_LOADED_H
