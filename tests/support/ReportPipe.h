#pragma once

#include "platform/files/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace support {

/// A named pipe for the reports of processes that the test does not wait for. Each report is one write and
/// ends with an empty line.
class ReportPipe {
public:
    explicit ReportPipe(const std::string& path) {
        EXPECT_EQ(mkfifo(path.c_str(), 0666), 0) << path;
        // Opened for writing too, so that neither side blocks and the pipe has no end of file.
        _pipe = platform::FileDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
    }

    /// Waits for the next report and returns it without the empty line. Fails the test after 30 seconds.
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
