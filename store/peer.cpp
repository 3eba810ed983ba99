#include "store/peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <string>

namespace {

// A connection that has been reset has no peer.
bool IsConnectedTo(int fd, const sockaddr_in &address) {
  sockaddr_in peer = {};
  socklen_t size = sizeof peer;
  return getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &size) == 0 &&
         peer.sin_family == AF_INET && peer.sin_port == address.sin_port &&
         peer.sin_addr.s_addr == address.sin_addr.s_addr;
}

bool IsAtItsEnd(int fd) {
  char byte = 0;
  return recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

}  // namespace

bool Peer_IsUp(const char *host, unsigned port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (inet_pton(AF_INET, host, &address.sin_addr) != 1) return false;
  std::error_code error;
  for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end;
       !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename();
    int fd = -1;
    std::from_chars(name.data(), name.data() + name.size(), fd);
    if (IsConnectedTo(fd, address) && !IsAtItsEnd(fd)) return true;
  }
  return false;
}
