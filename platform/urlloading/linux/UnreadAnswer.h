#pragma once

#include <openssl/types.h>

#include <string>

namespace platform {

/// Takes the bytes that the peer sent before it reset the connection of `socket`, and that nobody has read.
/// If `tls` is not null, they are decrypted by it. libcurl drops them if it notices the reset while it
/// sends. Afterwards, `tls` is not connected to the socket. Empty if the connection is not reset.
std::string takeUnreadAnswer(int socket, SSL* tls);

} // namespace platform
