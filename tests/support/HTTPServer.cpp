#include "support/HTTPServer.h"

#include <httplib.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace support {
namespace {

// Put before a request's type, so that the server does not take forms apart, and with them the bytes that
// tests want to see.
constexpr std::string_view disguise = "not ";

httplib::Server::HandlerResponse disguiseType(const httplib::Request& request, httplib::Response&) {
    auto& headers = const_cast<httplib::Headers&>(request.headers);
    if (const auto type = headers.find("Content-Type"); type != headers.end())
        type->second.insert(0, disguise);
    return httplib::Server::HandlerResponse::Unhandled;
}

HTTPRequest received(const httplib::Request& request) {
    HTTPRequest result{
        request.method, request.target, {request.headers.begin(), request.headers.end()}, request.body};
    if (const auto type = result.headers.find("Content-Type"); type != result.headers.end())
        type->second.erase(0, disguise.size());
    return result;
}

struct Free {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

Owned<X509> makeCertificate(const HTTPServer::TLS& tls, EVP_PKEY* key) {
    Owned<X509> made(X509_new());
    X509_set_version(made.get(), X509_VERSION_3);
    X509_set_pubkey(made.get(), key);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), tls.validFrom);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), tls.validUntil);
    X509_NAME* const name = X509_get_subject_name(made.get());
    constexpr unsigned char text[] = "a test";
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0);
    X509_set_issuer_name(made.get(), name);
    const Owned<X509_EXTENSION> host(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, tls.host.c_str()));
    X509_add_ext(made.get(), host.get(), -1);
    X509_sign(made.get(), key, EVP_sha256());
    return made;
}

std::unique_ptr<httplib::Server> makeServer(const std::optional<HTTPServer::TLS>& tls,
                                            std::string& certificate) {
    if (!tls)
        return std::make_unique<httplib::Server>();
    const Owned<EVP_PKEY> key(EVP_EC_gen("P-256"));
    const Owned<X509> made = makeCertificate(*tls, key.get());
    const Owned<BIO> pem(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(pem.get(), made.get());
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(pem.get(), &bytes);
    certificate.assign(bytes, static_cast<std::size_t>(size));
    X509_STORE* const clients = tls->demandsClientCertificate ? X509_STORE_new() : nullptr;
    auto server = std::make_unique<httplib::SSLServer>(made.get(), key.get(), clients);
    if (!server->is_valid())
        throw std::runtime_error("the test server does not take its certificate");
    return server;
}

} // namespace

HTTPServer::HTTPServer(Handler handler, const std::optional<TLS>& tls)
    : _server(makeServer(tls, _certificate)) {
    const auto answerTo = [handler = std::move(handler)](const auto& request, auto& response) {
        const HTTPAnswer answer = handler(received(request));
        response.status = answer.status;
        response.headers.insert(answer.headers.begin(), answer.headers.end());
        response.set_content(answer.body, answer.contentType);
    };
    _server->set_keep_alive_max_count(1);
    _server->set_pre_routing_handler(&disguiseType);
    _server->Get(".*", answerTo);
    _server->Post(".*", answerTo);
    const int port = _server->bind_to_any_port("127.0.0.1");
    _origin = (tls ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port);
    _thread = std::thread([this] { _server->listen_after_bind(); });
}

HTTPServer::~HTTPServer() {
    // A stop before the server runs is lost.
    while (!_server->is_running())
        std::this_thread::yield();
    _server->stop();
    _thread.join();
}

std::vector<FormPart> parseForm(const std::string& contentType, const std::string& body) {
    std::vector<FormPart> parts;
    const auto begin = [&](const httplib::MultipartFormData& part) {
        parts.push_back({part.name, part.filename, part.content_type, ""});
        return true;
    };
    const auto extend = [&](const char* bytes, std::size_t count) {
        parts.back().content.append(bytes, count);
        return true;
    };
    httplib::Server server;
    server.Post("/", [&](const auto&, auto&, const auto& read) { read(begin, extend); });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread thread([&] { server.listen_after_bind(); });
    // This parser does not know the preamble, which readers are to skip (RFC 2046 section 5.1.1).
    httplib::Client("127.0.0.1", port).Post("/", body.substr(body.find("--")), contentType);
    server.stop();
    thread.join();
    return parts;
}

} // namespace support
