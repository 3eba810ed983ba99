#include "docmgr/words.h"

#include <algorithm>

#include "docmgr/character.h"

namespace {

constexpr std::size_t kTermSize = 64;  // a longer word is not in the index

// What reads a text, a character ahead.
struct Reader {
  std::string_view text;
  std::size_t at;

  bool AtEnd() const { return at >= text.size(); }
};

struct Word {
  Span place;
  std::string term;
};

unsigned Code(const Reader &reader) { return Character_At(reader.text, reader.at).code; }

void Step(Reader *reader) { reader->at += Character_At(reader->text, reader->at).size; }

bool IsWordCharacter(unsigned code) {
  if (code >= 0x80) return Xapian::Unicode::is_wordchar(code);
  return (code >= 'a' && code <= 'z') || (code >= 'A' && code <= 'Z') ||
         (code >= '0' && code <= '9') || code == '_';
}

bool IsDigit(unsigned code) {
  return Xapian::Unicode::get_category(code) == Xapian::Unicode::DECIMAL_DIGIT_NUMBER;
}

bool IsCapital(unsigned code) { return code >= 'A' && code <= 'Z'; }

// A term that has grown too long only has to stay so.
void Append(std::string *term, unsigned code) {
  if (term->size() > kTermSize) return;
  if (code < 0x80)
    *term += static_cast<char>(IsCapital(code) ? code - 'A' + 'a' : code);
  else
    Xapian::Unicode::append_utf8(*term, Xapian::Unicode::tolower(code));
}

// What joins two parts of a word, as it stands in the term.
constexpr unsigned kNoJoint = 0;
constexpr unsigned kNothing = 1;

unsigned JointOf(unsigned code, bool digits) {
  switch (code) {
    case 0x200b:  // what has no width
    case 0x200c:
    case 0x200d:
    case 0x2060:
    case 0xfeff: return kNothing;
    case ',':  // between two digits
    case '.':
    case ';':
    case 0x037e:
    case 0x0589:
    case 0x060d:
    case 0x07f8:
    case 0x2044:
    case 0xfe10:
    case 0xfe13:
    case 0xfe14: return digits ? code : kNoJoint;
    case 0x2019:  // apostrophes
    case 0x201b: return digits ? kNoJoint : '\'';
    case '\'':
    case '&':
    case 0x00b7:
    case 0x05f4:
    case 0x2027: return digits ? kNoJoint : code;
    default: return kNoJoint;
  }
}

// "U.N." is "un"; a letter alone is none of these, nor is one with a word behind it.
bool TakeInitials(Reader *reader, std::string *term) {
  Reader ahead = *reader;
  while (IsCapital(Code(ahead))) {
    Append(term, Code(ahead));
    Step(&ahead);
    if (Code(ahead) != '.') break;
    Step(&ahead);
  }
  if (term->size() > 1 && !IsWordCharacter(Code(ahead))) {
    *reader = ahead;
    return true;
  }
  term->clear();
  return false;
}

// Letters and digits and what joins them.
void TakeParts(Reader *reader, std::string *term) {
  while (true) {
    unsigned last = 0;
    for (unsigned code = Code(*reader); IsWordCharacter(code); code = Code(*reader)) {
      Append(term, code);
      last = code;
      Step(reader);
    }
    if (reader->AtEnd()) return;
    Reader ahead = *reader;
    Step(&ahead);
    const unsigned next = Code(ahead);
    if (!IsWordCharacter(next)) return;
    const unsigned joint = JointOf(Code(*reader), IsDigit(last) && IsDigit(next));
    if (joint == kNoJoint) return;
    if (joint != kNothing) Append(term, joint);
    *reader = ahead;
  }
}

// Up to three of "+" and "#", where no word follows.
void TakeSigns(Reader *reader, std::string *term) {
  constexpr std::size_t kMost = 3;
  const auto is_sign = [](unsigned code) { return code == '+' || code == '#'; };
  std::size_t signs = 0;
  while (signs <= kMost && reader->at + signs < reader->text.size() &&
         is_sign(static_cast<unsigned char>(reader->text[reader->at + signs])))
    ++signs;
  if (signs > kMost || IsWordCharacter(Code({reader->text, reader->at + signs}))) return;
  for (; signs > 0; --signs, Step(reader)) Append(term, Code(*reader));
}

bool TakeWord(Reader *reader, Word *word) {
  while (!IsWordCharacter(Code(*reader))) {
    if (reader->AtEnd()) return false;
    Step(reader);
  }
  word->place.begin = reader->at;
  word->term.clear();
  if (!TakeInitials(reader, &word->term)) {
    TakeParts(reader, &word->term);
    TakeSigns(reader, &word->term);
  }
  word->place.end = reader->at;
  return true;
}

// The indexer stems what begins with a letter.
bool IsStemmed(const std::string &term) {
  switch (Xapian::Unicode::get_category(Character_At(term, 0).code)) {
    case Xapian::Unicode::LOWERCASE_LETTER:
    case Xapian::Unicode::TITLECASE_LETTER:
    case Xapian::Unicode::MODIFIER_LETTER:
    case Xapian::Unicode::OTHER_LETTER: return true;
    default: return false;
  }
}

bool IsOneOf(const std::vector<std::string> &words, const std::string &word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// Stemming takes most of the time that finding words does.
bool MayHaveStem(const Wanted &wanted, const std::string &term) {
  return !wanted.keeps_start ||
         std::any_of(wanted.words.begin(), wanted.words.end(), [&](const std::string &word) {
           return !word.empty() && word.front() == term.front();
         });
}

bool IsWanted(const Wanted &wanted, const std::string &term) {
  if (term.size() > kTermSize) return false;
  if (IsOneOf(wanted.words, term)) return true;
  return !wanted.stem.is_none() && MayHaveStem(wanted, term) && IsStemmed(term) &&
         IsOneOf(wanted.words, wanted.stem(term));
}

std::string InSmallLetters(std::string_view text) {
  std::string small;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = Character_At(text, at);
    Xapian::Unicode::append_utf8(small, Xapian::Unicode::tolower(character.code));
    at += character.size;
  }
  return small;
}

}  // namespace

Wanted Words_Wanted(const std::string &language, const std::vector<std::string> &words) {
  Wanted wanted = {{}, language == "english", {}};
  if (!language.empty()) wanted.stem = Xapian::Stem(language);
  for (const std::string &word : words) wanted.words.push_back(InSmallLetters(word));
  return wanted;
}

Spans Words_Find(const Wanted &wanted, std::string_view text, std::size_t size, std::size_t most) {
  Spans found;
  if (wanted.words.empty()) return found;
  Reader reader = {text, 0};
  Word word;
  while (found.size() < most && TakeWord(&reader, &word) && word.place.begin < size)
    if (IsWanted(wanted, word.term)) found.push_back(word.place);
  return found;
}
