// korvo-index: stores the documents of control files in a database that the managers read.
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>

#include "index/control_file.h"
#include "index/indexing.h"

namespace {

constexpr int kProgressStep = 100;  // documents

struct Indexer {
  Xapian::WritableDatabase database;
  int documents;
  int cut;  // values that were not stored whole
};

// The end is "\r" while the run goes on, so that whatever comes next takes the line.
void ShowProgress(const Indexer &indexer, const char *end) {
  if (isatty(STDERR_FILENO) != 0)
    std::fprintf(stderr, "korvo-index: %d documents%s", indexer.documents, end);
}

void Add(Indexer *indexer, const Fields &fields) {
  indexer->database.replace_document(Indexing_UniqueTerm(fields),
                                     Indexing_Document(fields, &indexer->cut));
  if (++indexer->documents % kProgressStep == 0) ShowProgress(*indexer, "\r");
}

// 0, or the exit status, reported.
int AddStream(Indexer *indexer, const char *name, std::istream *in) {
  ControlReader reader = {in, 0};
  Fields fields;
  for (;;) {
    switch (ControlFile_Read(&reader, &fields)) {
      case ControlResult::kDocument: Add(indexer, fields); break;
      case ControlResult::kEnd: return 0;
      case ControlResult::kBadLine:
        std::fprintf(stderr, "korvo-index: %s:%d: expected \"Name: value\"; nothing was stored\n",
                     name, reader.line);
        return EX_DATAERR;
      case ControlResult::kFailed:
        std::fprintf(stderr, "korvo-index: cannot read %s: %s; nothing was stored\n", name,
                     std::strerror(errno));
        return EX_NOINPUT;
    }
  }
}

int AddFile(Indexer *indexer, const char *name) {
  if (std::strcmp(name, "-") == 0) return AddStream(indexer, "standard input", &std::cin);
  std::ifstream file(name);
  if (file) return AddStream(indexer, name, &file);
  std::fprintf(stderr, "korvo-index: cannot open %s: %s; nothing was stored\n", name,
               std::strerror(errno));
  return EX_NOINPUT;
}

// One transaction: readers see all files or none, and so does whoever interrupts the run.
int AddFiles(Indexer *indexer, char **names) {
  indexer->database.begin_transaction();
  for (; *names != nullptr; ++names) {
    const int status = AddFile(indexer, *names);
    if (status != 0) return status;  // the transaction ends unfinished with the database
  }
  indexer->database.commit_transaction();
  ShowProgress(*indexer, "\n");
  if (indexer->cut > 0)
    std::fprintf(stderr, "korvo-index: values that were too long and are stored cut: %d\n",
                 indexer->cut);
  return 0;
}

int Index(const char *location, char **names) {
  Indexer indexer = {};
  try {
    indexer.database = Xapian::WritableDatabase(location, Xapian::DB_CREATE_OR_OPEN);
  } catch (const Xapian::Error &error) {
    std::fprintf(stderr, "korvo-index: cannot open %s for writing: %s\n", location,
                 error.get_description().c_str());
    return EX_CANTCREAT;
  }
  try {
    return AddFiles(&indexer, names);
  } catch (const Xapian::Error &error) {
    std::fprintf(stderr, "korvo-index: cannot write %s: %s\n", location,
                 error.get_description().c_str());
  } catch (const std::exception &error) {
    std::fprintf(stderr, "korvo-index: cannot write %s: %s\n", location, error.what());
  }
  return EX_IOERR;
}

}  // namespace

int main(int argc, char **argv) {
  const bool named = argc > 2 && argv[1][0] != '\0' && argv[1][0] != '-';
  if (!named) {
    std::fprintf(stderr, "usage: korvo-index DATABASE FILE...\n");
    return EX_USAGE;
  }
  return Index(argv[1], argv + 2);
}
