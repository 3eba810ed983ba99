// tools/macro/files.h: the files that the commands read and write.
#ifndef TOOLS_MACRO_FILES_H
#define TOOLS_MACRO_FILES_H

#include <string>

#include "tools/macro/asm.h"

bool Files_IsStandard(const std::string &path);  // "-"

// The whole of a file, or the end of the process.
std::string Files_Read(const std::string &path, std::size_t limit);

// The same; false: it cannot be read.
bool Files_TryRead(const std::string &path, std::size_t limit, std::string *text);

// Writes a file as a whole: who has it open keeps the old one.  Or the end of the process.
void Files_Write(const std::string &path, const std::string &bytes);

// Assembles a source and what it includes; when it has faults, names them, and the end of the
// process.
void Files_Assemble(const std::string &path, bool allow_undefined, AsmProgram *program);

// The code of FILE.mo, or of FILE.ms assembled.  The lines of the code are in *program where a
// source is given, or one beside the macro has the same code; it is empty otherwise.
std::string Files_Code(const std::string &path, AsmProgram *program);

// A frame beside that file as it is sent: its first bytes, up to a zero; none if it cannot be read.
std::string Files_Frame(const std::string &path, const char *suffix);

#endif
