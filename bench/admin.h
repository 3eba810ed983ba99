// bench/admin.h: the daemon's admin port, as far as the benchmark needs it.
#ifndef BENCH_ADMIN_H
#define BENCH_ADMIN_H

#include <string>

class Admin {
 public:
  Admin();
  ~Admin();
  Admin(const Admin &) = delete;
  Admin &operator=(const Admin &) = delete;

  // Announces the managers of the rows behind `others` other managers of either type.
  void Announce(int others);

  void SetLevel(const std::string &level);

 private:
  void Send(const std::string &datagram);
  void AwaitPong();  // then all that was sent has been carried out; ends the program after a while

  int sock_;
  int sequence_ = 0;
};

#endif
