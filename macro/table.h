// macro/table.h: macro files in memory.
//
// The table belongs to the process.  The main process opens none, so every connection starts with
// an empty one.
#ifndef MACRO_TABLE_H
#define MACRO_TABLE_H

inline constexpr int kMacroSlots = 20;
inline constexpr const char *kLibraryDir = "/usr/local/korvo/lib";

// Loads name.mo, from the macro library unless name begins with "/".  The handle, 0 or more, which
// stays valid to the end of the process; -1: logged at 103.
int Macro_Open(const char *name);

// Release one slot, or every used one; 1.  A slot is not used again.
int Macro_Close(int handle);
int Macro_CloseAll();

// The code of an open macro; of any other handle null, with *size 0.
const unsigned char *Macro_Code(int handle, int *size);

#endif
