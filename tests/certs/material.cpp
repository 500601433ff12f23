// SPDX-License-Identifier: Apache-2.0
#include "material.h"

#include <gtest/gtest.h>
#include <tarnutil/cert.h>

#include <thread>

#include "leaks.h"

// LeakSanitizer's own functions, where the program has it.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace tarnutil_test {

std::string material(const std::string& name) { return TARNUTIL_TEST_MATERIAL "/" + name; }

X509Ptr certificate(const std::string& name) {
    const BioPtr file(BIO_new_file(material(name).c_str(), "r"));
    X509Ptr cert(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
    EXPECT_NE(cert, nullptr) << name;
    return cert;
}

BioPtr reading(const std::string& bytes) {
    return BioPtr(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

std::vector<std::string> drainErrors() {
    std::vector<std::string> errors;
    const char* file = nullptr;
    int line = 0;
    while (const unsigned long error = ERR_get_error_line(&file, &line)) {
        errors.push_back(std::to_string(ERR_GET_LIB(error)) + ":" +
                         std::to_string(ERR_GET_REASON(error)));
        if (std::string(file) == "util/cert.cpp") {
            errors.back() += " line " + std::to_string(line);
        }
    }
    return errors;
}

namespace {

// In a thread of its own, whose end releases the texts that OpenSSL's error queue holds on to.
void runApart(const std::function<void()>& run) { std::thread(run).join(); }

}  // namespace

void expectNothingHeld(const std::function<void()>& run) {
    runApart(run);
    const std::set<int> descriptors = openDescriptors();
    EXPECT_FALSE(growsEachTime([&] { runApart(run); }));
    EXPECT_EQ(openDescriptors(), descriptors);
}

const unsigned char* firstCrlBytes(const X509Ptr& cert) {
    if (__lsan_disable != nullptr) __lsan_disable();
    const unsigned char* const url = TARNSSL_X509_get_first_crl_dp(cert.get());
    if (__lsan_enable != nullptr) __lsan_enable();
    return url;
}

std::string firstCrlAddress(X509Ptr cert) {
    const unsigned char* const url = firstCrlBytes(cert);
    cert.reset();
    return url == nullptr ? "" : reinterpret_cast<const char*>(url);
}

}  // namespace tarnutil_test
