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

/// Codes of TWLWebClientErrorDomain. These errors have no user information.
enum class TWLWebClientError : std::int64_t {
    /// The exchange succeeded, but its status is not the expected one.
    unexpectedStatus = -1,
    /// The server or a proxy asked for an authentication other than server trust.
    authenticationRequired = -2,
};

/// The type of a client's cache delegate. The client never calls it.
class TWLPersistenceCacheDelegate {
public:
    virtual ~TWLPersistenceCacheDelegate() = default;
};

/// Sends HTTP and HTTPS requests relative to one base URL, with common headers.
///
/// Any thread may call the operations. Failures do not throw: each started request ends with exactly one
/// callback, whose response contains the error. Asynchronous requests need a running main run loop and may
/// outlive the client. A callback of syncStartRequest must not call operations of its client that wait: they
/// would deadlock, so they abort the process with a message.
class TWLWebClient {
public:
    /// `labelPrefix` is the start of the queues' labels: the vendor's reverse-DNS name.
    explicit TWLWebClient(platform::URL URL, std::string labelPrefix = "TWLWebClient");

    const platform::URL& URL() const;

    TWLPersistenceCacheDelegate* cacheDelegate() const { return _cacheDelegate; }
    /// Not owned.
    void setCacheDelegate(TWLPersistenceCacheDelegate* delegate) { _cacheDelegate = delegate; }

    /// Sets a header for all requests that do not set it themselves, replacing an earlier value. Waits for
    /// the client's queue.
    void addValueForHeader(std::string value, std::string header);

    /// Returns at once. The callback runs on a background thread; it must not be null.
    void startRequest(const std::shared_ptr<TWLWebRequest>& request, const TWLWebCompletion& completion);
    /// Reports any other status than `expectingResponse` as the error unexpectedStatus, unless there is
    /// another error. The callback may be null.
    void startRequest(const std::shared_ptr<TWLWebRequest>& request, std::uint64_t expectingResponse,
                      TWLWebCompletion completion);

    /// Waits for the end of the exchange. The callback runs on the calling thread, as a step of the client's
    /// queue, before this returns. The response's body is the received bytes, not decoded.
    void syncStartRequest(const std::shared_ptr<TWLWebRequest>& request, const TWLWebCompletion& completion);
    void syncStartRequest(const std::shared_ptr<TWLWebRequest>& request, std::uint64_t expectingResponse,
                          TWLWebCompletion completion);

    /// Starts a "GET" of a path relative to the base URL. Asynchronous, like startRequest.
    void getPath(const std::string& path, TWLWebCompletion completion);
    /// Starts a "GET" of this URL.
    void getURL(platform::URL URL, TWLWebCompletion completion);
    /// Starts a "POST" of a multipart form with each member as a text field.
    void postFormData(platform::Value::Dictionary formData, std::string toPath, TWLWebCompletion completion);

    /// The running transactions. Waits for the client's queue.
    std::set<std::shared_ptr<TWLWebClientTransaction>> connections() const;

    /// Same as platform::percentEscape.
    static std::string escapeURLString(std::string_view string);
    /// The JSON object or array in `bytes`; null if there is none.
    static platform::Value decodeJSON(std::string_view bytes);
    /// Not implemented: aborts the process by an assertion.
    static platform::Data encodeJSON(const platform::Value& object);

private:
    class Core;
    std::shared_ptr<Core> _core;
    TWLPersistenceCacheDelegate* _cacheDelegate = nullptr;
};
