#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct z_stream_s;

namespace platform {

/// Decompresses gzip streams (RFC 1952) in pieces of any size and in constant memory.
class GzipReader {
public:
    /// Receives decompressed bytes.
    using Sink = std::function<void(std::string_view)>;

    /// Throws std::bad_alloc.
    GzipReader();

    /// Decompresses `bytes` into `sink`. False if they are not valid gzip data.
    bool read(std::string_view bytes, const Sink& sink);

    /// Whether every stream that has begun is complete.
    bool isComplete() const { return _isComplete; }

private:
    std::string _unpacked;
    std::unique_ptr<z_stream_s, void (*)(z_stream_s*)> _stream;
    bool _isComplete = true;
};

} // namespace platform
