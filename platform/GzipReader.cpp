#include "platform/GzipReader.h"

#include <zlib.h>

#include <new>

namespace platform {

// Added to the size of the window, it stands for gzip alone.
constexpr int gzipFormat = 16;

void GzipReader::End::operator()(z_stream_s* stream) const {
    inflateEnd(stream);
    delete stream;
}

GzipReader::GzipReader() : _unpacked(std::size_t(64) * 1024, '\0'), _stream(new z_stream_s()) {
    if (inflateInit2(_stream.get(), gzipFormat + MAX_WBITS) != Z_OK)
        throw std::bad_alloc();
}

bool GzipReader::read(std::string_view bytes, const Sink& sink) {
    z_stream_s& stream = *_stream;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    bool mayHoldMore = false;
    while (stream.avail_in > 0 || mayHoldMore) {
        // Another stream may follow one that has ended.
        if (_isComplete && inflateReset(&stream) != Z_OK)
            return false;
        stream.next_out = reinterpret_cast<Bytef*>(_unpacked.data());
        stream.avail_out = static_cast<uInt>(_unpacked.size());
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
            return false;
        if (!sink(std::string_view(_unpacked).substr(0, _unpacked.size() - stream.avail_out)))
            return false;
        _isComplete = result == Z_STREAM_END;
        mayHoldMore = stream.avail_out == 0 && !_isComplete;
    }
    return true;
}

} // namespace platform
