// searchmgr/stop_words.h: words that say nothing of what is looked for.
#ifndef SEARCHMGR_STOP_WORDS_H
#define SEARCHMGR_STOP_WORDS_H

#include <xapian.h>

#include <string_view>

// The stop words of a language, by its name as a schema has it; null: none are known of it.
// Lives as long as the program.
const Xapian::Stopper *StopWords_Of(std::string_view language);

#endif
