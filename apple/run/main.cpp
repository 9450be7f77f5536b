#include "platform/process/Log.h"
#include "platform/process/MappedFiles.h"
#include "platform/process/StandardStreams.h"
#include "run/Console.h"
#include "run/RunFlow.h"

#include <cstdlib>
#include <exception>
#include <new>

namespace {

constexpr const char* noMemory =
    "There is not enough memory, which must hold the dSYM's archive as a whole. End other programs, or "
    "raise the limit that 'ulimit -v' shows.";

/// Logs why the run ends. If there is not enough memory for that, writes a fixed text.
int fail(const char* reason) {
    try {
        orvane::TWLLog("The run cannot go on: %@\n\n", reason);
    } catch (const std::bad_alloc&) {
        platform::writeToStandardError("Orvane: The run cannot go on: There is not enough memory.\n");
    }
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv, char** environment) {
    platform::prepareStandardStreams();
    platform::exitIfAMappedFileIsTruncated();
    try {
        return orvane::run(argc, argv, environment);
    } catch (const std::bad_alloc&) {
        return fail(noMemory);
    } catch (const std::exception& failure) {
        // For example an archiver that cannot be started. A message is more useful in a build log than a
        // core dump.
        return fail(failure.what());
    }
}
