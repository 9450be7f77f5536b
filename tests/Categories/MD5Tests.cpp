#include "Categories/MD5.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

TEST(MD5, OfDataCountsEveryByteAndOfTextEndsAtTheFirstZero) {
    EXPECT_EQ(MD5(""s), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(MD5("message digest"s), "f96b697d7cb7938d525a2f31aaf161d0"); // RFC 1321, A.5
    EXPECT_EQ(MD5("message digest\0 and more"s), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(MD5("\0"s), MD5(platform::Data()));
    EXPECT_EQ(MD5(platform::Data("\0"s)), "93b885adfe0da089cdf634904fd59f71");
    EXPECT_EQ(MD5("d\xC3\xA9"s), MD5(platform::Data("d\xC3\xA9"s)));
}
