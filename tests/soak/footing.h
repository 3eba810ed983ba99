// tests/soak/footing.h: what a process holds, as the kernel tells it.
#ifndef TESTS_SOAK_FOOTING_H
#define TESTS_SOAK_FOOTING_H

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

std::map<int, std::string> Footing_Descriptors(pid_t pid);  // what each one leads to
std::vector<pid_t> Footing_Children(pid_t pid);
long Footing_ResidentPages(pid_t pid);
bool Footing_IsZombie(pid_t pid);

#endif
