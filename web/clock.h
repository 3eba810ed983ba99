// web/clock.h: the clock of deadlines and measures.
#ifndef WEB_CLOCK_H
#define WEB_CLOCK_H

#include <chrono>

using WebClock = std::chrono::steady_clock;
using WebTime = WebClock::time_point;

inline double Clock_Ms(WebClock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

#endif
