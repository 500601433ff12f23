// SPDX-License-Identifier: Apache-2.0
// Every root that the system trusts: what this library says of it is what openssl says.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "material.h"

namespace tarnutil_test {
namespace {

struct ClosePipe {
    void operator()(FILE* stream) const { EXPECT_EQ(pclose(stream), 0); }
};

std::vector<std::string> linesOf(const std::string& command) {
    const std::unique_ptr<FILE, ClosePipe> stream(popen(command.c_str(), "r"));
    std::vector<std::string> lines;
    char line[8192];
    while (std::fgets(line, sizeof line, stream.get()) != nullptr) {
        lines.emplace_back(line, std::strcspn(line, "\n"));
    }
    return lines;
}

std::vector<std::string> roots() {
    std::vector<std::string> paths;
    for (const auto& entry :
         std::filesystem::directory_iterator("/usr/share/ca-certificates/mozilla")) {
        if (entry.path().extension() == ".crt") paths.push_back(entry.path());
    }
    return paths;
}

// What the line of `lines` behind `title` says, or the empty text.
std::string behind(const std::vector<std::string>& lines, const std::string& title) {
    for (const std::string& line : lines) {
        if (line.compare(0, title.size(), title) == 0) return line.substr(title.size());
    }
    return "";
}

// The line below the title of the extension, without its indent.
std::string namesIn(const std::vector<std::string>& lines) {
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
        if (lines[i].find("Subject Alternative Name") == std::string::npos) continue;
        return lines[i + 1].substr(lines[i + 1].find_first_not_of(' '));
    }
    return "";
}

void expectSameAsOpenssl(const std::string& path) {
    SCOPED_TRACE(path);
    const X509Ptr cert(TARNSSL_load_X509_file(path.c_str()));
    ASSERT_NE(cert, nullptr);
    const std::vector<std::string> said = linesOf(
        "openssl x509 -noout -fingerprint -sha256 -ext subjectAltName -in '" + path + "' 2>&1");
    char text[4096];
    ASSERT_EQ(TARNSSL_X509_to_fingerprint_str(cert.get(), text, sizeof text), 1);
    EXPECT_EQ(std::string(text), "SHA256/" + behind(said, "sha256 Fingerprint="));
    (void)TARNSSL_X509_get_SANs_str(cert.get(), text, sizeof text);
    EXPECT_EQ(std::string(text), namesIn(said));
    const bool selfIssued =
        X509_NAME_cmp(X509_get_subject_name(cert.get()), X509_get_issuer_name(cert.get())) == 0;
    EXPECT_EQ(TARNSSL_verify_issuer(cert.get(), cert.get()), selfIssued ? 1 : 0);
    ERR_clear_error();
}

TEST(SystemRootsTest, AreReadAsOpensslReadsThem) {
    const std::vector<std::string> paths = roots();
    ASSERT_GT(paths.size(), 50u) << "ca-certificates is not installed";
    for (const std::string& path : paths) expectSameAsOpenssl(path);
}

TEST(SystemRootsTest, TheBundleHoldsEveryOne) {
    const std::string path = "/etc/ssl/certs/ca-certificates.crt";
    const std::vector<std::string> blocks = linesOf("grep -F -e 'BEGIN CERTIFICATE' " + path);
    ASSERT_GT(blocks.size(), 50u);
    const BioPtr bundle(BIO_new_file(path.c_str(), "r"));
    ASSERT_NE(bundle, nullptr);
    int format = 0;
    std::size_t count = 0;
    while (X509Ptr(TARNSSL_load_X509_bio(bundle.get(), &format)) != nullptr) ++count;
    EXPECT_EQ(format, 1);
    EXPECT_EQ(count, blocks.size());
    ERR_clear_error();
}

}  // namespace
}  // namespace tarnutil_test
