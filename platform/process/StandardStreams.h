#pragma once

namespace platform {

/// Makes the three standard streams safe to use. Call it first in main. Opens the null device for each
/// closed stream; otherwise a file or connection could get its number and receive the log. Ignores SIGPIPE
/// and SIGXFSZ, so that a closed log or connection and a file-size limit are reported as errors.
void prepareStandardStreams();

} // namespace platform
