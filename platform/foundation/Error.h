#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace platform {

inline constexpr std::string_view posixErrorDomain = "NSPOSIXErrorDomain";
/// The key of the user information whose text says what happened, where and why.
inline constexpr std::string_view localizedDescriptionKey = "NSLocalizedDescription";

/// Why an operation failed: a domain, a code that is defined by the domain, and further information.
struct Error {
    std::string domain;
    std::int64_t code = 0;
    Value::Dictionary userInfo;

    /// Error Domain=... Code=... "localized description" UserInfo={the other keys, if any}
    std::string description() const;

    friend bool operator==(const Error&, const Error&) = default;
};

/// The error of a failed system call. `errorNumber` is its errno. The description names the operation (for
/// example "open"), the path and the system's reason.
Error posixError(int errorNumber, std::string_view operation, std::string_view path);

/// An error with a localized description and no other user information.
Error errorWithDescription(std::string_view domain, std::int64_t code, std::string description);

/// The result of an operation: a T or an Error.
template <class T>
class [[nodiscard]] Result {
public:
    /// Implicit, so that an operation can return a value or an error as it is.
    Result(T value) : _content(std::move(value)) {}
    Result(Error error) : _content(std::move(error)) {}

    /// Whether the operation succeeded.
    explicit operator bool() const { return _content.index() == 0; }

    /// Requires that the result is true.
    T& operator*() & { return std::get<0>(_content); }
    const T& operator*() const& { return std::get<0>(_content); }
    T&& operator*() && { return std::get<0>(std::move(_content)); }
    const T* operator->() const { return &std::get<0>(_content); }

    /// Requires that the result is false.
    const Error& error() const { return std::get<1>(_content); }

private:
    std::variant<T, Error> _content;
};

/// The result of an operation that returns no value: success or an Error.
using Outcome = Result<std::monostate>;
inline constexpr std::monostate success;

} // namespace platform
