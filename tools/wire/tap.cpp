// korvo-wire tap: a relay that tells what passes.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <list>
#include <string>
#include <vector>

#include "tools/common/tool.h"
#include "tools/wire/commands.h"
#include "tools/wire/program.h"
#include "tools/wire/transcript.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kHeld = 1 << 20;  // bytes for a reader that is slow; its writer waits
constexpr std::size_t kLine = 65536;    // bytes of a request that are looked at
constexpr std::string_view kHit = "\t@COMMAND=HIT\t";
constexpr std::string_view kError = "\t@COMMAND=ERROR\t";

struct Side {
  int sock = -1;
  std::string out;     // has yet to be sent there
  bool ended = false;  // nothing more comes from there
  bool shut = false;   // and the other side knows it
};

struct Exchange {
  int number = 0;
  Side client, server;
  bool connected = false, over = false;
  const char *end = "closed";
  std::time_t wall = 0;
  Clock::time_point begin, connect, asked, first, last;
  std::string line;        // the request up to its newline
  std::string unfinished;  // of the answer: the beginning of a record, perhaps
  std::size_t request_bytes = 0, answer_bytes = 0, hits = 0, errors = 0;
  std::string record;  // the transcript so far
};

struct Tap {
  sockaddr_in own = {}, forward = {};
  std::string folder;
  bool redact = false;
  int listener = -1;
  int count = 0;
  Clock::time_point begin;
  std::list<Exchange> exchanges;
};

constexpr option kOptions[] = {{"record", required_argument, nullptr, 'r'},
                               {"redact", no_argument, nullptr, 'x'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

bool AskedFor(const Exchange &exchange) { return exchange.line.find('\n') != std::string::npos; }

// What a user typed stands behind the header, and in SCRIPT, where the words to mark are.
std::string Redacted(const std::string &line) {
  std::string text = line;
  bool header = true;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of("\t\r\n", at + 1), text.size());
    const std::string token = text.substr(at, end - at);
    header = header && token.starts_with("\t@") && !token.starts_with("\t@OPER=");
    std::size_t from = header ? end : at;
    if (token.starts_with("\t@SCRIPT=")) from = at + std::strlen("\t@SCRIPT=");
    for (; from < end; ++from)
      if (text[from] != '\t' && text[from] != '\r' && text[from] != '\n') text[from] = 'x';
    at = end;
  }
  return text;
}

std::string Field(const std::string &line, const std::string &name) {
  const std::size_t at = line.find("\t@" + name + "=");
  if (at == std::string::npos) return {};
  const std::size_t begin = at + name.size() + 3;
  return line.substr(begin, line.find_first_of("\t\r\n", begin) - begin);
}

std::string Json(const std::string &text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\')
      out.append("\\").append(1, c);
    else if (c == '\t')
      out += "\\t";
    else if (c == '\n')
      out += "\\n";
    else if (byte < 0x20 || byte >= 0x7f)
      out += Tool_Format("\\u%04x", byte);
    else
      out += c;
  }
  return out + "\"";
}

// Milliseconds from the beginning, or null for what has not been.
std::string Ms(const Exchange &exchange, Clock::time_point time) {
  if (time == Clock::time_point{}) return "null";
  return Tool_Format("%.3f",
                     std::chrono::duration<double, std::milli>(time - exchange.begin).count());
}

void PrintLine(const Tap &tap, const Exchange &exchange) {
  char wall[32];
  std::tm parts = {};
  gmtime_r(&exchange.wall, &parts);
  std::strftime(wall, sizeof wall, "%Y-%m-%dT%H:%M:%SZ", &parts);
  const std::string line = tap.redact ? Redacted(exchange.line) : exchange.line;
  Tool_Print(Tool_Format(
      "{\"time\":\"%s\",\"number\":%d,\"command\":%s,\"group\":%s,\"request\":%s,"
      "\"request_bytes\":%zu,\"answer_bytes\":%zu,\"hits\":%zu,\"errors\":%zu,"
      "\"connected_ms\":%s,\"request_ms\":%s,\"first_ms\":%s,\"end_ms\":%s,\"end\":\"%s\"}\n",
      wall, exchange.number, Json(Field(line, "COMMAND")).c_str(),
      Json(Field(line, "SEARCHGROUP")).c_str(), Json(line).c_str(), exchange.request_bytes,
      exchange.answer_bytes, exchange.hits, exchange.errors, Ms(exchange, exchange.connect).c_str(),
      Ms(exchange, exchange.asked).c_str(), Ms(exchange, exchange.first).c_str(),
      Ms(exchange, exchange.last).c_str(), exchange.end));
}

void Record(const Tap &tap, const Exchange &exchange) {
  if (tap.folder.empty()) return;
  const std::string path = tap.folder + Tool_Format("/%06d.transcript", exchange.number);
  if (!Program_WriteFile(path, exchange.record))
    Tool_Fail(EX_CANTCREAT, "cannot write %s", path.c_str());
}

void Note(const Tap &tap, Exchange *exchange, const std::string &line) {
  if (!tap.folder.empty()) exchange->record += line + "\n";
}

std::size_t Count(std::string_view text, std::string_view word) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(word, at)) != std::string_view::npos; ++at) ++count;
  return count;
}

void NoteRequest(const Tap &tap, Exchange *exchange, const std::string &bytes) {
  exchange->request_bytes += bytes.size();
  const bool before = AskedFor(*exchange);
  // A line of the service is far shorter; what never ends is not kept.
  if (!before && exchange->line.size() < kLine) exchange->line += bytes;
  if (!before && AskedFor(*exchange)) exchange->asked = Clock::now();
  if (!tap.redact)
    Note(tap, exchange, "client > " + Transcript_Quote(bytes));
  else if (!before && AskedFor(*exchange))
    Note(tap, exchange, "client > " + Transcript_Quote(Redacted(exchange->line)));
}

void NoteAnswer(const Tap &tap, Exchange *exchange, const std::string &bytes) {
  if (exchange->answer_bytes == 0) exchange->first = Clock::now();
  exchange->answer_bytes += bytes.size();
  const std::string whole = exchange->unfinished + bytes;
  exchange->hits += Count(whole, kHit) - Count(exchange->unfinished, kHit);
  exchange->errors += Count(whole, kError) - Count(exchange->unfinished, kError);
  exchange->unfinished = whole.substr(whole.size() - std::min(whole.size(), kError.size() - 1));
  Note(tap, exchange,
       tap.redact ? Tool_Format("client < bytes %zu", bytes.size())
                  : "client < " + Transcript_Quote(bytes));
}

void Finish(const Tap &tap, Exchange *exchange, const char *end) {
  if (exchange->over) return;
  exchange->over = true;
  exchange->end = end;
  exchange->last = Clock::now();
  Record(tap, *exchange);
  PrintLine(tap, *exchange);  // who reads it finds the recording
}

void Reset(int sock) {
  const linger now = {1, 0};
  setsockopt(sock, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

void Break(const Tap &tap, Exchange *exchange, const char *end) {
  Reset(exchange->client.sock);
  Reset(exchange->server.sock);
  Note(tap, exchange, "client < reset");
  Finish(tap, exchange, end);
}

// Sends what there is; false: that side is gone.
bool Flush(Side *side) {
  while (!side->out.empty()) {
    const ssize_t sent = send(side->sock, side->out.data(), side->out.size(), MSG_NOSIGNAL);
    if (sent < 0) return errno == EAGAIN || errno == EINTR;
    side->out.erase(0, static_cast<std::size_t>(sent));
  }
  return true;
}

// What has come from one side goes to the other at once.
void Pass(const Tap &tap, Exchange *exchange, Side *from, Side *to) {
  char buffer[65536];
  const ssize_t got = recv(from->sock, buffer, sizeof buffer, 0);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
  const bool asks = from == &exchange->client;
  if (got < 0) return Break(tap, exchange, "reset");
  if (got == 0) {
    from->ended = true;
    Note(tap, exchange, asks ? "client half-closes" : "client < end");
  }
  const std::string bytes(buffer, static_cast<std::size_t>(got));
  to->out += bytes;
  if (exchange->connected && !Flush(to)) return Break(tap, exchange, "reset");
  if (got > 0) asks ? NoteRequest(tap, exchange, bytes) : NoteAnswer(tap, exchange, bytes);
}

void ShutWhatEnded(const Tap &tap, Exchange *exchange) {
  Side *const sides[] = {&exchange->client, &exchange->server};
  for (int i = 0; i < 2; ++i) {
    Side *from = sides[i], *to = sides[1 - i];
    if (!from->ended || from->shut || !to->out.empty() || !exchange->connected) continue;
    from->shut = true;
    shutdown(to->sock, SHUT_WR);
  }
  if (exchange->client.shut && exchange->server.shut) Finish(tap, exchange, "closed");
  // The daemon reads one line and closes behind its answer; a client that stays is let go.
  if (exchange->server.shut && exchange->client.out.empty()) Finish(tap, exchange, "closed");
}

void Connected(const Tap &tap, Exchange *exchange) {
  int err = 0;
  socklen_t size = sizeof err;
  getsockopt(exchange->server.sock, SOL_SOCKET, SO_ERROR, &err, &size);
  if (err != 0) return Break(tap, exchange, "refused");
  exchange->connected = true;
  exchange->connect = Clock::now();
  if (!Flush(&exchange->server)) Break(tap, exchange, "reset");
}

void Prepare(int sock) {
  const int on = 1;
  setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void Accept(Tap *tap) {
  const int sock = accept4(tap->listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (sock < 0) return;
  Exchange &exchange = tap->exchanges.emplace_back();
  exchange.number = ++tap->count;
  exchange.begin = Clock::now();
  exchange.wall = std::time(nullptr);
  exchange.client.sock = sock;
  exchange.server.sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  Prepare(sock);
  Prepare(exchange.server.sock);
  const auto ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(exchange.begin - tap->begin);
  Note(*tap, &exchange,
       Tool_Format("wait %lld ms", static_cast<long long>(ms.count()) % kTranscriptMs));
  if (connect(exchange.server.sock, reinterpret_cast<const sockaddr *>(&tap->forward),
              sizeof tap->forward) == 0)
    return Connected(*tap, &exchange);
  if (errno != EINPROGRESS) Break(*tap, &exchange, "refused");
}

short EventsOf(const Side &side, const Side &other, bool connected) {
  short events = 0;
  if (!side.ended && other.out.size() < kHeld) events |= POLLIN;
  if (!side.out.empty() && connected) events |= POLLOUT;
  return events;
}

void Serve(const Tap &tap, Exchange *exchange, short client, short server) {
  if (!exchange->connected && server != 0) Connected(tap, exchange);
  if (exchange->over) return;
  if ((client & POLLOUT) != 0 && !Flush(&exchange->client)) return Break(tap, exchange, "reset");
  if (exchange->connected && (server & POLLOUT) != 0 && !Flush(&exchange->server))
    return Break(tap, exchange, "reset");
  if ((client & (POLLIN | POLLHUP | POLLERR)) != 0 && !exchange->client.ended)
    Pass(tap, exchange, &exchange->client, &exchange->server);
  if (exchange->over) return;
  if (exchange->connected && (server & (POLLIN | POLLHUP | POLLERR)) != 0 &&
      !exchange->server.ended)
    Pass(tap, exchange, &exchange->server, &exchange->client);
  if (!exchange->over) ShutWhatEnded(tap, exchange);
}

void Sweep(Tap *tap) {
  tap->exchanges.remove_if([](const Exchange &exchange) {
    if (!exchange.over) return false;
    close(exchange.client.sock);
    close(exchange.server.sock);
    return true;
  });
}

void Turn(Tap *tap) {
  std::vector<pollfd> ready = {{tap->listener, POLLIN, 0}};
  for (const Exchange &exchange : tap->exchanges) {
    const short client = EventsOf(exchange.client, exchange.server, true);
    const short server = exchange.connected ? EventsOf(exchange.server, exchange.client, true)
                                            : static_cast<short>(POLLOUT);
    // A side that has ended and has nothing to take is left alone: it would wake this for ever.
    ready.push_back({client == 0 ? -1 : exchange.client.sock, client, 0});
    ready.push_back({server == 0 ? -1 : exchange.server.sock, server, 0});
  }
  if (poll(ready.data(), ready.size(), -1) <= 0) return;
  std::size_t at = 1;
  for (Exchange &exchange : tap->exchanges) {
    Serve(*tap, &exchange, ready[at].revents, ready[at + 1].revents);
    at += 2;
  }
  if (ready[0].revents != 0) Accept(tap);
  Sweep(tap);
}

Tap ReadCommand(int argc, char **argv) {
  Tap tap;
  for (int letter; (letter = Tool_NextOption(argc, argv, ":", kOptions)) != -1;) {
    if (letter == 'r') tap.folder = optarg;
    if (letter == 'x') tap.redact = true;
    Wire_TakeInfo(letter);
  }
  if (argc - optind != 2)
    Tool_Fail(EX_USAGE, "tap takes where to listen and where to forward to, both HOST:PORT");
  tap.own = Wire_Address(argv[optind], "LISTEN");
  tap.forward = Wire_Address(argv[optind + 1], "FORWARD");
  return tap;
}

}  // namespace

int Wire_Tap(int argc, char **argv) {
  Tap tap = ReadCommand(argc, argv);
  const int on = 1;
  tap.listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  setsockopt(tap.listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(tap.listener, reinterpret_cast<const sockaddr *>(&tap.own), sizeof tap.own) != 0 ||
      listen(tap.listener, 128) != 0)
    Tool_Fail(EX_UNAVAILABLE, "cannot listen on port %d: %s", ntohs(tap.own.sin_port),
              std::strerror(errno));
  std::error_code error;
  if (!tap.folder.empty()) std::filesystem::create_directories(tap.folder, error);
  if (error)
    Tool_Fail(EX_CANTCREAT, "cannot make %s: %s", tap.folder.c_str(), error.message().c_str());
  tap.begin = Clock::now();
  for (;;) Turn(&tap);
}
