#pragma once

#include <string>

namespace ditto {

/// Makes the zip archive `archive` of the folder or file `source`. It has one top-level entry, named like
/// `source`, and contains everything that walkTree finds. The same contents, permissions and times give the
/// same bytes for the same versions of libdeflate and zlib, on any number of cores. Uses all cores that the
/// process may use, and at most 8 MiB of memory for each, for files of any size. A file at `archive` is
/// replaced when the new archive is complete; it remains if Failure is thrown.
void makeArchive(const std::string& source, const std::string& archive);

} // namespace ditto
