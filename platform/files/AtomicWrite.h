#pragma once

#include "platform/foundation/Error.h"

#include <string>
#include <string_view>

namespace platform {

/// Puts `bytes` at `path` so that readers find what was there before or all of `bytes`, never less, whenever
/// this process is ended. Links at `path` are followed. Any path will do at which a file can be created.
/// Fails on anything at `path` that is no regular file, and leaves no other file behind when it fails. A file
/// that is there keeps its permissions; a new one gets `permissions`, as chmod(2) writes them, less the
/// process's mask.
Outcome writeFileAtomically(const std::string& path, std::string_view bytes, unsigned permissions = 0666);

} // namespace platform
