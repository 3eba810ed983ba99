// net/sock.h: blocking IPv4 sockets behind result codes.
//
// Every operation returns kSockOk or another code and has logged the system call that failed, at
// 103, so that callers only decide what happens next.  -N is the error N of that call.  0 is a call
// that failed and whose error could not be read; this is so whenever socket() or accept() fails,
// for the error is asked of the descriptor -1.  A length that is passed by address is in/out:
// capacity in, bytes out.  Nothing is retried, and one call is one transfer.
//
// A place for a new socket holds -1 until the operation succeeds.  A socket whose set-up fails half
// way stays open and is not handed out: callers close only what they were given.
#ifndef NET_SOCK_H
#define NET_SOCK_H

#include <netinet/in.h>

#include <cstdint>

enum SockResult : int {
  kSockOk = 1,
  kSockBadAddr = -2,   // the address has no network form, or no text form
  kSockBadArg = -3,    // a null pointer, a negative descriptor, a length of 0
  kSockOverflow = -4,  // equals -EINTR: no clash, for every signal handler ends its process
};

struct SockAddr {
  char IP[16];        // dotted text; empty: not known yet
  std::int16_t Port;  // host order; signed, so that only 1 to 32767 can be used
  sockaddr_in Addr;   // address 0: not converted yet
};

// Options of a new socket.  The request is made with the value 0 and leaves the socket blocking.
inline constexpr int kSockNonBlock = 1;

inline constexpr int kSockBuffer = 32768;  // bytes of SO_RCVBUF and SO_SNDBUF of every TCP socket
inline constexpr int kSockBacklog = 5;

// The pending error of the socket, else errno; 0 when the socket cannot be asked.  Must follow the
// failing call directly.  Prints errno to standard output.
int Sock_GetError(int sock);

int Sock_Init();
int Sock_Term();

// Uses addr->Addr if it is set, whatever the text says; converts the text otherwise.
int Sock_Connect(SockAddr *addr, int options, int *place);
int Sock_Listen(SockAddr *addr, int nonblock, int *place);

// Fills peer from the connection.
int Sock_Accept(int listener, SockAddr *peer, int *place);

// addr null: an unbound socket for sending.
int Sock_OpenUDP(SockAddr *addr, int nonblock, int *place);

// kSockOk also when fewer bytes than len were sent.
int Sock_SendTCP(int sock, const char *data, int len, int flags);

// kSockOk with *len 0: the peer has closed.
int Sock_RecvTCP(int sock, char *buf, int *len, int flags);

// Takes bytes up to and including the first of delims and never more, so that the next reader
// starts at the next line.  kSockOk with *len 0: the peer has closed, also in the middle of a line.
// kSockOverflow: *len bytes taken, none a delimiter.  A NUL ends the search in the bytes that wait.
// Bytes that were looked at and not taken are cleared from buf, also when taking them failed.
int Sock_RecvDelim(int sock, char *buf, int *len, const char *delims);

// Connects, sends, receives once, closes.  flags are the options of the connection and the flags of
// both transfers.
int Sock_TransactTCP(SockAddr *addr, const char *request, int request_len, char *reply,
                     int *reply_len, int flags);

// On success the socket stays open in *place, for the caller to read the answer and close.
int Sock_ConnectAndSend(SockAddr *addr, int *place, const char *data, int len, int flags);

// Converts dest from its text on every call.
int Sock_SendUDP(int sock, const char *data, int len, SockAddr *dest, int flags);

// Fills sender from the datagram.  *len is set before the sender is converted.
int Sock_RecvUDP(int sock, char *buf, int *len, SockAddr *sender, int flags);

int Sock_Close(int sock);

// Always kSockBadArg.
int Sock_Shutdown(int sock, int how);

// Text not empty: fills Addr from text and port, as inet_addr reads it.  Text empty: fills text and
// port from Addr.  kSockOk or kSockBadAddr.
int Sock_ConvertIP(SockAddr *addr);

#endif
