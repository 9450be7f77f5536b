#include "platform/urlloading/HTTPTransfer.h"

#include "platform/foundation/Format.h"
#include "platform/foundation/macos/Bridge.h"
#include "platform/urlloading/URLError.h"
#include "platform/urlloading/macos/SystemRequest.h"

#include <functional>
#include <utility>

// NSURLConnection: its delegate runs in the main run loop, and its synchronous call needs no run loop of the
// caller.
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

using namespace platform;

namespace {

using Method = URLProtectionSpace::Method;

Method methodFrom(NSString* method) {
    if ([method isEqual:NSURLAuthenticationMethodServerTrust])
        return Method::serverTrust;
    if ([method isEqual:NSURLAuthenticationMethodClientCertificate])
        return Method::clientCertificate;
    if ([method isEqual:NSURLAuthenticationMethodHTTPDigest])
        return Method::digest;
    if ([method isEqual:NSURLAuthenticationMethodNTLM])
        return Method::ntlm;
    if ([method isEqual:NSURLAuthenticationMethodNegotiate])
        return Method::negotiate;
    return Method::basic;
}

URLProtectionSpace spaceFrom(NSURLProtectionSpace* space) {
    URLProtectionSpace result{.host = textFrom(space.host),
                              .port = static_cast<std::uint16_t>(space.port),
                              .authenticationMethod = methodFrom(space.authenticationMethod),
                              .isProxy = static_cast<bool>(space.isProxy),
                              .serverTrust = std::nullopt};
    if (result.authenticationMethod == Method::serverTrust)
        result.serverTrust = ServerTrust{result.host};
    return result;
}

Error noAnswer(const std::optional<URL>& url) {
    return urlError(URLErrorCode::badServerResponse,
                    format("%@ sent no valid HTTP answer. Check that the address leads to the right server.",
                           shownHost(url)));
}

} // namespace

/// The delegate of one NSURLConnection, which keeps it alive until the exchange ends. Main thread only.
@interface OrvaneConnectionDelegate : NSObject <NSURLConnectionDataDelegate>
/// Both must outlive the exchange.
- (instancetype)initWithRequest:(const URLRequest&)request listener:(HTTPExchangeListener&)listener;
- (void)start:(NSURLRequest*)request;
/// Ends the exchange. The listener is not called any more.
- (void)cancel;
@end

@implementation OrvaneConnectionDelegate {
    const URLRequest* _request;
    HTTPExchangeListener* _listener; // null after the end
    NSURLConnection* _connection;
    BOOL _hasHead;
    long long _announced;
    std::uint64_t _received;
}

- (instancetype)initWithRequest:(const URLRequest&)request listener:(HTTPExchangeListener&)listener {
    if ((self = [super init])) {
        _request = &request;
        _listener = &listener;
        _announced = -1;
    }
    return self;
}

- (void)start:(NSURLRequest*)request {
    _connection = [[NSURLConnection alloc] initWithRequest:request delegate:self startImmediately:NO];
    if (!_connection)
        return [self endWithError:urlError(URLErrorCode::badURL, "The system does not accept the request.")];
    [_connection scheduleInRunLoop:NSRunLoop.mainRunLoop forMode:NSRunLoopCommonModes];
    [_connection start];
}

- (void)cancel {
    _listener = nullptr;
    [_connection cancel];
    _connection = nil;
}

/// `didEnd` may destroy the owner of this object, so the caller must hold a reference.
- (void)endWithError:(const std::optional<Error>&)error {
    HTTPExchangeListener* const listener = _listener;
    [self cancel];
    if (listener)
        [&]() noexcept {
            listener->didEnd(error);
        }();
}

/// Calls the listener. An exception must not pass through Foundation; it ends the exchange.
- (void)notify:(const std::function<void(HTTPExchangeListener&)>&)step {
    if (!_listener)
        return;
    try {
        step(*_listener);
    } catch (const std::exception& exception) {
        [self
            endWithError:urlError(URLErrorCode::unknown, format("The exchange with %@ was ended: %@.",
                                                                shownHost(_request->url), exception.what()))];
    }
}

- (NSURLRequest*)connection:(NSURLConnection*)connection
            willSendRequest:(NSURLRequest*)request
           redirectResponse:(NSURLResponse*)redirect {
    return redirect ? nil : request; // null: the redirect is the answer
}

// The answer is always NO: the system then verifies the server's certificate itself. If the listener refuses,
// the exchange ends before the system looks for credentials.
- (BOOL)connection:(NSURLConnection*)connection
    canAuthenticateAgainstProtectionSpace:(NSURLProtectionSpace*)space {
    [self notify:[&](HTTPExchangeListener& listener) {
        if (!listener.mayContinue(spaceFrom(space)))
            [self cancel];
    }];
    return NO;
}

- (BOOL)connectionShouldUseCredentialStorage:(NSURLConnection*)connection {
    return NO;
}

- (NSCachedURLResponse*)connection:(NSURLConnection*)connection
                 willCacheResponse:(NSCachedURLResponse*)cachedResponse {
    return nil;
}

- (void)connection:(NSURLConnection*)connection didReceiveResponse:(NSURLResponse*)response {
    if (_hasHead || ![response isKindOfClass:NSHTTPURLResponse.class])
        return;
    _hasHead = YES;
    NSHTTPURLResponse* const answer = static_cast<NSHTTPURLResponse*>(response);
    _announced = announcedSize(answer, connection.originalRequest);
    [self notify:[&](HTTPExchangeListener& listener) {
        listener.didReceiveHead(headFrom(answer));
    }];
}

- (void)connection:(NSURLConnection*)connection didReceiveData:(NSData*)data {
    const __strong auto keep = self;
    _received += data.length;
    if (_listener && _received > _request->answerLimit)
        return [keep endWithError:tooLongAnswer(*_request)];
    [keep notify:[&](HTTPExchangeListener& listener) {
        listener.didReceiveBody({static_cast<const char*>(data.bytes), data.length});
    }];
}

- (void)connection:(NSURLConnection*)connection didFailWithError:(NSError*)error {
    const __strong auto keep = self;
    [keep endWithError:errorFrom(error)];
}

- (void)connectionDidFinishLoading:(NSURLConnection*)connection {
    const __strong auto keep = self;
    const bool isTruncated = _announced > 0 && _received < static_cast<std::uint64_t>(_announced);
    if (_listener && !_hasHead)
        return [keep endWithError:noAnswer(_request->url)];
    [keep
        endWithError:_listener && isTruncated ? std::optional(truncatedAnswer(_request->url)) : std::nullopt];
}

@end

namespace platform {
namespace {

class ConnectionTransfer : public HTTPTransfer {
public:
    explicit ConnectionTransfer(OrvaneConnectionDelegate* delegate) : _delegate(delegate) {}
    ~ConnectionTransfer() override { [_delegate cancel]; }
    ConnectionTransfer(const ConnectionTransfer&) = delete;
    ConnectionTransfer& operator=(const ConnectionTransfer&) = delete;

private:
    OrvaneConnectionDelegate* const _delegate;
};

/// The components of a URL, as the system may spell them differently.
NSArray* componentsOf(NSURL* url) {
    // Not NSURL's path, which has no "/" at the end.
    NSString* const path = [NSURLComponents componentsWithURL:url resolvingAgainstBaseURL:YES].path;
    return @[
        url.scheme.lowercaseString ?: @"", url.host.lowercaseString ?: @"", url.port ?: @0,
        path.length > 0 ? path : @"/", url.query ?: @""
    ];
}

} // namespace

std::unique_ptr<HTTPTransfer> startTransfer(const URLRequest& request, HTTPExchangeListener& listener) {
    const auto prepared = systemRequest(request);
    if (!prepared) {
        listener.didEnd(prepared.error());
        return nullptr;
    }
    auto* const delegate = [[OrvaneConnectionDelegate alloc] initWithRequest:request listener:listener];
    auto transfer = std::make_unique<ConnectionTransfer>(delegate);
    [delegate start:*prepared];
    return transfer;
}

URLConnection::SynchronousResult URLConnection::sendSynchronousRequest(const URLRequest& request) {
    @autoreleasepool {
        const auto prepared = systemRequest(request);
        if (!prepared)
            return {.response = {}, .data = {}, .error = prepared.error()};
        NSURLResponse* response = nil;
        NSError* error = nil;
        NSData* const bytes = [NSURLConnection sendSynchronousRequest:*prepared
                                                    returningResponse:&response
                                                                error:&error];
        SynchronousResult result;
        if (error)
            result.error = errorFrom(error);
        if (response && ![componentsOf((*prepared).URL) isEqual:componentsOf(response.URL)]) {
            result.error =
                urlError(URLErrorCode::badServerResponse,
                         format("%@ redirects to another address, which is not supported. Check the "
                                "address.",
                                shownHost(request.url)));
            return result;
        }
        if (![response isKindOfClass:NSHTTPURLResponse.class]) {
            result.error = result.error ? result.error : std::optional(noAnswer(request.url));
            return result;
        }
        auto* const answer = static_cast<NSHTTPURLResponse*>(response);
        result.response = URLResponse{request.url, headFrom(answer)};
        std::string body(static_cast<const char*>(bytes.bytes), bytes.length);
        const long long announced = announcedSize(answer, *prepared);
        if (body.size() > request.answerLimit) {
            result.error = tooLongAnswer(request);
            body.resize(request.answerLimit);
        } else if (!result.error && announced > 0 && body.size() < static_cast<std::uint64_t>(announced)) {
            result.error = truncatedAnswer(request.url);
        }
        result.data = Data(std::move(body));
        return result;
    }
}

} // namespace platform
