#include "VirtualMac/Remote/DescriptorPassing.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

namespace {

/// Room for one descriptor beside a message's bytes.
struct alignas(cmsghdr) Attachment {
  std::array<char, CMSG_SPACE(sizeof(int))> bytes{};
};

msghdr messageOf(iovec& bytes, Attachment& attachment) {
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = attachment.bytes.data();
  message.msg_controllen = static_cast<decltype(message.msg_controllen)>(attachment.bytes.size());
  return message;
}

}  // namespace

bool sendWithDescriptor(int socket, std::string_view bytes, int descriptor) {
  iovec part{.iov_base = const_cast<char*>(bytes.data()), .iov_len = bytes.size()};
  Attachment attachment;
  msghdr message = messageOf(part, attachment);
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = static_cast<decltype(header->cmsg_len)>(CMSG_LEN(sizeof descriptor));
  std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
  ssize_t sent = 0;
  do {
    sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(bytes.size());
}

ssize_t receiveWithDescriptor(int socket, std::span<char> bytes, int& descriptor) {
  descriptor = -1;
  iovec part{.iov_base = bytes.data(), .iov_len = bytes.size()};
  Attachment attachment;
  msghdr message = messageOf(part, attachment);
  const ssize_t got = ::recvmsg(socket, &message, MSG_DONTWAIT);
  const cmsghdr* const header = got > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
  if (header == nullptr || header->cmsg_type != SCM_RIGHTS) return got;
  std::memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
  hostsystem::closeOnExec(descriptor);
  return got;
}

}  // namespace virtualmac
