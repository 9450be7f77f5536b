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

/// A point in time as property lists hold it: seconds since 2001-01-01 00:00:00 UTC.
struct Date {
    double secondsSince2001 = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

/// "Any object" of property lists, JSON documents, form fields and error information: null, a boolean, an
/// integer, a real number, text (UTF-8), bytes, a date, an array or a dictionary. Dictionaries are ordered by
/// key, so that everything made from one is stable.
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
    /// Null without a text.
    Value(const std::optional<std::string>& text) {
        if (text)
            _storage = *text;
    }
    Value(Data data) : _storage(std::move(data)) {}
    Value(Date date) : _storage(date) {}
    Value(Array array) : _storage(std::move(array)) {}
    Value(Dictionary dictionary) : _storage(std::move(dictionary)) {}

    bool isNull() const { return std::holds_alternative<std::monostate>(_storage); }

    /// The value as T (bool, std::int64_t, double, std::string, Data, Date, Array or Dictionary), or null
    /// when it is of another kind. An integer above INT64_MAX is of the kind std::uint64_t, and no smaller
    /// one is. Borrows from this Value.
    template <class T>
    const T* as() const {
        return std::get_if<T>(&_storage);
    }
    template <class T>
    T* as() {
        return std::get_if<T>(&_storage);
    }

    /// Readable text, stable for equal values: a null value is "(null)", text stands as it is, and inside an
    /// array "(...)" or a dictionary "{...}" text is quoted. Long bytes are shortened.
    std::string description() const;

    friend bool operator==(const Value&, const Value&) = default;

private:
    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Data, Date, Array,
                 Dictionary>
        _storage;
};

/// The member of `dictionary` named `key`, or null when it is not there. Borrows from `dictionary`.
inline const Value* find(const Value::Dictionary& dictionary, std::string_view key) {
    const auto member = dictionary.find(key);
    return member == dictionary.end() ? nullptr : &member->second;
}

/// A copy of the member, or a null value when it is not there.
inline Value objectForKey(const Value::Dictionary& dictionary, std::string_view key) {
    const Value* member = find(dictionary, key);
    return member ? *member : Value();
}

/// The member when it is there and of kind T, else null. Borrows from `dictionary`.
template <class T>
const T* find(const Value::Dictionary& dictionary, std::string_view key) {
    const Value* member = find(dictionary, key);
    return member ? member->as<T>() : nullptr;
}

/// The platform's boolean reading: text is true for a leading "Y", "y", "T", "t" or a non-zero digit, after
/// optional blanks, a sign and zeros; numbers are true unless zero; every other kind is false.
bool booleanValue(const Value& value);

/// The platform's integer reading: of text, blanks skipped, an optional sign and leading digits, 0 without
/// digits; numbers are cut to whole ones; every other kind is 0. What is out of range becomes the nearest
/// end.
std::int32_t integerValue(const Value& value);

} // namespace platform
