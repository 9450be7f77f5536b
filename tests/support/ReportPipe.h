#pragma once

#include "platform/files/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

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
        std::string report;
        pollfd ready = {_pipe.get(), POLLIN, 0};
        for (char c = 0; !report.ends_with("\n\n"); report += c)
            if (poll(&ready, 1, 30'000) != 1 || read(_pipe.get(), &c, 1) != 1) {
                ADD_FAILURE() << "no report came; so far: " << report;
                return "";
            }
        return report.substr(0, report.size() - 1);
    }

private:
    platform::FileDescriptor _pipe;
};

} // namespace support
