#include "platform/MappedFiles.h"
#include "platform/StandardStreams.h"
#include "run/Console.h"
#include "run/RunFlow.h"

#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <new>

int main(int argc, char** argv) {
    platform::prepareStandardStreams();
    platform::endWhenAMappedFileIsCutShort();
    try {
        return orvane::run(argc, argv, environ);
    } catch (const std::bad_alloc&) {
        orvane::TWLLog(
            "The run cannot go on: There is not enough memory, which must hold the dSYM's archive as a "
            "whole. End other programs, or raise the limit that 'ulimit -v' shows.\n\n");
        return EXIT_FAILURE;
    } catch (const std::exception& failure) {
        // An archiver that cannot be started, for one: no build log profits from a core dump.
        orvane::TWLLog("The run cannot go on: %@\n\n", failure.what());
        return EXIT_FAILURE;
    }
}
