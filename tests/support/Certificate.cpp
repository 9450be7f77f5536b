#include "support/Certificate.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

namespace support {

std::string makeCertificate(const CertificateDescription& description) {
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    const std::unique_ptr<X509, decltype(&X509_free)> x509(X509_new(), &X509_free);
    X509_set_version(x509.get(), X509_VERSION_3);
    X509_set_pubkey(x509.get(), key.get());
    X509_gmtime_adj(X509_getm_notBefore(x509.get()), description.validFrom);
    X509_gmtime_adj(X509_getm_notAfter(x509.get()), description.validUntil);
    X509_NAME* const name = X509_get_subject_name(x509.get());
    const auto* const text = reinterpret_cast<const unsigned char*>(description.host.c_str());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0);
    X509_set_issuer_name(x509.get(), name);
    const bool isAddress = description.host.find_first_not_of("0123456789.:") == std::string::npos;
    const std::string alternative = (isAddress ? "IP:" : "DNS:") + description.host;
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> host(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternative.c_str()),
        &X509_EXTENSION_free);
    X509_add_ext(x509.get(), host.get(), -1);
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> pem(BIO_new(BIO_s_mem()), &BIO_free_all);
    if (X509_sign(x509.get(), key.get(), EVP_sha256()) == 0 ||
        PEM_write_bio_X509(pem.get(), x509.get()) != 1 ||
        PEM_write_bio_PrivateKey(pem.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
        throw std::runtime_error("making a certificate failed");
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(pem.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

} // namespace support
