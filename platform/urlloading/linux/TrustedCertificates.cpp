#include "platform/urlloading/linux/TrustedCertificates.h"

#include "platform/files/Files.h"
#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"
#include "platform/urlloading/linux/HTTPFailure.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace platform {
namespace {

// Folders that contain one file per certificate, named by the hash of its subject (c_rehash(1)).
constexpr const char* usualFolders[] = {
    "/etc/ssl/certs",                                 // Alpine, Arch, Debian, openSUSE
    "/etc/pki/ca-trust/extracted/pem/directory-hash", // Fedora 39 and later
    "/etc/ca-certificates/extracted/cadir",           // Arch
};

// PEM files that contain all certificates.
constexpr const char* usualBundles[] = {
    "/etc/ssl/certs/ca-certificates.crt",                // Alpine, Arch, Debian, Gentoo
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", // Fedora, RHEL 7 and later
    "/etc/pki/tls/certs/ca-bundle.crt",                  // RHEL 6
    "/etc/ssl/ca-bundle.pem",                            // openSUSE
    "/etc/ssl/cert.pem",                                 // Alpine, OpenWrt, Void
};

constexpr std::uint64_t bundleLimit = std::uint64_t(64) << 20;

const char* environmentText(const char* variable) {
    const char* const value = std::getenv(variable);
    return value ? value : "";
}

/// OpenSSL would block on a pipe, so readFile, which refuses pipes, reads the file first.
bool loadBundle(X509_STORE* store, const std::string& path) {
    return readFile(path, bundleLimit) && X509_STORE_load_file(store, path.c_str()) == 1;
}

/// An OpenSSL look-up method that loads a bundle only if a certificate is not found in a folder. Parsing a
/// bundle takes 10 ms or more, longer than a whole run; a look-up in a folder reads one file.
int findInBundle(X509_LOOKUP* lookup, X509_LOOKUP_TYPE type, const X509_NAME* name, X509_OBJECT* found) {
    const auto* const bundle = static_cast<const char*>(X509_LOOKUP_get_method_data(lookup));
    if (type != X509_LU_X509 || !bundle)
        return 0;
    X509_LOOKUP_set_method_data(lookup, nullptr);
    X509_STORE* const store = X509_LOOKUP_get_store(lookup);
    // Discard the errors of loading the bundle. If they stayed in OpenSSL's error queue, OpenSSL would take
    // them for a failure of the TLS connection.
    ERR_set_mark();
    const bool isLoaded = loadBundle(store, bundle);
    ERR_pop_to_mark();
    if (!isLoaded)
        return 0;
    X509_STORE_lock(store);
    X509_OBJECT* const match = X509_OBJECT_retrieve_by_subject(X509_STORE_get0_objects(store), type, name);
    X509* const certificate = match ? X509_OBJECT_get0_X509(match) : nullptr;
    const bool isFound = certificate && X509_OBJECT_set1_X509(found, certificate) == 1;
    // The caller expects a borrowed reference. The store keeps its own one.
    if (isFound)
        X509_free(certificate);
    X509_STORE_unlock(store);
    return isFound ? 1 : 0;
}

X509_LOOKUP_METHOD* bundleMethod() {
    static X509_LOOKUP_METHOD* const method = [] {
        X509_LOOKUP_METHOD* const made = X509_LOOKUP_meth_new("Load a bundle when needed");
        if (made)
            X509_LOOKUP_meth_set_get_by_subject(made, &findInBundle);
        return made;
    }();
    return method;
}

const char* firstThatExists(const auto& paths, bool (*exists)(const std::string&)) {
    const auto* const found = std::find_if(std::begin(paths), std::end(paths), exists);
    return found == std::end(paths) ? nullptr : *found;
}

/// Adds the machine's certificates to `store`; false if there are none. OpenSSL asks the folder first.
bool trustMachine(X509_STORE* store) {
    const char* const folder = firstThatExists(usualFolders, &isDirectory);
    const char* const bundle = firstThatExists(usualBundles, &fileExists);
    if (folder && X509_STORE_load_path(store, folder) != 1)
        return false;
    X509_LOOKUP* const lookup = bundle ? X509_STORE_add_lookup(store, bundleMethod()) : nullptr;
    if (lookup) // OpenSSL does not change the data, although its type is not const
        X509_LOOKUP_set_method_data(lookup, const_cast<char*>(bundle));
    if (lookup || !folder)
        return lookup != nullptr;
    const auto names = namesInDirectory(folder);
    return names && !names->empty();
}

} // namespace

Outcome trustCertificateAuthorities(SSL_CTX* context, const std::string& host) {
    X509_STORE* const store = SSL_CTX_get_cert_store(context);
    const std::string file = environmentText("SSL_CERT_FILE");
    const std::string folders = environmentText("SSL_CERT_DIR");
    const auto failure = [&](const std::string& reason) {
        return urlError(URLErrorCode::secureConnectionFailed,
                        format("The secure connection to %@ failed: %@.", host, reason));
    };
    if (!file.empty() && !loadBundle(store, file))
        return failure(format("SSL_CERT_FILE names %@, which contains no readable certificates", file));
    if (!folders.empty() && X509_STORE_load_path(store, folders.c_str()) != 1)
        return failure(format("SSL_CERT_DIR names %@, which cannot be used", folders));
    const bool hasFolder = std::ranges::any_of(
        split(folders, ':'), [](std::string_view folder) { return isDirectory(std::string(folder)); });
    if (!trustMachine(store) && file.empty() && !hasFolder)
        return failure(
            "this machine has no trusted certificates. Install the certificates of your system, or set the "
            "environment variable SSL_CERT_FILE to a file with certificates");
    return success;
}

} // namespace platform
