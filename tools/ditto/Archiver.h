#pragma once

#include <string>

namespace ditto {

/// Makes the zip archive `archive` of the folder `source` (or one file): one entry at the top, named like
/// `source`, with everything that walkTree finds in it. The same content, permissions and times give the same
/// bytes wherever libdeflate and zlib have the same versions, on however many cores. Takes the cores that
/// this process may run on, and 8 MiB of memory or less for each of them, however large the files. What was
/// at `archive` before stays until the new one is whole, and stays when Failure is thrown.
void makeArchive(const std::string& source, const std::string& archive);

} // namespace ditto
