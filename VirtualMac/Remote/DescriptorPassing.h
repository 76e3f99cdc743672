#pragma once

#include <sys/types.h>
#include <cstddef>
#include <span>
#include <string_view>

namespace virtualmac {

/// Sends bytes over a Unix stream socket, and with the first of them a descriptor, of which the
/// peer gets a copy. False: not all were sent.
bool sendWithDescriptor(int socket, std::string_view bytes, int descriptor);

/// Reads what has come, without waiting. Returns the number of bytes, or what `recv` returns when
/// there are none. A descriptor that came with them becomes the caller's; -1: none did.
ssize_t receiveWithDescriptor(int socket, std::span<char> bytes, int& descriptor);

}  // namespace virtualmac
