#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace platform {

inline constexpr std::string_view posixErrorDomain = "NSPOSIXErrorDomain";
/// The user-information key whose text says what happened, where and why.
inline constexpr std::string_view localizedDescriptionKey = "NSLocalizedDescription";

/// Why an operation failed: a domain, a code that has its meaning within the domain, and what else is known.
struct Error {
    std::string domain;
    std::int64_t code = 0;
    Value::Dictionary userInfo;

    /// Error Domain=... Code=... "the localized description" UserInfo={the rest, when there is any}
    std::string description() const;

    friend bool operator==(const Error&, const Error&) = default;
};

/// The error of a failed system call: `errorNumber` is its errno, and the description names the operation (as
/// in "open"), the path and the system's reason.
Error posixError(int errorNumber, std::string_view operation, std::string_view path);

/// An error whose user information is one sentence.
Error errorWithDescription(std::string_view domain, std::int64_t code, std::string description);

/// What an operation gives: a T, or the Error that kept it from giving one.
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : _content(std::move(value)) {}
    Result(Error error) : _content(std::move(error)) {}

    explicit operator bool() const { return _content.index() == 0; }

    /// Only when the result is true.
    T& operator*() & { return std::get<0>(_content); }
    const T& operator*() const& { return std::get<0>(_content); }
    T&& operator*() && { return std::get<0>(std::move(_content)); }
    const T* operator->() const { return &std::get<0>(_content); }

    /// Only when the result is false.
    const Error& error() const { return std::get<1>(_content); }

private:
    std::variant<T, Error> _content;
};

/// The result of an operation that gives nothing: success, or an Error.
using Outcome = Result<std::monostate>;
inline constexpr std::monostate success;

} // namespace platform
