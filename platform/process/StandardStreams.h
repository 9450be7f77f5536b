#pragma once

namespace platform {

/// Makes the three standard streams safe to use, before anything else is opened. A stream that the caller
/// closed is opened on the null device, so that no file or connection of this process can take its number and
/// receive what is meant for the log. SIGPIPE and SIGXFSZ are ignored: a log or a server that goes away, or a
/// file that may not grow, is an error, not the end.
void prepareStandardStreams();

} // namespace platform
