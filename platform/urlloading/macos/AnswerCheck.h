#pragma once

#include "platform/foundation/Error.h"
#include "platform/urlloading/URLRequest.h"
#include "platform/urlloading/URLResponse.h"

#import <Foundation/Foundation.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace platform {

/// Whether both lead to the same resource. The system may spell a URL differently.
bool isSameAddress(NSURL* a, NSURL* b);

/// The error of a request that was redirected.
Error redirectedRequest(const std::optional<URL>& url);

/// Checks the answer of an asynchronous or synchronous exchange.
class AnswerCheck {
public:
    /// `request` must outlive the object. `sent` is the request that the system was given.
    AnswerCheck(const URLRequest& request, NSURLRequest* sent) : _request(request), _sent(sent) {}

    /// The head of the answer. Nothing if `response` is not an HTTP response, is from another address or is
    /// not the first one.
    std::optional<HTTPResponseHead> head(NSURLResponse* response);

    /// The part of the next bytes of the body that belongs to the answer and is within the request's limit.
    std::string_view admitted(NSData* bytes);
    bool exceedsLimit() const { return _exceedsLimit; }

    /// Why the exchange failed, or nothing. `failure` is the system's error, or null. Call it at the end.
    std::optional<Error> failure(NSError* failure) const;

private:
    const URLRequest& _request;
    NSURLRequest* const _sent;
    bool _hasHead = false;
    bool _isRedirected = false;
    bool _exceedsLimit = false;
    /// The size that the head announces, if it is known how many bytes must arrive.
    std::optional<std::uint64_t> _announced;
    std::uint64_t _received = 0;
};

} // namespace platform
