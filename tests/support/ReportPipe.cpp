#include "support/ReportPipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

namespace support {

ReportPipe::ReportPipe(const std::string& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0666), 0) << path;
    // Open for writing too, so that neither side ever waits for the other to come or sees it leave.
    _pipe = platform::FileDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
}

std::string ReportPipe::next() {
    constexpr int timeoutMilliseconds = 30'000;
    while (true) {
        if (const std::size_t end = _received.find("\n\n"); end != std::string::npos) {
            std::string report = _received.substr(0, end + 1);
            _received.erase(0, end + 2);
            return report;
        }
        pollfd ready = {_pipe.get(), POLLIN, 0};
        std::array<char, 4096> bytes;
        const ssize_t size =
            poll(&ready, 1, timeoutMilliseconds) == 1 ? read(_pipe.get(), bytes.data(), bytes.size()) : 0;
        if (size <= 0) {
            ADD_FAILURE() << "no report came; so far: " << _received;
            return "";
        }
        _received.append(bytes.data(), static_cast<std::size_t>(size));
    }
}

} // namespace support
