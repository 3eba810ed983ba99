// tools/wire/stage.h: the sockets of those who take part in an exchange.
//
// Everything that waits gives up after the patience of the stage, with a reason.
#ifndef TOOLS_WIRE_STAGE_H
#define TOOLS_WIRE_STAGE_H

#include <netinet/in.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "tools/wire/pattern.h"
#include "tools/wire/transcript.h"

enum class Role { kDaemon, kSearchMgr, kDocMgr, kClient };

// One who takes part; closed by Stage_Close.
struct Actor {
  bool listens = false;
  bool datagrams = false;
  int listener = -1;
  int sock = -1;
  sockaddr_in peer = {};  // whose datagrams count
  std::string came;       // and is not consumed
  bool ended = false;     // nothing more comes on sock
  bool reset = false;
  bool heard = false;  // a line, or the end
};

struct Stage {
  Scene scene;
  Role subject = Role::kDaemon;
  sockaddr_in client_port = {};  // of the program under test
  sockaddr_in admin_port = {};
  std::map<std::string, Actor> actors;
  std::vector<int> claims;  // of ports
  int patience = 0;         // milliseconds
};

sockaddr_in Stage_Loopback(int port);

int Stage_MsSince(std::chrono::steady_clock::time_point begin);

// A port from 1 to 32767 that is free for TCP and UDP and that no other stage of this machine gets;
// 0: there is none.
int Stage_ReservePort(Stage *stage);

// A socket that listens, or -1; port 0 takes one of those above.
int Stage_Listen(Stage *stage, in_addr address, int *port);

// Makes the actor, with its listening socket where it has one.  False: there is no port.
bool Stage_Enter(Stage *stage, const std::string &name);

// Sees to it that the actor has a connection; false with the reason.
bool Stage_Connect(Stage *stage, Actor *actor, std::string *why);

// One who listens hears a line before it answers: a connection that is closed with bytes unread is
// reset, and the answer can be lost.
bool Stage_Send(Stage *stage, Actor *actor, const std::string &bytes, std::string *why);

// Waits for bytes, the end or a reset for at most that time; false when nothing came.
bool Stage_Receive(Actor *actor, int wait_ms);

// Closes the connection, with a reset if that is wanted.
void Stage_Part(Actor *actor, bool reset);

// Listens no more.
void Stage_Leave(Actor *actor);

void Stage_Close(Stage *stage);

#endif
