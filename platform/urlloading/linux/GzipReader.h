#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct z_stream_s;

namespace platform {

/// Unpacks gzip streams (RFC 1952) piece by piece as they arrive, in constant memory.
class GzipReader {
public:
    /// Gives false to be given no more.
    using Sink = std::function<bool(std::string_view)>;

    /// Throws std::bad_alloc when there is no memory for it.
    GzipReader();

    /// Gives `sink` what `bytes` unpack to. False when they are no gzip stream, or a damaged one, or when
    /// `sink` wants no more.
    bool read(std::string_view bytes, const Sink& sink);

    /// Whether nothing is missing: every stream that has begun has come to its end.
    bool isComplete() const { return _isComplete; }

private:
    std::string _unpacked;
    std::unique_ptr<z_stream_s, void (*)(z_stream_s*)> _stream;
    bool _isComplete = true;
};

} // namespace platform
