#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// Immutable bytes. Copies share one buffer. Any number of threads may read it at once.
class Data {
public:
    Data() = default;
    explicit Data(std::string bytes) : Data(std::make_shared<const std::string>(std::move(bytes))) {}
    /// Shares `bytes`, which must not change while a copy of this Data exists.
    explicit Data(const std::shared_ptr<const std::string>& bytes) : _owner(bytes), _bytes(*bytes) {}
    /// Shares `bytes`, a part of the memory that `owner` keeps alive. The bytes must not change.
    Data(std::shared_ptr<const void> owner, std::string_view bytes)
        : _owner(std::move(owner)), _bytes(bytes) {}

    /// Valid as long as a copy of this Data exists.
    std::string_view bytes() const { return _bytes; }
    std::size_t size() const { return _bytes.size(); }
    bool empty() const { return _bytes.empty(); }

    friend bool operator==(const Data& a, const Data& b) { return a._bytes == b._bytes; }

private:
    std::shared_ptr<const void> _owner;
    std::string_view _bytes;
};

} // namespace platform
