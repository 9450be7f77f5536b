#pragma once

#include "platform/urlloading/URLConnection.h"

#include <memory>
#include <optional>
#include <string_view>

/// The part of URLConnection that each system implements, together with
/// URLConnection::sendSynchronousRequest.
namespace platform {

/// Receives the events of an exchange. On Linux, most are called inside libcurl's callbacks.
class HTTPExchangeListener {
public:
    virtual ~HTTPExchangeListener() = default;
    virtual void didReceiveHead(HTTPResponseHead head) = 0;
    virtual void didReceiveBody(std::string_view bytes) = 0;
    /// The server or a proxy asks for authentication. Returning false ends the exchange: only didEnd follows,
    /// with an error.
    virtual bool mayContinue(const URLProtectionSpace& space) = 0;
    /// Called once. May destroy the exchange.
    virtual void didEnd(const std::optional<Error>& error) = 0;
};

/// A running asynchronous exchange. Destroying it ends the exchange without a call of the listener.
class HTTPTransfer {
public:
    virtual ~HTTPTransfer() = default;
};

/// Starts an exchange that runs in the main run loop. Call it there. `request` and `listener` must outlive
/// the result. A failure to start is reported by didEnd, possibly before this returns; the result may then be
/// null.
std::unique_ptr<HTTPTransfer> startTransfer(const URLRequest& request, HTTPExchangeListener& listener);

} // namespace platform
