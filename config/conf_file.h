// config/conf_file.h: the records of korvo.conf and korvo.db and their readers.
//
// Both files are lines of tokens parted by blanks and tabs; "#" at the start of a line makes a
// comment.  Each look-up searches its file from the top.
#ifndef CONFIG_CONF_FILE_H
#define CONFIG_CONF_FILE_H

#include <cstdint>

struct ConfigInfo {
  char ID[64];  // the key, together with Type
  char Type;    // 'C', 'S', 'D' or 'E'
  char IP[16];  // dotted text
  std::int16_t ClientPort;
  std::int16_t AdminPort;
  char ParentID[64];  // empty: no parent
};

struct DBInfo {
  char ID[64];
  char DBName[64];
  char SearchLocation[128];
  char DocLocation[128];
  const char *FieldList;  // set and owned by whoever loads the database; null: none
};

// Fills config from the first line of the file whose ID is id and whose TYPE is type.  1, or 0: not
// found or not complete, and logged at 104; config may hold the ID then.
int Init_ReadConf(const char *filename, const char *id, char type, ConfigInfo *config);

// Whether the file has a line of that id and type.  Logs nothing and leaves no file open, so that
// it can be asked as often as peers come.
bool Init_HasConf(const char *filename, const char *id, char type);

// Fills dbinfo from the first line whose ID is id.  1 or 0, as Init_ReadConf.
int Init_ReadDB(const char *filename, const char *id, DBInfo *dbinfo);

// Log a record at 104.
void Init_DisplayCfg(const ConfigInfo *config);
void Init_DisplayDB(const DBInfo *dbinfo);

#endif
