// tests/fuzz/support/peer_model.h: what the two peer lists must hold, by their rules.
#ifndef TESTS_FUZZ_SUPPORT_PEER_MODEL_H
#define TESTS_FUZZ_SUPPORT_PEER_MODEL_H

#include <string>
#include <vector>

#include "config/peers.h"

class PeerModel {
 public:
  PeerModel();   // empties the lists
  ~PeerModel();  // the same

  // Inserts child, of any type, as an announcement does.
  void Insert(const INIT_CHILDINFO &child);

  // The lists hold what was inserted, in its order, field for field.
  void Check() const;

 private:
  std::vector<INIT_CHILDINFO> documents_;
  std::vector<INIT_CHILDINFO> searches_;
};

// The addresses are terminated, and so is the ID.
void Fuzz_CheckChild(const INIT_CHILDINFO &child);

// What can be seen of a record.
std::string Fuzz_ChildText(const INIT_CHILDINFO &child);
std::string Fuzz_PeerText();  // of both lists

#endif
