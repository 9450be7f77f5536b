#include "platform/urlloading/HTTPTransfer.h"

#include "platform/foundation/Format.h"
#include "platform/foundation/macos/Bridge.h"
#include "platform/urlloading/URLError.h"
#include "platform/urlloading/macos/AnswerCheck.h"
#include "platform/urlloading/macos/SystemRequest.h"

#include <functional>
#include <utility>

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

// NSURLConnection is deprecated. It is used because its synchronous call needs no run loop of the caller and
// its delegate runs in the main run loop.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
NSURLConnection* newConnection(NSURLRequest* request, id<NSURLConnectionDataDelegate> delegate) {
    return [[NSURLConnection alloc] initWithRequest:request delegate:delegate startImmediately:NO];
}
NSData* sendAndWait(NSURLRequest* request, NSURLResponse** response, NSError** error) {
    return [NSURLConnection sendSynchronousRequest:request returningResponse:response error:error];
}
#pragma clang diagnostic pop

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
    std::optional<AnswerCheck> _answer;
}

- (instancetype)initWithRequest:(const URLRequest&)request listener:(HTTPExchangeListener&)listener {
    if ((self = [super init])) {
        _request = &request;
        _listener = &listener;
    }
    return self;
}

- (void)start:(NSURLRequest*)request {
    _answer.emplace(*_request, request);
    _connection = newConnection(request, self);
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
    const __strong auto keep = self;
    bool mayContinue = true;
    [keep notify:[&](HTTPExchangeListener& listener) {
        mayContinue = listener.mayContinue(spaceFrom(space));
    }];
    if (!mayContinue)
        [keep endWithError:urlError(URLErrorCode::unknown,
                                    format("The exchange with %@ was ended.", shownHost(_request->url)))];
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
    if (auto head = _answer->head(response))
        [self notify:[&](HTTPExchangeListener& listener) {
            listener.didReceiveHead(*std::move(head));
        }];
}

- (void)connection:(NSURLConnection*)connection didReceiveData:(NSData*)data {
    const __strong auto keep = self;
    if (const std::string_view bytes = _answer->admitted(data); !bytes.empty())
        [keep notify:[&](HTTPExchangeListener& listener) {
            listener.didReceiveBody(bytes);
        }];
    if (_answer->exceedsLimit())
        [keep endWithError:_answer->failure(nil)];
}

- (void)connection:(NSURLConnection*)connection didFailWithError:(NSError*)error {
    const __strong auto keep = self;
    [keep endWithError:_answer->failure(error)];
}

- (void)connectionDidFinishLoading:(NSURLConnection*)connection {
    const __strong auto keep = self;
    [keep endWithError:_answer->failure(nil)];
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
        NSData* const bytes = sendAndWait(*prepared, &response, &error);
        AnswerCheck answer(request, *prepared);
        SynchronousResult result;
        if (auto head = answer.head(response)) {
            result.response = URLResponse{request.url, *std::move(head)};
            result.data = Data(std::string(answer.admitted(bytes)));
        }
        result.error = answer.failure(error);
        return result;
    }
}

} // namespace platform
