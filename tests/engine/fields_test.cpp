#include "engine/fields.h"

#include <gtest/gtest.h>

#include <sstream>

#include "store/schema.h"

namespace {

void Store(Xapian::WritableDatabase *database, const std::string &text) {
  std::istringstream in(text);
  Schema schema;
  SchemaError error;
  ASSERT_TRUE(Schema_Read(&in, &schema, &error)) << error.reason;
  Schema_Store(database, schema);
}

}  // namespace

TEST(Fields, AreThoseOfTheSchemaThatCanBeSearched) {
  Xapian::WritableDatabase database("", Xapian::DB_BACKEND_INMEMORY);
  Store(&database, "Title text\nRemark stored\nDay date\nPrice number\nTag keyword\n");
  EXPECT_EQ(Engine_Fields(database, 840), "Title,Day,Price,Tag");
}

TEST(Fields, AreCutAtAName) {
  Xapian::WritableDatabase database("", Xapian::DB_BACKEND_INMEMORY);
  Store(&database, "Title text\nDay date\nPrice number\n");
  EXPECT_EQ(Engine_Fields(database, 9), "Title,Day");
  EXPECT_EQ(Engine_Fields(database, 8), "Title");
  EXPECT_EQ(Engine_Fields(database, 4), "");
}

TEST(Fields, WithoutASchemaAreThoseThatTermsHave) {
  Xapian::WritableDatabase database("", Xapian::DB_BACKEND_INMEMORY);
  EXPECT_EQ(Engine_Fields(database, 840), "");
  Xapian::Document document;
  for (const char *term : {"bash", "XPACKAGE:bash", "XPACKAGE:zsh", "XDESCRIPTION:shell", "Xnone"})
    document.add_term(term);
  database.add_document(document);
  EXPECT_EQ(Engine_Fields(database, 840), "DESCRIPTION,PACKAGE");
  EXPECT_EQ(Engine_Fields(database, 18), "DESCRIPTION");
}
