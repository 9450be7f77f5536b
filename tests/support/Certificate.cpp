#include "support/Certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

namespace support {
namespace {

void check(bool worked) {
    if (!worked)
        throw std::runtime_error("making a certificate failed");
}

template <class Write>
std::string pem(Write write) {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(BIO_new(BIO_s_mem()), &BIO_free_all);
    check(write(bio.get()) == 1);
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

} // namespace

Certificate makeCertificate(const CertificateDescription& description) {
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    const std::unique_ptr<X509, decltype(&X509_free)> made(X509_new(), &X509_free);
    X509* const x509 = made.get();
    check(key && x509 && X509_set_version(x509, 2) == 1 &&
          ASN1_INTEGER_set(X509_get_serialNumber(x509), 1) == 1);
    X509_gmtime_adj(X509_getm_notBefore(x509), description.validFrom);
    X509_gmtime_adj(X509_getm_notAfter(x509), description.validUntil);
    check(X509_set_pubkey(x509, key.get()) == 1);
    X509_NAME* const name = X509_get_subject_name(x509);
    const auto* text = reinterpret_cast<const unsigned char*>(description.host.c_str());
    check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1 &&
          X509_set_issuer_name(x509, name) == 1);
    const bool isAddress = description.host.find_first_not_of("0123456789.:") == std::string::npos;
    const std::string alternative = (isAddress ? "IP:" : "DNS:") + description.host;
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternative.c_str()),
        &X509_EXTENSION_free);
    check(extension && X509_add_ext(x509, extension.get(), -1) == 1 &&
          X509_sign(x509, key.get(), EVP_sha256()) > 0);
    return {pem([&](BIO* bio) { return PEM_write_bio_X509(bio, x509); }), pem([&](BIO* bio) {
                return PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
            })};
}

} // namespace support
