#include "VirtualMac/Web/PagePlace.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Server/RandomName.h"

namespace virtualmac {

namespace {

constexpr std::size_t tokenBytes = 16;

std::string reason(int error) { return std::system_category().message(error); }

std::string portProblem(int port, int error) {
  const std::string name = "port " + std::to_string(port);
  const std::string others = "choose another with --web=PORT, or --web=0 for any that is free";
  if (error == EADDRINUSE) return name + " is taken; " + others;
  if (error == EACCES)
    return name +
           " is for privileged programs; choose one from 1024 to 65535 with --web=PORT, or "
           "--web=0 for any that is free";
  return name + " cannot be opened: " + reason(error) + "; " + others;
}

/// The file's token; empty: the file holds none.
std::string tokenIn(int file) {
  std::array<char, 2 * tokenBytes> text{};
  const ssize_t got = ::pread(file, text.data(), text.size(), 0);
  const std::string token(text.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return token.size() == text.size() &&
                 token.find_first_not_of("0123456789abcdef") == std::string::npos
             ? token
             : std::string();
}

}  // namespace

std::expected<PagePlace, std::string> openPagePlace(int port) {
  Descriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
  if (socket.get() < 0) return std::unexpected(portProblem(port, errno));
  hostsystem::closeOnExec(socket.get());
  // A port whose last connections are still being forgotten is free; one that is listened on is
  // not.
  const int yes = 1;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the sockets' own way
  const auto* any = reinterpret_cast<const sockaddr*>(&address);
  if (::bind(socket.get(), any, sizeof address) != 0 || ::listen(socket.get(), SOMAXCONN) != 0)
    return std::unexpected(portProblem(port, errno));
  const int opened = portOf(socket).value_or(port);
  return PagePlace{std::move(socket), opened};
}

std::optional<int> portOf(const Descriptor& socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the sockets' own way
  if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
    return std::nullopt;
  return ntohs(address.sin_port);
}

std::expected<Descriptor, std::string> claimPage(const RootDirectory& root, double seconds) {
  using Clock = std::chrono::steady_clock;
  constexpr auto pause = std::chrono::milliseconds(10);
  const auto begun = Clock::now();
  Descriptor claim(::open((root.path + "/page.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (claim.get() < 0) return std::unexpected(root.path + ": " + reason(errno));
  while (::flock(claim.get(), LOCK_EX | LOCK_NB) != 0) {
    if (std::chrono::duration<double>(Clock::now() - begun).count() > seconds)
      return std::unexpected("another page is still there for " + root.path);
    std::this_thread::sleep_for(pause);
  }
  return claim;
}

std::expected<std::string, std::string> pageToken(const RootDirectory& root) {
  const std::string path = root.path + "/page.token";
  const Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (file.get() < 0) return std::unexpected(path + ": " + reason(errno));
  // One that others could read is no secret any more.
  struct stat facts{};
  const bool isSecret = ::fstat(file.get(), &facts) == 0 && facts.st_uid == ::geteuid() &&
                        (facts.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  std::string token = isSecret ? tokenIn(file.get()) : std::string();
  if (!token.empty()) return token;
  const auto made = randomName(tokenBytes);
  if (!made) return std::unexpected("the system gives no random bytes");
  token = *made;
  if (::fchmod(file.get(), S_IRUSR | S_IWUSR) != 0 || ::ftruncate(file.get(), 0) != 0 ||
      ::pwrite(file.get(), token.data(), token.size(), 0) != static_cast<ssize_t>(token.size()))
    return std::unexpected(path + " cannot be written: " + reason(errno));
  return token;
}

std::string pageLink(int port, const std::string& token) {
  return "http://127.0.0.1:" + std::to_string(port) + "/#token=" + token;
}

}  // namespace virtualmac
