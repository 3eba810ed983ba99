// tests/soak/hostile.h: messages and macros as nobody should write them, and as some would.
//
// Each is made from a random source alone, and never asks for what cannot end: no SHUTDOWN, no
// undefined op-code.
#ifndef TESTS_SOAK_HOSTILE_H
#define TESTS_SOAK_HOSTILE_H

#include <string>
#include <vector>

#include "tests/soak/form.h"
#include "tests/system/harness.h"

struct Ports {
  int search, docs, nobody;
};

std::vector<std::string> Hostile_Macros(Random &random,
                                        const Folder &folder);  // as clients name them

// What a client sends: one command at most is served, and nothing stays unread behind it.
std::string Hostile_Line(Random &random, const std::vector<std::string> &macros);
std::string Hostile_Datagram(Random &random, const Ports &ports);
std::string Hostile_Search(Random &random);    // what a Search Manager answers
std::string Hostile_Document(Random &random);  // what a Document Manager answers

#endif
