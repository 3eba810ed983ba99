#include "tests/support/syscall_seams.h"

#include <arpa/inet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

Seams *active = nullptr;

std::string Number(long long value) { return std::to_string(value); }

std::string IntAt(const void *value) { return Number(*static_cast<const int *>(value)); }

bool Fails(Call call, const std::string &line) {
  return active != nullptr && active->Enter(call, line);
}

int Noted(int fd) {
  if (active != nullptr) active->NoteSocket(fd);
  return fd;
}

}  // namespace

Seams::Seams() {
  if (active != nullptr) std::abort();
  active = this;
}

Seams::~Seams() { active = nullptr; }

Seams &Seams::Fail(Call call, int error, int nth, int times) {
  const int first = Count(call) + nth;
  failures_.push_back({call, error, first, times == kEveryTime ? kEveryTime : first + times - 1});
  return *this;
}

Seams &Seams::Before(Call call, int nth, std::function<void()> action) {
  actions_.push_back({call, Count(call) + nth, std::move(action)});
  return *this;
}

bool Seams::Enter(Call call, const std::string &line) {
  const int now = ++counts_[static_cast<int>(call)];
  if (!line.empty()) trace_ += line + "\n";
  for (const Action &action : actions_) {
    if (action.call != call || action.at != now) continue;
    active = nullptr;
    action.run();
    active = this;
  }
  for (const Failure &failure : failures_) {
    if (failure.call != call || now < failure.first || now > failure.last) continue;
    errno = failure.error;
    return true;
  }
  return false;
}

// The linker sends every call of the program through __wrap_NAME; __real_NAME is the call itself.
extern "C" {

int __real_socket(int, int, int);
int __wrap_socket(int domain, int type, int protocol) {
  if (Fails(Call::kSocket,
            "socket(" + Number(domain) + ", " + Number(type) + ", " + Number(protocol) + ")"))
    return -1;
  return Noted(__real_socket(domain, type, protocol));
}

int __real_setsockopt(int, int, int, const void *, socklen_t);
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
  if (Fails(Call::kSetsockopt, "setsockopt(" + Number(level) + ", " + Number(option) + ", " +
                                   (size == sizeof(int) ? IntAt(value) : "?") + ", " +
                                   Number(size) + ")"))
    return -1;
  return __real_setsockopt(fd, level, option, value, size);
}

int __real_getsockopt(int, int, int, void *, socklen_t *);
int __wrap_getsockopt(int fd, int level, int option, void *value, socklen_t *size) {
  if (Fails(Call::kGetsockopt,
            "getsockopt(" + Number(level) + ", " + Number(option) + ", " + Number(*size) + ")"))
    return -1;
  return __real_getsockopt(fd, level, option, value, size);
}

int __real_ioctl(int, unsigned long, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void *argument = va_arg(args, void *);
  va_end(args);
  const bool mode = request == FIONBIO;
  if (Fails(Call::kIoctl, mode ? "ioctl(FIONBIO, " + IntAt(argument) + ")" : "ioctl()")) return -1;
  return __real_ioctl(fd, request, argument);
}

int __real_bind(int, const sockaddr *, socklen_t);
int __wrap_bind(int fd, const sockaddr *address, socklen_t size) {
  if (Fails(Call::kBind, "bind(" + Number(size) + ")")) return -1;
  return __real_bind(fd, address, size);
}

int __real_listen(int, int);
int __wrap_listen(int fd, int backlog) {
  if (Fails(Call::kListen, "listen(" + Number(backlog) + ")")) return -1;
  return __real_listen(fd, backlog);
}

int __real_accept(int, sockaddr *, socklen_t *);
int __wrap_accept(int fd, sockaddr *address, socklen_t *size) {
  if (Fails(Call::kAccept, "accept(" + (size == nullptr ? "" : Number(*size)) + ")")) return -1;
  return Noted(__real_accept(fd, address, size));
}

int __real_connect(int, const sockaddr *, socklen_t);
int __wrap_connect(int fd, const sockaddr *address, socklen_t size) {
  if (Fails(Call::kConnect, "connect(" + Number(size) + ")")) return -1;
  return __real_connect(fd, address, size);
}

ssize_t __real_send(int, const void *, size_t, int);
ssize_t __wrap_send(int fd, const void *data, size_t size, int flags) {
  if (Fails(Call::kSend,
            "send(" + Number(static_cast<long long>(size)) + ", " + Number(flags) + ")"))
    return -1;
  return __real_send(fd, data, size, flags);
}

ssize_t __real_recv(int, void *, size_t, int);
ssize_t __wrap_recv(int fd, void *data, size_t size, int flags) {
  if (Fails(Call::kRecv,
            "recv(" + Number(static_cast<long long>(size)) + ", " + Number(flags) + ")"))
    return -1;
  return __real_recv(fd, data, size, flags);
}

ssize_t __real_sendto(int, const void *, size_t, int, const sockaddr *, socklen_t);
ssize_t __wrap_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address,
                      socklen_t address_size) {
  if (Fails(Call::kSendto, "sendto(" + Number(static_cast<long long>(size)) + ", " + Number(flags) +
                               ", " + Number(address_size) + ")"))
    return -1;
  return __real_sendto(fd, data, size, flags, address, address_size);
}

ssize_t __real_recvfrom(int, void *, size_t, int, sockaddr *, socklen_t *);
ssize_t __wrap_recvfrom(int fd, void *data, size_t size, int flags, sockaddr *address,
                        socklen_t *address_size) {
  if (Fails(Call::kRecvfrom, "recvfrom(" + Number(static_cast<long long>(size)) + ", " +
                                 Number(flags) + ", " +
                                 (address_size == nullptr ? "" : Number(*address_size)) + ")"))
    return -1;
  return __real_recvfrom(fd, data, size, flags, address, address_size);
}

int __real_shutdown(int, int);
int __wrap_shutdown(int fd, int how) {
  if (Fails(Call::kShutdown, "shutdown(" + Number(how) + ")")) return -1;
  return __real_shutdown(fd, how);
}

int __real_close(int);
int __wrap_close(int fd) {
  if (Fails(Call::kClose, "")) return -1;
  return __real_close(fd);
}

ssize_t __real_read(int, void *, size_t);
ssize_t __wrap_read(int fd, void *data, size_t size) {
  if (Fails(Call::kRead, "read(" + Number(static_cast<long long>(size)) + ")")) return -1;
  return __real_read(fd, data, size);
}

pid_t __real_fork();
pid_t __wrap_fork() {
  if (Fails(Call::kFork, "fork()")) return -1;
  return __real_fork();
}

unsigned __real_sleep(unsigned);
unsigned __wrap_sleep(unsigned seconds) {
  if (active == nullptr) return __real_sleep(seconds);
  (void)Fails(Call::kSleep, "sleep(" + Number(seconds) + ")");
  return 0;
}

std::FILE *__real_fopen(const char *, const char *);
std::FILE *__wrap_fopen(const char *path, const char *mode) {
  if (Fails(Call::kFopen, std::string("fopen(") + path + ", " + mode + ")")) return nullptr;
  return __real_fopen(path, mode);
}

in_addr_t __real_inet_addr(const char *);
in_addr_t __wrap_inet_addr(const char *text) {
  if (Fails(Call::kInetAddr, std::string("inet_addr(") + text + ")")) return 0;
  return __real_inet_addr(text);
}

char *__real_inet_ntoa(in_addr);
char *__wrap_inet_ntoa(in_addr address) {
  static char empty[1] = "";
  if (Fails(Call::kInetNtoa, "inet_ntoa()")) return empty;
  return __real_inet_ntoa(address);
}

}  // extern "C"
