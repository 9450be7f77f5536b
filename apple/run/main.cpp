#include "platform/StandardStreams.h"
#include "run/RunFlow.h"

#include <unistd.h>

int main(int argc, char** argv) {
    platform::prepareStandardStreams();
    return orvane::run(argc, argv, environ);
}
