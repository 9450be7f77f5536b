#pragma once

#include "platform/Error.h"

#include <cstddef>
#include <string_view>

/// What stands before the property list library, which trusts its input.
namespace platform {

inline constexpr std::size_t propertyListDepthLimit = 512;

/// The error of a document that is no property list this platform reads: `reason` completes "The property
/// list cannot be read: ".
Error corruptPropertyList(std::string_view reason);

/// Whether a document that starts with "bplist" can be handed to libplist. A success promises: every object
/// that the root reaches lies inside the document, is of a type that the format knows and of a value that the
/// library keeps whole; nothing contains itself or is nested deeper than propertyListDepthLimit; and the
/// tree, which the library unfolds where objects are shared, has at most a million objects and 64 MiB of
/// content.
Outcome checkBinaryPropertyList(std::string_view bytes);

} // namespace platform
