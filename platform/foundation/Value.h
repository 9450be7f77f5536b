#pragma once

#include "platform/foundation/Data.h"

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

/// Documents that are nested deeper are refused, so that recursive functions cannot exhaust the stack.
inline constexpr std::size_t documentDepthLimit = 512;

/// A point in time of a property list: seconds since 2001-01-01 00:00:00 UTC.
struct Date {
    double secondsSince2001 = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

/// "Any object" of property lists, JSON documents, form fields and error information: null, a boolean, an
/// integer, a real number, text (UTF-8), bytes, a date, an array or a dictionary. Dictionaries are sorted by
/// key, so that output is stable.
class Value {
public:
    using Array = std::vector<Value>;
    using Dictionary = std::map<std::string, Value, std::less<>>;

    Value() = default;
    Value(std::nullptr_t) {}
    Value(std::same_as<bool> auto boolean) : _storage(boolean) {}
    Value(std::integral auto integer) requires(!std::same_as<decltype(integer), bool>)
        : _storage(static_cast<std::int64_t>(integer)) {
        if (std::cmp_greater(integer, INT64_MAX))
            _storage = static_cast<std::uint64_t>(integer);
    }
    Value(double real) : _storage(real) {}
    Value(std::string text) : _storage(std::move(text)) {}
    Value(std::string_view text) : _storage(std::string(text)) {}
    Value(const char* text) : _storage(std::string(text)) {}
    /// Null if there is no text.
    Value(const std::optional<std::string>& text) {
        if (text)
            _storage = *text;
    }
    Value(Data data) : _storage(std::move(data)) {}
    Value(Date date) : _storage(date) {}
    Value(Array array) : _storage(std::move(array)) {}
    Value(Dictionary dictionary) : _storage(std::move(dictionary)) {}

    bool isNull() const { return std::holds_alternative<std::monostate>(_storage); }

    /// The value as T (bool, std::int64_t, double, std::string, Data, Date, Array or Dictionary); null if it
    /// has another type. An integer has the type std::uint64_t if it exceeds INT64_MAX, otherwise
    /// std::int64_t. Points into this Value.
    template <class T>
    const T* as() const {
        return std::get_if<T>(&_storage);
    }
    template <class T>
    T* as() {
        return std::get_if<T>(&_storage);
    }

    /// Readable text, the same for equal values. A null value is "(null)"; text is quoted inside arrays
    /// "(...)" and dictionaries "{...}". Long data is shortened.
    std::string description() const;

    friend bool operator==(const Value&, const Value&) = default;

private:
    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Data, Date, Array,
                 Dictionary>
        _storage;
};

/// The member of `dictionary` named `key`; null if there is none. Points into `dictionary`.
inline const Value* find(const Value::Dictionary& dictionary, std::string_view key) {
    const auto member = dictionary.find(key);
    return member == dictionary.end() ? nullptr : &member->second;
}

/// A copy of the member; a null value if there is none.
inline Value objectForKey(const Value::Dictionary& dictionary, std::string_view key) {
    const Value* member = find(dictionary, key);
    return member ? *member : Value();
}

/// The member if it exists and has the type T, otherwise null. Points into `dictionary`.
template <class T>
const T* find(const Value::Dictionary& dictionary, std::string_view key) {
    const Value* member = find(dictionary, key);
    return member ? member->as<T>() : nullptr;
}

/// Reads a boolean as Apple's frameworks do. Text is true if it begins with "Y", "y", "T", "t" or a non-zero
/// digit, after optional blanks, a sign and zeros. Numbers are true unless zero. Other types are false.
bool booleanValue(const Value& value);

/// Reads an integer as Apple's frameworks do: from text, the leading digits after optional blanks and a
/// sign, 0 if there are none; from numbers, the integral part. Other types are 0. Values out of range become
/// the nearest limit.
std::int32_t integerValue(const Value& value);

} // namespace platform
