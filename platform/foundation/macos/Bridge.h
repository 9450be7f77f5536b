#pragma once

#include "platform/foundation/Error.h"

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

/// Converts between Foundation's strings and errors and the project's.
namespace platform {

/// Null when `text` is not UTF-8.
NSString* stringFrom(std::string_view text);

/// UTF-8, with U+FFFD in place of a surrogate without a partner. A null string is empty text.
std::string textFrom(NSString* string);

/// Keeps the domain, the code and, of the user information, texts, numbers, URLs and errors.
Error errorFrom(NSError* error);

} // namespace platform
