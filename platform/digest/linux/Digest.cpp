#include "platform/digest/Digest.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace platform {
namespace {

std::string digest(std::string_view bytes, const EVP_MD* algorithm) {
    std::string result(EVP_MAX_MD_SIZE, '\0');
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(result.data()), &length,
                   algorithm, nullptr) != 1)
        throw std::runtime_error("libcrypto computes no digest: is this algorithm disabled on this machine?");
    result.resize(length);
    return result;
}

} // namespace

std::string md5(std::string_view bytes) {
    return digest(bytes, EVP_md5());
}

std::string sha1(std::string_view bytes) {
    return digest(bytes, EVP_sha1());
}

} // namespace platform
