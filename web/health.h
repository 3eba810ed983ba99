// web/health.h: whether the daemon answers, by a PING to its admin port.
#ifndef WEB_HEALTH_H
#define WEB_HEALTH_H

#include "web/conf.h"

// Sends a PING from a port that the daemon can answer to.  The socket, which becomes readable with
// the answer, or -1.
int Health_Ask(const WebConf &conf);

// The answer has come.
bool Health_IsAnswered(int sock);

#endif
