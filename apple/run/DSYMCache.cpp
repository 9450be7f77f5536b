#include "run/DSYMCache.h"

#include "Categories/MD5.h"
#include "platform/files/CopyItem.h"
#include "platform/files/Files.h"
#include "platform/files/UserFolders.h"
#include "platform/foundation/Path.h"
#include "run/Console.h"
#include "run/VendorConfiguration.h"

namespace orvane {

std::string cacheDirectory(const std::string& endpoint) {
    std::string path = platform::cachesFolder();
    for (const std::string& component : {reverseDNS() + ".mac", MD5(endpoint), std::string("builds")})
        path = platform::pathByAppending(path, component);
    if (const auto created = platform::createDirectories(path); !created) {
        NSLog("ERROR: unable to write directory for object store.");
        NSLog("%@", created.error());
        if (!platform::hasHomeFolder())
            NSLog("This user has no home folder: HOME is not set to an absolute path, and the user database "
                  "names none. Set HOME or XDG_CACHE_HOME to a folder that can be written.");
    }
    return path;
}

std::vector<std::string> cacheDSYMsAtPath(const std::string& sourceFolder,
                                          const std::string& destinationFolder) {
    const auto names = platform::namesInDirectory(sourceFolder);
    if (!names) {
        NSLog("Unable to get contents of path %@ \n%@", sourceFolder, names.error());
        exitWithFailure();
    }
    std::vector<std::string> destinations;
    // The products of other targets, such as extensions, have dSYMs of their own in the same folder.
    for (const std::string& name : *names) {
        if (platform::pathExtension(name) != "dSYM")
            continue;
        const std::string& destination =
            destinations.emplace_back(platform::pathByAppending(destinationFolder, name));
        const auto copied = platform::copyItem(
            {.source = platform::pathByAppending(sourceFolder, name), .destination = destination});
        if (!copied) {
            NSLog("Unable to copy dSYM at path %@ to path %@ %@", sourceFolder, destination, copied.error());
            exitWithFailure();
        }
    }
    return destinations;
}

bool cacheBuildItems() {
    return false;
}

} // namespace orvane
