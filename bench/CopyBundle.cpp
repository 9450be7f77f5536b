#include "platform/files/CopyItem.h"

#include <cerrno>
#include <iostream>

/// Copies a bundle like the tool's cache: copy_bundle SOURCE DESTINATION
int main(int argc, char** argv) {
    const auto copied = argc == 3 ? platform::copyItem({.source = argv[1], .destination = argv[2]})
                                  : platform::Outcome(platform::posixError(EINVAL, "copy", "two paths"));
    if (!copied)
        std::cerr << copied.error().description() << "\n";
    return copied ? 0 : 1;
}
