// bench/rows.h: what the benchmark asks for, and every byte that goes over the wire for it.
//
// A row is named by what it does:
//   unknown     a command that nobody knows
//   getdoc-N    a GETDOC of a document of N bytes, its title, author, date and texts on the page
//   query-N     a QUERY with N hits, each the 2 KB document of getdoc-2048
//   ordered-N   a GETDOC of 2 KB in N fields, all of them on the page, in the document's order
//   reverse-N   the same from the last field to the first
//   whole-N     a GETDOC of N bytes, put on the page by one instruction
#ifndef BENCH_ROWS_H
#define BENCH_ROWS_H

#include <string>
#include <vector>

inline constexpr int kDaemonPort = 14000;
inline constexpr int kDaemonAdminPort = 14001;
inline constexpr int kSearchPort = 14002;
inline constexpr int kDocPort = 14003;
inline constexpr int kOwnPort = 14004;    // of the load generator, where the daemon answers a PING
inline constexpr int kFloorPort = 14100;  // of the first row; each takes two

inline constexpr const char *kSearchGroup = "search";  // the ids of the managers
inline constexpr const char *kDocGroup = "docs";

struct Exchange {
  std::string request;
  std::string answer;
};

struct Row {
  std::string name;
  std::string base;  // path of the macro and the frames, without suffix
  Exchange client;
  Exchange search;    // empty: no search
  Exchange document;  // empty: no document
  std::string macro, header, tail;
  std::string page;  // what the macro makes of the document
};

// The row of that name, its files in folder; ends the program when there is no such row.
Row Row_Make(const std::string &name, const std::string &folder);

// Writes what the servers read: .mo, .hdr, .tail and, for the floor, .request and .page; and the
// client's side, .command and .answer.
void Row_WriteFiles(const Row &row);

#endif
