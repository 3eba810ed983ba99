// A page over real documents: the Communications Manager between both managers.
#include <gtest/gtest.h>

#include "tests/service/running.h"

namespace {

// A manager whose parent is the daemon.
std::unique_ptr<Process> StartUnder(const Daemon &daemon, const Folder &folder, char type,
                                    const std::string &database) {
  Layout layout;
  layout.parent_port = daemon.AdminPort();
  layout.Write(folder, type, database);
  return std::make_unique<Process>(
      std::vector<std::string>{type == 'S' ? KORVO_SEARCHMGR : KORVO_DOCMGR, "grp1", folder.Path()},
      folder.Path());
}

}  // namespace

TEST(Page, OfAQueryAndOfADocument) {
  const Folder data, search_folder, doc_folder;
  const std::string database = BuildIndex(data, "db", kPackages);
  Daemon daemon;
  daemon.SetLevel("INFO");
  const auto search = StartUnder(daemon, search_folder, 'S', database);
  const auto doc = StartUnder(daemon, doc_folder, 'D', database);
  EXPECT_TRUE(daemon.Program().WaitForLog("[Init: RecvAnn] Child Type     = S\n"));
  EXPECT_TRUE(daemon.Program().WaitForLog("[Init: RecvAnn] Child Type     = D\n"));

  const std::string base = data.Path() + "/page";
  data.Write("page.mo", TextOp("[") + ValueOp("Package") + TextOp("|") + ValueOp("Description") +
                            TextOp("]") + EndOp());
  data.Write("page.hdr", "<");
  data.Write("page.tail", ">");
  EXPECT_EQ(
      daemon.Exchange("\t@COMMAND=QUERY\t@SEARCHGROUP=grp1\t@MACROFILE=" + base + "\tshell\n"),
      "<[zsh|shell, a shell among the shells: shell][bash|GNU Bourne Again shell An interpreter.]>");
  EXPECT_EQ(
      daemon.Exchange("\t@COMMAND=GETDOC\t@SEARCHGROUP=grp1\t@MACROFILE=" + base + "\t@DOCNUM=3\n"),
      "<[nano|small editor]>");
  EXPECT_EQ(daemon.Exchange("\t@COMMAND=QUERY\t@SEARCHGROUP=grp1\t@MACROFILE=" + base +
                            "\t@OPER=NO\tx\n"),
            "<\tUnable to parse query: @OPER is neither AND nor OR\n>");
}
