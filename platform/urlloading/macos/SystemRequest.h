#pragma once

#include "platform/foundation/Error.h"
#include "platform/urlloading/URLRequest.h"
#include "platform/urlloading/URLResponse.h"

#import <Foundation/Foundation.h>

/// Converts the project's requests to Foundation's, and Foundation's responses to the project's.
namespace platform {

/// Fails if the request cannot be sent. Copies the body.
Result<NSURLRequest*> systemRequest(const URLRequest& request);

HTTPResponseHead headFrom(NSHTTPURLResponse* response);

/// The size of the body that the head announces, or -1 if the bytes that arrive can have another size:
/// without Content-Length, for a HEAD request, a redirect and a content coding.
long long announcedSize(NSHTTPURLResponse* response, NSURLRequest* request);

/// The error of an answer with fewer bytes than announced.
Error truncatedAnswer(const std::optional<URL>& url);
/// The error of an answer that exceeds the request's limit.
Error tooLongAnswer(const URLRequest& request);

} // namespace platform
