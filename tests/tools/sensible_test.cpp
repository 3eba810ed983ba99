// Macros as people write them: a check has nothing to say of them but what they mean to pay.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include "tests/tools/engine.h"
#include "tools/macro/asm.h"
#include "tools/macro/check.h"

namespace {

struct Kind {
  std::string told;
  std::vector<std::string> documents;
};

struct Sensible {
  std::string name;
  std::string schema;
  std::string source;
};

struct Collection {
  std::map<std::string, Kind> kinds;
  std::map<std::string, std::string> files;
  std::vector<Sensible> macros;
};

bool TakesWord(const std::string &line, const std::string &word, std::string *rest) {
  if (!line.starts_with(word)) return false;
  *rest = line.substr(word.size());
  return true;
}

void TakeDocument(const std::string &line, Kind *kind) {
  kind->documents.emplace_back();
  EXPECT_TRUE(Check_Unshow(line, &kind->documents.back())) << line;
}

// What begins with that line, and where its further lines go.
std::string *Begin(const std::string &line, Collection *all, Kind **kind) {
  std::string name;
  *kind = nullptr;
  if (TakesWord(line, "schema ", &name)) {
    *kind = &all->kinds[name];
    return &(*kind)->told;
  }
  if (TakesWord(line, "file ", &name)) return &all->files[name];
  const std::string schema = line.substr(0, line.find(": "));
  if (schema == line || !all->kinds.contains(schema)) return nullptr;
  all->macros.push_back({line, schema, ""});
  return &all->macros.back().source;
}

Collection Read() {
  Collection all;
  std::ifstream in(KORVO_SENSIBLE);
  std::string *text = nullptr;
  Kind *kind = nullptr;
  for (std::string line; std::getline(in, line);) {
    Kind *of = nullptr;
    if (std::string *next = Begin(line, &all, &of); next != nullptr)
      text = next, kind = of;
    else if (kind != nullptr && line.starts_with("\\t"))
      TakeDocument(line, kind);
    else if (text != nullptr)
      text->append(line).append("\n");
  }
  return all;
}

std::string Assembled(const Sensible &macro, const Collection &all) {
  AsmProgram program;
  program.sources.push_back({"macro.ms", macro.source});
  const auto load = [&](const std::string &name, std::string *text) {
    const auto file = all.files.find(name);
    if (file != all.files.end()) *text = file->second;
    return file != all.files.end();
  };
  EXPECT_TRUE(Asm_Assemble(load, false, &program))
      << macro.name << (program.errors.first.empty() ? "" : program.errors.first[0].text);
  return program.code;
}

std::string Described(const std::vector<Finding> &findings) {
  std::string text;
  for (const Finding &finding : findings)
    text += std::to_string(finding.offset) + " " + finding.what + "\n";
  return text;
}

TEST(Sensible, Macros_AreRight) {
  const Collection all = Read();
  std::set<std::string> codes;
  for (const Sensible &macro : all.macros) {
    const Kind &kind = all.kinds.at(macro.schema);
    Documents documents;
    int line = 0;
    std::string wrong;
    ASSERT_TRUE(Documents_Read(kind.told, &documents, &line, &wrong)) << macro.name << wrong;
    const std::string code = Assembled(macro, all);
    EXPECT_TRUE(codes.insert(code).second) << macro.name << " is there already";
    const std::vector<Finding> findings = Check_Macro(code, documents);
    const bool costs = macro.source.find("; costs: ") != std::string::npos;
    EXPECT_EQ(costs, !findings.empty()) << macro.name << "\n" << Described(findings);
    EXPECT_TRUE(std::none_of(findings.begin(), findings.end(), Check_IsFault))
        << macro.name << "\n"
        << Described(findings);
    SetRegisters(0);
    ASSERT_EQ(2U, kind.documents.size()) << macro.schema;
    const PageRun run = RunPage(code, kind.documents, "\tTitle=Part\t\n");
    EXPECT_EQ(1, run.result) << macro.name << run.log;
    for (const std::string &output : run.outputs) EXPECT_NE("", output) << macro.name;
    EXPECT_TRUE(costs || run.log.empty()) << macro.name << run.log;
  }
  EXPECT_GE(codes.size(), 200U);
}

}  // namespace
