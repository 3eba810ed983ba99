// A program with workers.  A connection names what its worker does; the datagram TREE changes what
// workers work on.
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>

#include "core/admin.h"
#include "core/program.h"
#include "core/workers.h"
#include "debug/log.h"

namespace {

int tree = 0;

void Say(int sock, const std::string &text) {
  Sock_SendTCP(sock, text.data(), static_cast<int>(text.size()), 0);
}

// Until the reader takes no more.
void SendMuch(int sock) {
  const std::string much(1 << 20, 'm');
  while (Sock_SendTCP(sock, much.data(), 1 << 20, 0) == kSockOk) {
  }
}

void Client(int, int sock, const char *text) {
  const std::string word(text, std::strcspn(text, "\n"));
  if (word == "pid") Say(sock, std::to_string(getpid()));
  if (word == "tree") Say(sock, std::to_string(tree));
  if (word == "level") Say(sock, std::to_string(Debug_Level));
  if (word == "leave") _exit(3);
  if (word == "kill") kill(getpid(), SIGKILL);
  if (word == "much") SendMuch(sock);
  if (word == "last") MainCore_EndAfter(60000, "a last word");
  if (word == "late") {
    MainCore_EndAfter(100, "a last word");
    for (;;) pause();
  }
  if (word == "hang") {
    Say(sock, std::to_string(getpid()));
    for (;;) pause();
  }
}

void Admin(int sock, SockAddr *sender, const char *buf, int len) {
  CmdHdr hdr;
  const char *rest = nullptr;
  if (Admin_Read(sender, buf, len, &hdr, &rest) != 1) return;
  if (std::strcmp(hdr.Command, "TREE") == 0) {
    ++tree;
    MainCore_RenewWorkers();
  } else if (Admin_Common(sock, sender, &hdr, rest) != 1) {
    Admin_Unknown(&hdr);
  }
}

}  // namespace

char ProgramType() { return 'C'; }
int Program_Startup(const ConfigInfo *, const DBInfo *) { return MainCore_SetWorkers(); }
MainCore_LoopFn Program_Loop() { return MainCore_WorkerLoop; }
MainCore_ClientFn Program_ClientHandler() { return Client; }
MainCore_AdminFn Program_AdminHandler() { return Admin; }
