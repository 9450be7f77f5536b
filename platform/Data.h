#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// Immutable bytes. Copies share one buffer, so passing Data around never copies what it holds; any number of
/// threads may read it at once.
class Data {
public:
    Data() = default;
    explicit Data(std::string bytes) : _bytes(std::make_shared<const std::string>(std::move(bytes))) {}
    /// Shares `bytes`, which nobody may change while a copy of this Data is in other hands.
    explicit Data(std::shared_ptr<const std::string> bytes) : _bytes(std::move(bytes)) {}

    /// Valid as long as any copy of this Data lives.
    std::string_view bytes() const { return _bytes ? std::string_view(*_bytes) : std::string_view(); }
    std::size_t size() const { return bytes().size(); }
    bool empty() const { return size() == 0; }

    friend bool operator==(const Data& a, const Data& b) { return a.bytes() == b.bytes(); }

private:
    std::shared_ptr<const std::string> _bytes;
};

} // namespace platform
