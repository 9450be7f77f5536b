#include "platform/urlloading/linux/GzipReader.h"

#include <zlib.h>

#include <new>

namespace platform {

// zlib: added to the window size, it accepts gzip and no other format.
constexpr int gzipFormat = 16;

static void endStream(z_stream_s* stream) {
    inflateEnd(stream);
    delete stream;
}

GzipReader::GzipReader() : _unpacked(std::size_t(64) * 1024, '\0'), _stream(new z_stream_s(), &endStream) {
    if (inflateInit2(_stream.get(), gzipFormat + MAX_WBITS) != Z_OK)
        throw std::bad_alloc();
}

bool GzipReader::read(std::string_view bytes, const Sink& sink) {
    z_stream_s& stream = *_stream;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    // When the input is used up, zlib may still have output. The next call gets it: there is a next call,
    // because the checksum follows the output.
    while (stream.avail_in > 0) {
        // A gzip file may consist of several members.
        if (_isComplete && inflateReset(&stream) != Z_OK)
            return false;
        stream.next_out = reinterpret_cast<Bytef*>(_unpacked.data());
        stream.avail_out = static_cast<uInt>(_unpacked.size());
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END)
            return false;
        sink(std::string_view(_unpacked).substr(0, _unpacked.size() - stream.avail_out));
        _isComplete = result == Z_STREAM_END;
    }
    return true;
}

} // namespace platform
