// The administrative port: datagrams in turn, through the reader and the handler.
//
// Parts: the datagrams, a segment each; the sender: four bytes of address and two of port.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "commmgr/commmgr.h"
#include "config/announce.h"
#include "core/loop.h"
#include "debug/log.h"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/peer_model.h"

namespace {

constexpr int kAdminSock = 1000;

std::string datagram;
sockaddr_in sender;
std::string replies;
int kills = 0;

sockaddr_in SenderOf(const std::string &text) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(7000);
  if (text.size() >= 4) std::memcpy(&address.sin_addr, text.data(), 4);
  if (text.size() >= 6) std::memcpy(&address.sin_port, text.data() + 4, 2);
  return address;
}

// What the handler must make of the datagram that it was just given.
struct Expected {
  CmdHdr hdr = {};
  const char *rest = nullptr;
};

void CheckEffect(const Expected &seen, int level_before, const std::string &new_replies,
                 int new_kills) {
  const std::string_view command = seen.hdr.Command;
  FUZZ_CHECK(new_kills == (command == "SHUTDOWN" ? 1 : 0));
  if (command != "SETDEBUGLEVEL") FUZZ_CHECK(Debug_Level == level_before);
  FUZZ_CHECK(Debug_Level >= kInfo && Debug_Level <= kOff);
  const auto port = static_cast<std::int16_t>(ntohs(sender.sin_port));
  if (command == "PING" && port > 0)
    FUZZ_CHECK(new_replies == "\t@COMMAND=PONG\t@SEQNUM=" + std::to_string(seen.hdr.SeqNum) + "\n");
  else
    FUZZ_CHECK(new_replies.empty());
}

void Record(const Expected &seen, PeerModel *model) {
  INIT_CHILDINFO child = {};
  if (std::string_view(seen.hdr.Command) == "STARTUPANNOUNCEMENT" &&
      Init_RecvAnnounce(seen.rest, &child) == 1)
    model->Insert(child);
}

void Serve(PeerModel *model) {
  const int level_before = Debug_Level;
  const int kills_before = kills;
  const std::size_t replied = replies.size();
  MainCore_UDPRead(kAdminSock, CommMgr_Admin);

  const Bytes text = Fuzz_Terminated(datagram.substr(0, kCommandSize));
  Expected seen;
  if (!datagram.empty() && sender.sin_addr.s_addr != 0)
    seen.rest = Util_IntCmdHdr(&seen.hdr, text.data());
  CheckEffect(seen, level_before, replies.substr(replied), kills - kills_before);
  Record(seen, model);
  model->Check();
}

}  // namespace

extern "C" {

ssize_t __wrap_recvfrom(int sock, void *buffer, std::size_t size, int, sockaddr *from,
                        socklen_t *from_size) {
  FUZZ_CHECK(sock == kAdminSock && *from_size == sizeof sender);
  std::memcpy(from, &sender, sizeof sender);
  const std::size_t count = std::min(size, datagram.size());
  std::memcpy(buffer, datagram.data(), count);
  return static_cast<ssize_t>(count);
}

ssize_t __wrap_sendto(int sock, const void *data, std::size_t size, int, const sockaddr *to,
                      socklen_t) {
  FUZZ_CHECK(sock == kAdminSock);
  const auto *address = reinterpret_cast<const sockaddr_in *>(to);
  FUZZ_CHECK(address->sin_addr.s_addr == sender.sin_addr.s_addr);
  FUZZ_CHECK(address->sin_port == sender.sin_port);
  replies.append(static_cast<const char *>(data), size);
  return static_cast<ssize_t>(size);
}

// The SHUTDOWN of an input must not end the fuzzer.
int __wrap_kill(pid_t pid, int signal_number) {
  FUZZ_CHECK(pid == 0 && signal_number == SIGUSR1);
  ++kills;
  return 0;
}
}

std::string Fuzz_Run(const Input &input) {
  sender = SenderOf(input[1].Whole());
  replies.clear();
  kills = 0;
  PeerModel model;
  for (const std::string &text : input[0].segments) {
    datagram = text;
    Serve(&model);
  }
  return replies + std::to_string(kills) + Fuzz_PeerText();
}
