#pragma once

#include "platform/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <string>

namespace support {

/// A named pipe into which processes that a test does not wait for write reports. Each report is written at
/// once and ends with an empty line.
class ReportPipe {
public:
    explicit ReportPipe(const std::string& path) {
        EXPECT_EQ(mkfifo(path.c_str(), 0666), 0) << path;
        // Open for writing too, so that neither side ever waits for the other to come or sees it leave.
        _pipe = platform::FileDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
    }

    /// The next report, without its empty line. Waits for it; a test that gets none within 30 seconds fails.
    std::string next() {
        std::size_t end = 0;
        while ((end = _received.find("\n\n")) == std::string::npos) {
            pollfd ready = {_pipe.get(), POLLIN, 0};
            char bytes[4096];
            const ssize_t size = poll(&ready, 1, 30'000) == 1 ? read(_pipe.get(), bytes, sizeof bytes) : 0;
            if (size <= 0) {
                ADD_FAILURE() << "no report came; so far: " << _received;
                return "";
            }
            _received.append(bytes, static_cast<std::size_t>(size));
        }
        std::string report = _received.substr(0, end + 1);
        _received.erase(0, end + 2);
        return report;
    }

private:
    platform::FileDescriptor _pipe;
    std::string _received;
};

} // namespace support
