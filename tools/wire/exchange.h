// tools/wire/exchange.h: what a relay tells about an exchange: a line of JSON and a transcript.
#ifndef TOOLS_WIRE_EXCHANGE_H
#define TOOLS_WIRE_EXCHANGE_H

#include <chrono>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

using ExchangeClock = std::chrono::steady_clock;

struct Exchange {
  int number = 0;
  bool redacted = false;  // without what users typed, and without the answer
  bool recorded = false;  // the transcript is kept
  const char *end = "";
  std::time_t wall = 0;
  ExchangeClock::time_point begin, connected, asked, first, last;
  std::string line;        // the request up to its newline
  std::string unfinished;  // of the answer: the beginning of its last line,
  std::string tail;        // and its last bytes
  std::size_t request_bytes = 0, answer_bytes = 0, hits = 0, errors = 0;
  std::string transcript;  // so far
};

// An exchange begins that long behind the first.
void Exchange_Begin(Exchange *exchange, std::chrono::milliseconds behind);

// Bytes of the client, and of the answer, have passed.
void Exchange_TakeRequest(Exchange *exchange, std::string_view bytes);
void Exchange_TakeAnswer(Exchange *exchange, std::string_view bytes);

// A step without bytes.
void Exchange_Note(Exchange *exchange, const char *step);

// Whether the transcript is as long as one may be; it has no more steps then.
bool Exchange_IsTooLong(const Exchange &exchange);

std::string Exchange_Json(const Exchange &exchange);

// A request without what users typed: each byte of it is an "x".
std::string Exchange_Redact(std::string_view line);

#endif
