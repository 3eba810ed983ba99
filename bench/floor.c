// The floor that the daemon is held against: for one exchange of the benchmark it makes the system
// calls that the exchange needs, in the daemon's order and with the daemon's bytes, and does
// nothing else.  No log, no parser beyond the ends of lines, no macro: a document costs one memcpy
// of the text that the daemon's macro makes of it.
//
// korvo-floor PORT ADMINPORT SEARCHPORT DOCPORT BASE
//   SEARCHPORT 0: a GETDOC; DOCPORT 0 as well: a command that is read and not answered.
//   BASE.mo, BASE.hdr and BASE.tail are read for every request, as the daemon reads them;
//   BASE.request, which a Document Manager is sent, and BASE.page, what becomes of its answer,
//   once.
//
// A failed call ends its process: the client notices by the answer.
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

enum { kCommand = 4096, kMessage = 40960, kFrame = 10238, kBuffer = 32768, kBacklog = 5 };

static struct sockaddr_in search_addr, doc_addr;
static const char *macro_name, *header_name, *tail_name;
static char request[2048], page[kMessage];
static size_t request_size, page_size;

// Two buffers serve the whole exchange, so that a child touches few pages.
static _Alignas(4096) char in[kMessage];
static _Alignas(4096) char out[kMessage];

static void check(int good) {
  if (!good) _exit(1);
}

static int tcp_socket(void) {
  const int sock = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), on = 1, size = kBuffer;
  check(sock >= 0);
  check(setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0);
  check(setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) == 0);
  check(setsockopt(sock, SOL_SOCKET, SO_SNDBUF, &size, sizeof size) == 0);
  return sock;
}

static int reach(const struct sockaddr_in *addr, const char *data, size_t size) {
  const int sock = tcp_socket();
  check(connect(sock, (const struct sockaddr *)addr, sizeof *addr) == 0);
  check(send(sock, data, size, 0) == (ssize_t)size);
  return sock;
}

// A line with its end; 0: there is none.
static size_t take_line(int sock, size_t capacity) {
  for (size_t got = 0; got < capacity;) {
    const ssize_t waiting = recv(sock, in + got, capacity - got, MSG_PEEK);
    if (waiting <= 0) return 0;
    const char *end = memchr(in + got, '\n', (size_t)waiting);
    const size_t take = end != NULL ? (size_t)(end + 1 - (in + got)) : (size_t)waiting;
    const ssize_t taken = recv(sock, in + got, take, 0);
    if (taken <= 0) return 0;
    got += (size_t)taken;
    if (end != NULL) return got;
  }
  return 0;
}

static size_t read_file(const char *name, char *text, size_t capacity) {
  const int file = open(name, O_RDONLY);
  check(file >= 0);
  const ssize_t got = read(file, text, capacity);
  check(got >= 0);
  close(file);
  return (size_t)got;
}

static void load_macro(void) {
  struct stat status;
  check(stat(macro_name, &status) == 0 && status.st_size <= kMessage);
  read_file(macro_name, out, (size_t)status.st_size);
}

// A frame may be a FIFO, so it is read until its end has been seen.
static void send_frame(int client, const char *name) {
  const int file = open(name, O_RDONLY);
  check(file >= 0);
  size_t size = 0;
  ssize_t got = 0;
  while (size <= kFrame && (got = read(file, in + size, kFrame + 1 - size)) > 0)
    size += (size_t)got;
  check(got >= 0);
  if (size > kFrame) size = kFrame;
  close(file);
  check(send(client, in, size, 0) == (ssize_t)size);
}

static void fetch(void) {
  const int sock = reach(&doc_addr, request, request_size);
  check(take_line(sock, kMessage) > 0);
  memcpy(out, page, page_size);
  close(sock);
}

static void send_page(int client) { check(send(client, out, page_size, 0) == (ssize_t)page_size); }

static void get_doc(int client) {
  load_macro();
  fetch();
  send_frame(client, header_name);
  send_page(client);
  send_frame(client, tail_name);
}

static void query(int client, size_t command_size) {
  load_macro();
  const int search = reach(&search_addr, in, command_size);
  send_frame(client, header_name);
  // The records are HIT and, at last, SEARCHCOMPLETE.
  while (take_line(search, kMessage) > 0 && in[sizeof "\t@COMMAND=" - 1] == 'H') {
    fetch();
    send_page(client);
  }
  send_frame(client, tail_name);
}

static void serve(int client) {
  const size_t size = take_line(client, kCommand);
  check(size > 0);
  if (search_addr.sin_port != 0)
    query(client, size);
  else if (doc_addr.sin_port != 0)
    get_doc(client);
}

static struct sockaddr_in loopback(const char *port) {
  struct sockaddr_in addr = {.sin_family = AF_INET, .sin_port = htons((uint16_t)atoi(port))};
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return addr;
}

static const char *with_suffix(const char *base, const char *suffix) {
  char *name = NULL;
  check(asprintf(&name, "%s%s", base, suffix) > 0);
  return name;
}

int main(int argc, char **argv) {
  check(argc == 6);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGCHLD, SIG_IGN);
  const struct sockaddr_in client_addr = loopback(argv[1]), admin_addr = loopback(argv[2]);
  search_addr = loopback(argv[3]);
  doc_addr = loopback(argv[4]);
  macro_name = with_suffix(argv[5], ".mo");
  header_name = with_suffix(argv[5], ".hdr");
  tail_name = with_suffix(argv[5], ".tail");
  request_size = read_file(with_suffix(argv[5], ".request"), request, sizeof request);
  page_size = read_file(with_suffix(argv[5], ".page"), page, sizeof page);

  const int listener = tcp_socket();
  check(bind(listener, (const struct sockaddr *)&client_addr, sizeof client_addr) == 0);
  check(listen(listener, kBacklog) == 0);
  // The daemon waits on two sockets, so the floor does.
  const int admin = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  check(bind(admin, (const struct sockaddr *)&admin_addr, sizeof admin_addr) == 0);
  const int nfds = (listener > admin ? listener : admin) + 1;

  for (;;) {
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(admin, &ready);
    FD_SET(listener, &ready);
    if (select(nfds, &ready, NULL, NULL, NULL) > 0 && FD_ISSET(listener, &ready)) {
      struct sockaddr_in peer;
      socklen_t size = sizeof peer;
      const int client = accept(listener, (struct sockaddr *)&peer, &size);
      check(client >= 0);
      const pid_t pid = fork();
      check(pid >= 0);
      if (pid == 0) {
        close(listener);
        close(admin);
        serve(client);
        close(client);
        _exit(0);
      }
      close(client);
    }
    while (wait4(-1, NULL, WNOHANG, NULL) > 0) {
    }
  }
}
