#pragma once

#include "platform/foundation/Error.h"
#include "platform/urlloading/URLRequest.h"

#import <Foundation/Foundation.h>

namespace platform {

/// The request for Foundation. Shares the memory of the body. Fails if the request cannot be sent.
Result<NSURLRequest*> systemRequest(const URLRequest& request);

} // namespace platform
