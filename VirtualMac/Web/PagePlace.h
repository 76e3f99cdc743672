#pragma once

#include <expected>
#include <optional>
#include <string>

#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Web/Descriptor.h"

namespace virtualmac {

/// Port of a machine's page unless another is named.
inline constexpr int usualPagePort = 7613;

/// A page's socket, which listens on this computer only, and its port.
struct PagePlace {
  Descriptor socket;
  int port = 0;
};

/// Opens a port for a page; 0: any that is free. The error says what is wrong with the port, and
/// what to do.
std::expected<PagePlace, std::string> openPagePlace(int port);

/// Waits until no other page belongs to the root, for a page may outlive its machine by a moment.
/// The page holds the descriptor for as long as it is there. Error: one was there all the time.
std::expected<Descriptor, std::string> claimPage(const RootDirectory& root, double seconds);

/// The word that a page's questions are allowed by. It is kept in the root, so that a link serves
/// for the next machine there too; the first call makes it. Error: it cannot be kept.
std::expected<std::string, std::string> pageToken(const RootDirectory& root);

/// The port of a listening socket; none: it is no such socket.
std::optional<int> portOf(const Descriptor& socket);

/// The address that a person opens: `http://127.0.0.1:7613/#token=...`.
std::string pageLink(int port, const std::string& token);

}  // namespace virtualmac
