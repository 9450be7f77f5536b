#include "ditto/Archiver.h"
#include "platform/process/Log.h"

#include <algorithm>
#include <array>
#include <exception>
#include <new>
#include <string>
#include <string_view>

namespace {

constexpr int failed = 1;
constexpr int misused = 64; // EX_USAGE of sysexits.h

// Paths in messages can be very long. If the caller reads its pipe only after the program has ended, the
// message must fit into the pipe, which holds 64 KiB.
constexpr std::size_t messageLimit = 8192;

int fail(const std::exception& failure) {
    std::string message = std::string("ditto: ") + failure.what();
    if (message.size() > messageLimit)
        message.replace(messageLimit / 2, message.size() - messageLimit, "[...]");
    platform::writeToStandardError(message + "\n");
    return failed;
}

} // namespace

int main(int argc, char** argv) {
    constexpr std::array<std::string_view, 3> options = {"-c", "-k", "--keepParent"};
    if (argc != 6 || !std::equal(options.begin(), options.end(), argv + 1) || !*argv[4] || !*argv[5]) {
        platform::writeToStandardError("usage: ditto -c -k --keepParent SOURCE ARCHIVE\n");
        return misused;
    }
    try {
        ditto::makeArchive(argv[4], argv[5]);
        return 0;
    } catch (const std::bad_alloc&) {
        // A fixed text, because there may be no memory for another message.
        platform::writeToStandardError("ditto: cannot make the archive: not enough memory\n");
        return failed;
    } catch (const std::exception& failure) {
        return fail(failure);
    }
}
