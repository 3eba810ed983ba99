// protocol/pair.h: NAME=VALUE pairs in the text of a message.
#ifndef PROTOCOL_PAIR_H
#define PROTOCOL_PAIR_H

#include <cstddef>
#include <string_view>

// Finds the n-th field `tag` that follows a tab in text (occurrence 1 is the first) and copies the
// whole NAME=VALUE into out.  *len is the longest pair accepted, out has room for one byte more;
// *len becomes the pair's length.  1, or 0: not there, no separator behind it, or too long, each
// logged.
int Util_Search4Pair(const char *text, char *out, int *len, const char *tag, int occurrence);

// Parts pair at its first delimiter, in place.  False: there is none, logged at 103.
bool Util_SplitView(std::string_view pair, std::string_view *name, std::string_view *value,
                    char delimiter);

// As Util_SplitPair, with the sizes of both outputs, terminators included.
int Util_SplitInto(std::string_view pair, char *name, std::size_t name_size, char *value,
                   std::size_t value_size, char delimiter);

// Copies what stands before and behind the first delimiter.  1, or 0: there is no delimiter, or a
// piece is longer than its output; both logged at 103.
template <std::size_t N, std::size_t V>
int Util_SplitPair(std::string_view pair, char (&name)[N], char (&value)[V], char delimiter) {
  return Util_SplitInto(pair, name, N, value, V, delimiter);
}

#endif
