// tests/core/core_seams.h: further calls that a test watches or makes fail; see syscall_seams.h.
//
// A seam is asked before each call with the number of calls so far, from 1, and answers 0 or the
// errno that the call fails with.  An empty one: the call passes through, uncounted.
#ifndef TESTS_CORE_CORE_SEAMS_H
#define TESTS_CORE_CORE_SEAMS_H

#include <functional>

struct Seam {
  std::function<int(int nth)> ask;
  int count = 0;

  bool Fails();
};

extern Seam calloc_seam, epoll_create_seam, epoll_ctl_seam, open_seam, select_seam, setpgid_seam,
    signal_seam, wait_seam;
extern Seam getppid_seam;  // which fails with 1: that of a process whose parent is gone

extern bool select_reads_alone;  // the last select() waited for bytes alone, and without limit

extern bool fail_split;  // Util_SplitPair finds its piece too long; in core_test alone

#endif
