// tests/soak/draft.h: an exchange in the making, and the words that kinds are written with.
#ifndef TESTS_SOAK_DRAFT_H
#define TESTS_SOAK_DRAFT_H

#include <string>
#include <vector>

#include "tests/soak/exchange.h"

// The managers, by the ids under which they are announced.  Nobody listens for those that refuse,
// and nobody announces those that are unknown.
inline constexpr const char *kSteady[] = {"search", "docs"};
inline constexpr const char *kMortal[] = {"mortal-search", "mortal-docs"};
inline constexpr const char *kRefusing[] = {"refusing-search", "refusing-docs"};
inline constexpr const char *kUnknown[] = {"unknown-search", "unknown-docs"};

struct Draft {
  const std::vector<Page> &pages;
  Random random;
  int *next_document;  // number, of all exchanges
  Exchange exchange = {};
  const char *search_group = kSteady[0];
  const char *document_group = kSteady[1];

  int Pick(int low, int high) { return Between(random, low, high); }
  bool One(int count) { return OneIn(random, count); }
  std::string Text(int low, int high);  // of letters, so many

  // A QUERY that reaches its Search Manager; then its records, in order; then End.
  void Query(const Page &page, int max_hits = 0);
  void Query() { Query(AnyPage()); }
  void Hit(int body_size);
  void Hit() { Hit(Pick(0, One(20) ? 8000 : 200)); }
  void Hits(int count);
  void Raw(const std::string &text);
  void Add(Record::What what, const std::string &bytes, const std::string &text = "");
  void Complete() { Add(Record::What::kEnd, "\t@COMMAND=SEARCHCOMPLETE\n"); }
  void End();  // the answer is what was added

  // A GETDOC of one document.
  void GetDoc(const Page &page);
  void Fixed(const std::string &request, const std::string &answer);

  const Page &AnyPage();
  Document &Last() { return exchange.documents.back(); }
  void Misbehave(Document *document);
  int AddDocument(const std::string &group, int body_size);

 private:
  void AddFurther(Content *content);
};

// Writes an exchange of the kind that the number chooses in turn, or chance.
void Kinds_Write(Draft *draft, bool in_turn);
int Kinds_Count();

#endif
