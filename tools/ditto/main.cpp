#include "ditto/Archiver.h"
#include "ditto/Failure.h"
#include "platform/Log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <new>
#include <string>
#include <string_view>

namespace {

constexpr int failed = 1;
constexpr int misused = 64; // EX_USAGE of sysexits.h

int fail(const std::exception& failure) {
    platform::writeToStandardError(std::string("ditto: ") + failure.what() + "\n");
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
        return fail(ditto::Failure(ENOMEM, "make", argv[5]));
    } catch (const std::exception& failure) {
        return fail(failure);
    }
}
