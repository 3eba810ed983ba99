#include "bench/rows.h"

#include <sysexits.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

namespace {

constexpr int kPageDocument = 2048;  // bytes of a document that a row does not size
constexpr int kLongestValue = 4000;  // that a macro puts on the page whole

struct Field {
  std::string name;
  std::string value;
};

// Text of size bytes without a tab or a line end.
std::string Words(std::size_t size) {
  constexpr std::string_view kText = "the quick brown fox jumps over the lazy dog and ";
  std::string text;
  while (text.size() < size) text += kText;
  text.resize(size);
  return text;
}

// Fields as a Document Manager sends them, the last one closed by a tab.
std::string Document(const std::vector<Field> &fields) {
  std::string text;
  for (const Field &field : fields) text += "\t" + field.name + "=" + field.value;
  return text + "\t\n";
}

std::vector<Field> PageFields(int size) {
  std::vector<Field> fields = {
      {"TITLE", "A title of a usual length"}, {"AUTHOR", "Somebody"}, {"DATE", "1997-05-12"}};
  int spare = size - static_cast<int>(Document(fields).size());
  for (int i = 0; spare > 0; ++i) {
    Field text = {"TEXT" + std::to_string(i), ""};
    spare -= static_cast<int>(text.name.size()) + 2;  // the tab and the "="
    text.value = Words(static_cast<std::size_t>(std::clamp(spare, 0, kLongestValue)));
    spare -= static_cast<int>(text.value.size());
    fields.push_back(text);
  }
  return fields;
}

std::vector<Field> EvenFields(int count, int size) {
  std::vector<Field> fields;
  for (int i = 0; i < count; ++i) fields.push_back({"FIELD" + std::to_string(i), ""});
  const int spare = std::max(0, size - static_cast<int>(Document(fields).size()));
  for (Field &field : fields) field.value = Words(static_cast<std::size_t>(spare / count));
  return fields;
}

// Byte code and, beside it, the text that it makes.
struct Page {
  std::string macro;
  std::string text;

  void Literal(const std::string &bytes) {
    macro += '\x41';
    macro += static_cast<char>(bytes.size());
    macro += bytes;
    text += bytes;
  }
  void Value(const Field &field) {
    macro += '\x42';
    macro += static_cast<char>(field.name.size());
    macro += field.name;
    text += field.value;
  }
  void Whole(const std::string &document) {
    macro += '\x07';
    text += document;
    std::replace(text.begin(), text.end(), '\t', '\n');
  }
  void End() { macro += '\0'; }
};

Page ArticlePage(const std::vector<Field> &fields) {
  Page page;
  page.Literal("<h2>");
  page.Value(fields[0]);
  page.Literal("</h2>\n<p class=\"by\">");
  page.Value(fields[1]);
  page.Literal(", ");
  page.Value(fields[2]);
  page.Literal("</p>\n<p>");
  for (std::size_t i = 3; i < fields.size(); ++i) page.Value(fields[i]);
  page.Literal("</p>\n");
  page.End();
  return page;
}

Page ListPage(const std::vector<Field> &fields, bool reverse) {
  Page page;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    page.Value(fields[reverse ? fields.size() - 1 - i : i]);
    page.Literal("<br>\n");
  }
  page.End();
  return page;
}

std::string DocRequest(const std::string &macro, int number) {
  return "\t@COMMAND=GETDOC\t@BESTFIT=0\t@SEARCHGROUP=" + std::string(kDocGroup) +
         "\t@RECTYPE=page\t@MACROFILE=" + macro + "\t@DOCNUM=" + std::to_string(number) +
         "\t@SCRIPT=\t@SEQNUM=0\t@AUTHCODE=\t@FILENAME=\t@EXPDATE=0\n";
}

void SetDocument(Row *row, const std::string &document, const Page &page) {
  row->document.answer = "\t@COMMAND=HIT" + document;
  row->macro = page.macro;
  row->page = page.text;
}

void MakeGetDoc(Row *row, const std::string &document, const Page &page) {
  SetDocument(row, document, page);
  row->document.request = DocRequest(row->base, 1);
  row->client.request = "\t@COMMAND=GETDOC\t@SEARCHGROUP=" + std::string(kDocGroup) +
                        "\t@RECTYPE=page\t@MACROFILE=" + row->base + "\t@DOCNUM=1\tcomplete\n";
  row->client.answer = row->header + row->page + row->tail;
}

void MakeQuery(Row *row, int hits) {
  const std::vector<Field> fields = PageFields(kPageDocument);
  SetDocument(row, Document(fields), ArticlePage(fields));
  row->document.request = DocRequest("", hits);  // the number keeps the rows apart
  row->client.request = "\t@COMMAND=QUERY\t@SEARCHGROUP=" + std::string(kSearchGroup) +
                        "\t@MACROFILE=" + row->base + "\t@MAXHITS=" + std::to_string(hits) +
                        "\tquick brown fox\n";
  row->search.request = row->client.request;
  row->client.answer = row->header;
  for (int i = 0; i < hits; ++i) {
    row->search.answer += "\t@COMMAND=HIT\t@SEARCHGROUP=" + std::string(kDocGroup) +
                          "\t@RECTYPE=page\t@DOCNUM=" + std::to_string(hits) + "\n";
    row->client.answer += row->page;
  }
  row->search.answer += "\t@COMMAND=SEARCHCOMPLETE\n";
  row->client.answer += row->tail;
}

// False: no row has that name.
bool Fill(Row *row) {
  if (row->name == "unknown") {
    row->client.request = "\t@COMMAND=BENCHMARK\t@SEQNUM=1\tnothing\n";
    return true;
  }
  const std::size_t dash = row->name.find('-');
  if (dash == std::string::npos) return false;
  const std::string kind = row->name.substr(0, dash);
  const int count = std::atoi(row->name.c_str() + dash + 1);
  if (kind == "query" && count >= 0 && count <= 1000) {
    MakeQuery(row, count);
  } else if (kind == "getdoc" && count >= 128 && count <= 32768) {
    const std::vector<Field> fields = PageFields(count);
    MakeGetDoc(row, Document(fields), ArticlePage(fields));
  } else if ((kind == "ordered" || kind == "reverse") && count >= 1 && count <= 100) {
    const std::vector<Field> fields = EvenFields(count, kPageDocument);
    MakeGetDoc(row, Document(fields), ListPage(fields, kind == "reverse"));
  } else if (kind == "whole" && count >= 128 && count <= 39000) {
    const std::string document = Document(PageFields(count));
    Page page;
    page.Whole(document);
    page.End();
    MakeGetDoc(row, document, page);
  } else {
    return false;
  }
  return true;
}

void WriteFile(const std::string &name, const std::string &text) {
  std::ofstream file(name, std::ios::binary);
  file << text;
  if (file.flush()) return;
  std::fprintf(stderr, "cannot write %s\n", name.c_str());
  std::exit(EX_CANTCREAT);
}

}  // namespace

Row Row_Make(const std::string &name, const std::string &folder) {
  Row row;
  row.name = name;
  row.base = folder + "/" + name;
  row.header = "<html><head><title>Found</title></head>\n<body>\n<!-- " + Words(600) + " -->\n";
  row.tail = "<hr>\n<p>" + Words(100) + "</p>\n</body></html>\n";
  if (Fill(&row)) return row;
  std::fprintf(stderr, "no row is called '%s'; bench/rows.h has the names\n", name.c_str());
  std::exit(EX_USAGE);
}

void Row_WriteFiles(const Row &row) {
  WriteFile(row.base + ".mo", row.macro);
  WriteFile(row.base + ".hdr", row.header);
  WriteFile(row.base + ".tail", row.tail);
  WriteFile(row.base + ".request", row.document.request);
  WriteFile(row.base + ".page", row.page);
  WriteFile(row.base + ".command", row.client.request);
  WriteFile(row.base + ".answer", row.client.answer);
}
