#pragma once

#include <string>

namespace support {

/// What a server certificate says. Times are in seconds from now.
struct CertificateDescription {
    /// An IP address or a host name; the only one that the certificate is for.
    std::string host = "127.0.0.1";
    long validFrom = -60;
    long validUntil = 3600;
};

/// A self-signed certificate with its key, both PEM. A client that reads `certificate` as an extra trusted
/// one accepts it.
struct Certificate {
    std::string certificate;
    std::string key;
};

Certificate makeCertificate(const CertificateDescription& description = {});

} // namespace support
