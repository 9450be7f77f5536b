#include "platform/urlloading/linux/HTTPHandle.h"

#include "platform/foundation/ASCII.h"
#include "platform/foundation/Format.h"

#include <openssl/crypto.h>

namespace platform {

// Large buffers need fewer turns of the transfer loop for a long body.
constexpr long bufferSize = 128L * 1024;

/// The libraries' global set-up, which is needed once before any other call.
static CURLcode setUpLibraries() {
    // The system frees the memory of a process that ends. OpenSSL takes longer.
    static const bool isTLSReady = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
    static const CURLcode result = isTLSReady ? curl_global_init(CURL_GLOBAL_DEFAULT) : CURLE_FAILED_INIT;
    return result;
}

HTTPHandle::HTTPHandle(const URLRequest& request)
    : _result(setUpLibraries()), _easy(curl_easy_init(), &curl_easy_cleanup) {
    if (!_easy && _result == CURLE_OK)
        _result = CURLE_FAILED_INIT;
    setTransport();
    setRequest(request);
    setHeaders(request.headers);
}

void HTTPHandle::setTransport() {
    set(CURLOPT_NOSIGNAL, 1L);
    // When the exchange ends, do not wait for a resolver thread that hangs.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    // Over HTTP/2, libcurl drops an answer that the server sends before it has read the whole body.
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    // The exchange loads the trusted certificates for each connection.
    set(CURLOPT_CA_CACHE_TIMEOUT, 0L);
    for (const CURLoption option :
         {CURLOPT_CAINFO, CURLOPT_CAPATH, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH})
        set(option, static_cast<const char*>(nullptr));
    // Gzip is decoded here, because libcurl does not report truncated gzip data.
    set(CURLOPT_ACCEPT_ENCODING, "gzip");
    set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    // No connection is shared, so the bytes moved through the sockets measure this exchange alone.
    set(CURLOPT_FRESH_CONNECT, 1L);
    set(CURLOPT_FORBID_REUSE, 1L);
    set(CURLOPT_UPLOAD_BUFFERSIZE, bufferSize);
    set(CURLOPT_BUFFERSIZE, bufferSize);
    set(CURLOPT_ERRORBUFFER, static_cast<char*>(_reason));
}

void HTTPHandle::setRequest(const URLRequest& request) {
    set(CURLOPT_URL, request.url->absoluteString().c_str());
    set(CURLOPT_PATH_AS_IS, 1L);
    // Do not send a name and password that the URL contains.
    set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_NONE));
    const std::string& method = request.method;
    if (method == "HEAD")
        return set(CURLOPT_NOBODY, 1L);
    if (request.body || method == "POST" || method == "PUT" || method == "PATCH") {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body ? request.body->size() : 0));
    }
    set(CURLOPT_CUSTOMREQUEST, method.c_str());
}

void HTTPHandle::setHeaders(const HTTPHeaders& headers) {
    // "Name:" removes a header that libcurl would add; "Name;" sends one with an empty value. With "Expect",
    // libcurl would wait a second for the permission of a server that does not know the header.
    if (!headers.contains("Expect"))
        addHeaderLine("Expect:");
    if (!headers.contains("Content-Type"))
        addHeaderLine("Content-Type:");
    for (const auto& [name, value] : headers) {
        if (equalIgnoringCase(name, "Content-Length") || equalIgnoringCase(name, "Transfer-Encoding"))
            continue;
        const std::string_view text = trimmed(value, httpBlanks);
        addHeaderLine(text.empty() ? name + ";" : format("%@: %@", name, text));
    }
    set(CURLOPT_HTTPHEADER, _headerLines.get());
}

void HTTPHandle::addHeaderLine(const std::string& line) {
    if (curl_slist* const longer = curl_slist_append(_headerLines.get(), line.c_str())) {
        static_cast<void>(_headerLines.release());
        _headerLines.reset(longer);
    } else {
        _result = CURLE_OUT_OF_MEMORY;
    }
}

} // namespace platform
