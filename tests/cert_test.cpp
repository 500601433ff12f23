// The promises that all readers share; certs/ holds a file for each subject.
#include <gmock/gmock.h>
#include <tarnutil/cert.h>

#include "certs/material.h"
#include "scratch_dir.h"

namespace tarnutil_test {
namespace {

using testing::IsEmpty;

class CertTest : public testing::Test {
protected:
    CertTest() { ERR_clear_error(); }
};

TEST_F(CertTest, DerIsFoundOutAndTold) {
    const std::string der = readFile(material("leaf.der"));
    int format = 0;
    const X509Ptr cert(TARNSSL_load_X509_buf(der.data(), static_cast<int>(der.size()), &format));
    EXPECT_NE(cert, nullptr);
    EXPECT_EQ(format, 2);
    EXPECT_THAT(drainErrors(), IsEmpty());
}

}  // namespace
}  // namespace tarnutil_test
