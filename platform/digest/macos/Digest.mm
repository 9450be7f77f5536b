#include "platform/digest/Digest.h"

#include <CommonCrypto/CommonDigest.h>

#include <limits>
#include <stdexcept>

namespace platform {
namespace {

std::string digest(std::string_view bytes, std::size_t length,
                   unsigned char* (*algorithm)(const void*, CC_LONG, unsigned char*)) {
    if (bytes.size() > std::numeric_limits<CC_LONG>::max())
        throw std::length_error("CommonCrypto computes no digest of 4 GiB or more");
    std::string result(length, '\0');
    algorithm(bytes.data(), static_cast<CC_LONG>(bytes.size()),
              reinterpret_cast<unsigned char*>(result.data()));
    return result;
}

} // namespace

// CC_MD5 is deprecated because MD5 is not secure. Here it only derives names.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
std::string md5(std::string_view bytes) {
    return digest(bytes, CC_MD5_DIGEST_LENGTH, &CC_MD5);
}
#pragma clang diagnostic pop

std::string sha1(std::string_view bytes) {
    return digest(bytes, CC_SHA1_DIGEST_LENGTH, &CC_SHA1);
}

} // namespace platform
