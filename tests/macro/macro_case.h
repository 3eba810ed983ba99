// tests/macro/macro_case.h: a case in a process of its own, and macro files for it.
//
// The slots of the macro table are not given back for as long as the process lives, so every case
// starts with an empty table in a child, as every connection does.
#ifndef TESTS_MACRO_MACRO_CASE_H
#define TESTS_MACRO_MACRO_CASE_H

#include <gtest/gtest.h>

#include <functional>
#include <string>

#define MACRO_CASE(suite, name)                     \
  static void suite##_##name();                     \
  TEST(suite, name) { RunInChild(suite##_##name); } \
  static void suite##_##name()

// Fails if the body does, or if it ends the process.
void RunInChild(const std::function<void()> &body);

// Writes NAME.mo into a directory that is removed with the process; the absolute name, without
// ".mo".
std::string WriteMacro(const std::string &name, const std::string &code);

#endif
