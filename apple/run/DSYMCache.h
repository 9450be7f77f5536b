#pragma once

#include <string>
#include <vector>

/// The cache that the companion app reads.
namespace orvane {

/// The folder for one service endpoint: <caches folder>/<reverse-DNS>.mac/<MD5 of the endpoint>/builds.
/// Creates it. A failure is logged, and the path is returned nevertheless.
std::string cacheDirectory(const std::string& endpoint);

/// Copies each "*.dSYM" of `sourceFolder` (not of its subfolders) into `destinationFolder`, which must exist.
/// Returns the paths of the copies, in the order of the folder's listing. Logs and ends the process with
/// status 1 if the folder cannot be listed or a bundle cannot be copied.
std::vector<std::string> cacheDSYMsAtPath(const std::string& sourceFolder,
                                          const std::string& destinationFolder);

/// A hook without effect: returns false.
bool cacheBuildItems();

} // namespace orvane
