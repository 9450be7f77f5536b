#pragma once

namespace orvane {

/// Runs the tool. Returns the exit status: 0 if the companion app was opened or an upload was accepted,
/// otherwise 1. A failed check ends the process with status 1. Throws a std::exception for other failures,
/// such as an archiver that cannot be started. `argv` and `environment` end with a null pointer and are read
/// at the start.
int run(int argc, const char* const* argv, const char* const* environment);

} // namespace orvane
