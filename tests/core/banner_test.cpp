#include <gtest/gtest.h>

#include "core/startup.h"
#include "tests/core/running.h"
#include "tests/support/log_capture.h"

namespace {

std::string BannerOf(char type) {
  const Setting setting("KORVO_TYPE", std::string(1, type));
  return Capture(103, MainCore_Banner).out;
}

const std::string kStars = std::string(69, '*') + "\n";
const std::string kBlank = "*" + std::string(67, ' ') + "*\n";

TEST(Banner, TypeLine_NamesTheProgram) {
  const struct {
    char type;
    const char *line;
  } kLines[] = {
      {'C', "* KORVO Communications Manager - Morvane Technologies, Inc.         *\n"},
      {'S', "* KORVO Search Manager - Morvane Technologies, Inc.                 *\n"},
      {'D', "* KORVO Document Manager - Morvane Technologies, Inc.               *\n"},
      {'E', "* KORVO Search Engine - Morvane Technologies, Inc.                  *\n"},
      {'X', "* KORVO - Morvane Technologies, Inc.                                *\n"},
      {'c', "* KORVO - Morvane Technologies, Inc.                                *\n"},
  };
  for (const auto &row : kLines)
    EXPECT_EQ(0u, BannerOf(row.type).find("\n\n" + kStars + row.line + kBlank)) << row.type;
}

TEST(Banner, Box_HasItsLinesAndEndsInAnEmptyLine) {
  EXPECT_EQ(BannerOf('C'),
            "\n\n"
            "*********************************************************************\n"
            "* KORVO Communications Manager - Morvane Technologies, Inc.         *\n"
            "*                                                                   *\n"
            "* Copyright Morvane Technologies, Inc.  All rights reserved.        *\n"
            "*                                                                   *\n"
            "* This program may be used and copied only under the terms of its   *\n"
            "* licence.  It comes without any warranty, to the extent that the   *\n"
            "* law permits; whoever runs it answers for the use that is made of  *\n"
            "* it.  The names in it are those of their owners.                   *\n"
            "*********************************************************************\n"
            "\n");
}

TEST(Banner, Usage_NamesTheProgramAsItWasCalled) {
  const std::string usage = Capture(103, [] { MainCore_Usage("./any name"); }).out;
  EXPECT_NE(std::string::npos, usage.find("\nUSAGE:\t./any name [program id] <config dir>\n"
                                          "        ./any name -?\n\n        OPTIONS\n"));
}

}  // namespace
