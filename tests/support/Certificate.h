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

/// A self-signed certificate and its key, PEM. A client accepts it that reads it as an extra trusted one.
std::string makeCertificate(const CertificateDescription& description = {});

} // namespace support
