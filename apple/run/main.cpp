#include "platform/StandardStreams.h"
#include "run/Console.h"
#include "run/RunFlow.h"

#include <unistd.h>

#include <cstdlib>
#include <exception>

int main(int argc, char** argv) {
    platform::prepareStandardStreams();
    try {
        return orvane::run(argc, argv, environ);
    } catch (const std::exception& failure) {
        // An archiver that cannot be started, memory that runs out: no build log profits from a core dump.
        orvane::TWLLog("The run cannot go on: %@\n\n", failure.what());
        return EXIT_FAILURE;
    }
}
