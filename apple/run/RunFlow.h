#pragma once

namespace orvane {

/// One run of the tool, from the version line to the exit status: 0 when the companion app was opened or an
/// upload was accepted, 1 otherwise. Failed checks end the process from within; what no step can deal with,
/// such as an archiver that cannot be started, is thrown (std::exception). `argv` and `environment` end with
/// a null pointer and are read once, at the start.
int run(int argc, const char* const* argv, const char* const* environment);

} // namespace orvane
