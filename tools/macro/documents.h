// tools/macro/documents.h: the documents that a page is made of, as far as a check knows them.
//
// They are told by a file: a schema (korvo-schema(5)), and lines that begin with "#:", comments to
// everybody else:
//
//   #: script WORD...               the documents are asked for with these words of SCRIPT
//   #: field NAME [most=BYTES] [times=LEAST-MOST] [document=BYTES]
//
// most= is the length as it is sent, with html behind the escaping and the marks.
#ifndef TOOLS_MACRO_DOCUMENTS_H
#define TOOLS_MACRO_DOCUMENTS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t kDocumentMost = 40926;  // of a document that korvo-docmgr sends
inline constexpr std::size_t kPatternMost = 1024;    // a tab, a name and "="
inline constexpr std::size_t kFetchMost = 32768;     // that a fetch writes, also where it fails
inline constexpr std::size_t kInsertMost = 39000;    // of a document with what was inserted
inline constexpr std::size_t kValueMost = 4095;      // of a value that a run shows whole
inline constexpr std::size_t kReferenceLeast = 5;    // of one that names a document, in three words

// One field of a document, in its place.
struct Place {
  std::string name;
  std::size_t most = kValueMost;  // bytes of its value, as it is sent
  bool always = true;             // a document may lack it otherwise
  bool refers = false;            // its value names a document, in three words
  std::size_t brings = 0;         // bytes of that document
  bool told = true;               // somebody has said so; otherwise the macro wants it
  std::string begins = {};        // its value, as far as a look-up wants more than the name
};

// Asked for with "all", a document has every field of the schema in its order.  Otherwise it has
// those that are stored, as they are stored: each may be missing, and where they stand does not
// matter then, since every look-up may miss.
struct Documents {
  bool given = false;         // by a file; otherwise they are what the macro needs
  bool html = false;          // every value is HTML
  std::vector<Place> places;  // in their order
};

// False: *line, from 1, and *wrong say what is not right.
bool Documents_Read(std::string_view text, Documents *documents, int *line, std::string *wrong);

// Documents that carry every field that the macro looks up, as often as it wants it and in an order
// that suits it as far as there is one.
Documents Documents_For(std::string_view code);

// The bytes of tabs, names, "=" and newline, and of the longest values that fit.
std::size_t Documents_Frame(const Documents &documents);
std::size_t Documents_Longest(const Documents &documents);

#endif
