#pragma once

#include <openssl/types.h>

#include <string>

namespace platform {

/// Takes the bytes that the peer sent before it reset the connection of `socket`, and that nobody has read:
/// libcurl drops them if it notices the reset while it sends. If `tls` is not null, it decrypts the bytes and
/// is not connected to the socket after the call. Empty if the connection is not reset.
std::string takeUnreadAnswer(int socket, SSL* tls);

} // namespace platform
