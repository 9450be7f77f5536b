#pragma once

#include <thread>

namespace support {

/// A std::jthread, which the C++ library of macOS does not have.
struct JoiningThread : std::thread {
    using std::thread::thread;
    JoiningThread(JoiningThread&&) = default;
    JoiningThread& operator=(JoiningThread&&) = default;
    ~JoiningThread() {
        if (joinable())
            join();
    }
};

} // namespace support
