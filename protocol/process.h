// protocol/process.h: two system calls that wait out what passes.
#ifndef PROTOCOL_PROCESS_H
#define PROTOCOL_PROCESS_H

#include <sys/types.h>

#include <cstddef>

// fork(2), tried up to attempts times, five seconds after each failure with EAGAIN.  0 in the
// child, its process id in the parent, or the negated error; -EAGAIN when no attempt is left.  What
// standard output still holds is written first, so that a child does not write it again.
int Util_Fork(int attempts);

// read(2), repeated while a signal interrupts it.
ssize_t Util_ReadRetry(int fd, void *buf, std::size_t count);

#endif
