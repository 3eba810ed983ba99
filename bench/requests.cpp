#include "bench/requests.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

constexpr int kSizeBytes = 4;

std::size_t ReadSize(std::istream *in) {
  std::size_t size = 0;
  for (int i = 0; i < kSizeBytes; ++i)
    size |= static_cast<std::size_t>(static_cast<unsigned char>(in->get())) << (8 * i);
  return size;
}

}  // namespace

std::vector<std::string> Requests_Read(const std::string &file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<std::string> requests;
  while (in.peek() != std::ifstream::traits_type::eof()) {
    std::string request(ReadSize(&in), '\0');
    in.read(request.data(), static_cast<std::streamsize>(request.size()));
    requests.push_back(request);
  }
  if (!requests.empty()) return requests;
  std::fprintf(stderr, "no requests in %s\n", file.c_str());
  std::exit(1);
}

void Requests_Write(const std::string &file, const std::vector<std::string> &requests) {
  std::ofstream out(file, std::ios::binary);
  for (const std::string &request : requests) {
    for (int i = 0; i < kSizeBytes; ++i)
      out.put(static_cast<char>(request.size() >> (8 * i) & 0xff));
    out << request;
  }
}

std::string Requests_Ask(int port, const std::string &request) {
  const int sock = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr = {};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string answer;
  if (connect(sock, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) == 0 &&
      send(sock, request.data(), request.size(), MSG_NOSIGNAL) ==
          static_cast<ssize_t>(request.size())) {
    char buffer[65536];
    for (ssize_t got = 0; (got = recv(sock, buffer, sizeof buffer, 0)) > 0;)
      answer.append(buffer, static_cast<std::size_t>(got));
  }
  close(sock);
  return answer;
}
