#pragma once

#include "platform/FileDescriptor.h"

#include <string>

namespace support {

/// A named pipe into which processes that a test does not wait for write reports. Each report is written at
/// once and ends with an empty line.
class ReportPipe {
public:
    explicit ReportPipe(const std::string& path);

    /// The next report, without its empty line. Waits for it; a test that gets none within 30 seconds fails.
    std::string next();

private:
    platform::FileDescriptor _pipe;
    std::string _received;
};

} // namespace support
