#pragma once

#include "TWLWebClient/TWLWebRequest.h"
#include "TWLWebClient/TWLWebResponse.h"

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>

class TWLWebClientTransaction;

inline constexpr std::string_view TWLWebClientErrorDomain = "TWLWebClientErrorDomain";

/// Codes of TWLWebClientErrorDomain. These errors carry no user information.
enum class TWLWebClientError : std::int64_t {
    /// The exchange ended without an error, but with another status than the expected one.
    unexpectedStatus = -1,
    /// The server or a proxy asked for an authentication other than server trust.
    authenticationRequired = -2,
};

/// Marks what may be a client's cache delegate. The client never calls it.
class TWLPersistenceCacheDelegate {
public:
    virtual ~TWLPersistenceCacheDelegate() = default;
};

/// Sends requests that are relative to one base URL, with common headers, over HTTP and HTTPS.
///
/// Failures never throw: each start ends in exactly one callback with a response that says how it went. Any
/// thread may call the operations. Asynchronous exchanges need a running main run loop and outlive the
/// client. A synchronous start, or any other waiting operation, must not be called from a synchronous
/// callback of the same client: it would wait for itself, and ends the process with a message instead.
class TWLWebClient {
public:
    explicit TWLWebClient(platform::URL URL);

    const platform::URL& URL() const;

    TWLPersistenceCacheDelegate* cacheDelegate() const { return _cacheDelegate; }
    /// Not owned.
    void setCacheDelegate(TWLPersistenceCacheDelegate* delegate) { _cacheDelegate = delegate; }

    /// Sets a header for all requests that do not have it themselves, replacing an earlier value. Waits for
    /// the client's queue.
    void addValueForHeader(std::string value, std::string header);

    /// Returns at once. The callback runs on a background thread; it must not be null.
    void startRequest(const std::shared_ptr<TWLWebRequest>& request, const TWLWebCompletion& completion);
    /// Only the status `expectingResponse` is right: any other one becomes the error unexpectedStatus, unless
    /// there is an error already. The callback may be null.
    void startRequest(const std::shared_ptr<TWLWebRequest>& request, std::uint64_t expectingResponse,
                      TWLWebCompletion completion);

    /// Returns after the callback, which runs on the calling thread as a step of the client's queue. Fails
    /// after 15 seconds without progress. The body is always the received bytes.
    void syncStartRequest(const std::shared_ptr<TWLWebRequest>& request, const TWLWebCompletion& completion);
    void syncStartRequest(const std::shared_ptr<TWLWebRequest>& request, std::uint64_t expectingResponse,
                          TWLWebCompletion completion);

    /// Asynchronous, like startRequest: "GET" for a path that is resolved against the base URL.
    void getPath(const std::string& path, TWLWebCompletion completion);
    /// "GET" for exactly this URL.
    void getURL(platform::URL URL, TWLWebCompletion completion);
    /// "POST" with each member as a text field of a multipart form.
    void postFormData(platform::Value::Dictionary formData, std::string toPath, TWLWebCompletion completion);

    /// The transactions in flight. Waits for the client's queue.
    std::set<std::shared_ptr<TWLWebClientTransaction>> connections() const;

    /// Every byte but the ASCII letters, the digits and "-._~" as "%XX" of its UTF-8 form.
    static std::string escapeURLString(std::string_view string);
    /// The JSON object or array in `bytes`; null for anything else.
    static platform::Value decodeJSON(std::string_view bytes);
    /// Not implemented: every call fails an assertion.
    static platform::Data encodeJSON(const platform::Value& object);

private:
    class Core;
    std::shared_ptr<Core> _core;
    TWLPersistenceCacheDelegate* _cacheDelegate = nullptr;
};
