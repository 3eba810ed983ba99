// web/trouble.h: what can go wrong with a page.
//
// A trouble has a name, by which the texts, the measures and the log know it, and the HTTP status
// that tells of it while nothing has been sent; behind the first byte it is a notice on the page.
#ifndef WEB_TROUBLE_H
#define WEB_TROUBLE_H

#include <string_view>

enum class Trouble {
  kNone,
  kNoPage,
  kNoGroup,
  kNoDocument,
  kMethod,
  kLongRequest,
  kTooMany,
  kQuery,
  kGone,
  kFailed,
  kBroken,
  kBusy,
  kStopping,
  kTooLate,
  kLostDocument,
  kMissingHits,
  kShards,
};

inline constexpr int kTroubles = 17;

struct TroubleInfo {
  const char *name;
  int status;
};

const TroubleInfo &Trouble_Info(Trouble trouble);

// What an error line of the daemon tells of, by the text behind its header.  *size is that of the
// text where the daemon ends it without a newline, else 0.
Trouble Trouble_OfLine(std::string_view text, std::size_t *size);

// The reason of a Search Manager.
Trouble Trouble_OfReason(std::string_view text);

// The text begins with a reason that is known, or is the beginning of one.
bool Trouble_MayBeReason(std::string_view text);

#endif
