// web/server.h: the server from its first request to its last.
#ifndef WEB_SERVER_H
#define WEB_SERVER_H

#include <string>

#include "web/conf.h"
#include "web/texts.h"

// Listens and serves until SIGTERM or SIGINT, then ends the requests that run.  SIGHUP opens the
// log again.  The exit status; *wrong says why it could not start.
int Server_Run(const WebConf &conf, const Texts &texts, std::string *wrong);

#endif
