#include "tools/wire/pattern.h"

#include <algorithm>

#include "tools/common/tool.h"
#include "tools/wire/header.h"

namespace {

constexpr std::size_t kShown = 400;  // bytes of a text that are shown

void AddItem(const Item &item, const Scene &scene, int ordinal, std::string *bytes);

std::string Inside(const Item &item, const Scene &scene, int ordinal) {
  std::string bytes;
  for (const Item &inside : item.inside) AddItem(inside, scene, ordinal, &bytes);
  return bytes;
}

template <typename Map>
std::string ValueOf(const Map &map, const std::string &name) {
  const auto found = map.find(name);
  if (found == map.end()) return {};
  if constexpr (std::is_same_v<typename Map::mapped_type, int>)
    return std::to_string(found->second);
  else
    return found->second;
}

void AddItem(const Item &item, const Scene &scene, int ordinal, std::string *bytes) {
  switch (item.kind) {
    case ItemKind::kLiteral: *bytes += item.text; return;
    case ItemKind::kDir: *bytes += scene.dir; return;
    case ItemKind::kPort: *bytes += ValueOf(scene.ports, item.text); return;
    case ItemKind::kKept: *bytes += ValueOf(scene.kept, item.text); return;
    case ItemKind::kOrdinal: *bytes += std::to_string(ordinal); return;
    case ItemKind::kTimes:
      for (int i = 1; i <= item.count; ++i) *bytes += Inside(item, scene, i);
      return;
    case ItemKind::kN8:
    case ItemKind::kN32: {
      const std::string inside = Inside(item, scene, ordinal);
      const int length = item.kind == ItemKind::kN8 ? 1 : 4;
      for (int i = 0; i < length; ++i) *bytes += static_cast<char>(inside.size() >> (8 * i));
      *bytes += inside;
      return;
    }
    default: *bytes += Inside(item, scene, ordinal); return;
  }
}

// How a match stands: what is left of the bytes, and whether more can come.
struct Rest {
  std::string_view bytes;
  bool ended;
  Scene *scene;
  int ordinal = 0;  // of the times around an item
};

Fit MatchItem(const Item &item, Rest *rest);

Fit MatchBytes(std::string_view wanted, Rest *rest) {
  const std::size_t common = std::min(wanted.size(), rest->bytes.size());
  if (rest->bytes.substr(0, common) != wanted.substr(0, common)) return Fit::kNo;
  if (common < wanted.size()) return rest->ended ? Fit::kNo : Fit::kMore;
  rest->bytes.remove_prefix(common);
  return Fit::kYes;
}

Fit MatchClass(ItemKind kind, Rest *rest) {
  const auto fits = [kind](char c) {
    if (kind == ItemKind::kDigits) return c >= '0' && c <= '9';
    return c != '\n' && (kind == ItemKind::kLine || c != '\t');
  };
  const auto *const end = std::find_if_not(rest->bytes.begin(), rest->bytes.end(), fits);
  const auto count = static_cast<std::size_t>(end - rest->bytes.begin());
  if (end == rest->bytes.end() && !rest->ended) return Fit::kMore;
  if (kind == ItemKind::kDigits && count == 0) return Fit::kNo;
  rest->bytes.remove_prefix(count);
  return Fit::kYes;
}

Fit MatchAll(const std::vector<Item> &items, Rest *rest) {
  for (const Item &item : items) {
    const Fit fit = MatchItem(item, rest);
    if (fit != Fit::kYes) return fit;
  }
  return Fit::kYes;
}

// Holds an item against the rest; what does not fit leaves neither the rest nor what is kept
// changed.
Fit TryItem(const Item &item, Rest *rest) {
  const std::map<std::string, std::string> kept = rest->scene->kept;
  Rest tried = *rest;
  const Fit fit = MatchItem(item, &tried);
  if (fit == Fit::kYes)
    *rest = tried;
  else
    rest->scene->kept = kept;
  return fit;
}

// The first that fits; one that may fit yet is waited for before the next is looked at.
Fit MatchEither(const Item &item, Rest *rest) {
  for (const Item &inside : item.inside) {
    const Fit fit = TryItem(inside, rest);
    if (fit != Fit::kNo) return fit;
  }
  return Fit::kNo;
}

// A field counts when what ends it has come; a token without "=" is a fault of the header.
Fit MatchHeader(Rest *rest) {
  for (HeaderField field; Header_Take(&rest->bytes, &field);) {
  }
  const std::string_view left = rest->bytes;
  const bool may_be_field = left.empty() || ((left[0] == '\t' || left[0] == '\r') &&
                                             (left.size() == 1 || left[1] == '@'));
  if (!may_be_field) return Fit::kYes;
  if (left.find_first_of("\t\r\n", 1) == std::string_view::npos)
    return rest->ended ? Fit::kNo : Fit::kMore;
  return left.substr(1).starts_with("@OPER=") ? Fit::kYes : Fit::kNo;
}

// Whether the header of a line has the command and the fields of the item.
bool HasFields(const Item &item, std::string_view line, const Rest &rest) {
  std::string_view value;
  if (!Header_Find(line, "COMMAND", &value) || value != item.text) return false;
  for (const Item &field : item.inside) {
    if (!Header_Find(line, field.text, &value)) return false;
    Rest inside = {value, true, rest.scene, rest.ordinal};
    if (MatchAll(field.inside, &inside) != Fit::kYes || !inside.bytes.empty()) return false;
  }
  return true;
}

Fit MatchRecord(const Item &item, Rest *rest) {
  const std::size_t end = rest->bytes.find('\n');
  if (end == std::string_view::npos) return rest->ended ? Fit::kNo : Fit::kMore;
  if (!HasFields(item, rest->bytes.substr(0, end + 1), *rest)) return Fit::kNo;
  rest->bytes.remove_prefix(end + 1);
  return Fit::kYes;
}

Fit MatchHeaderOf(const Item &item, Rest *rest) {
  const std::string_view line = rest->bytes;
  const Fit fit = MatchHeader(rest);
  if (fit != Fit::kYes) return fit;
  return HasFields(item, line, *rest) ? Fit::kYes : Fit::kNo;
}

Fit MatchAny(const Item &item, Rest *rest) {
  for (;;) {
    const std::size_t before = rest->bytes.size();
    const Fit fit = TryItem(item.inside[0], rest);
    if (fit == Fit::kMore) return fit;
    if (fit == Fit::kNo || rest->bytes.size() == before) return Fit::kYes;
  }
}

Fit MatchTimes(const Item &item, Rest *rest) {
  const int ordinal = rest->ordinal;
  Fit fit = Fit::kYes;
  for (rest->ordinal = 1; fit == Fit::kYes && rest->ordinal <= item.count; ++rest->ordinal)
    fit = MatchAll(item.inside, rest);
  rest->ordinal = ordinal;
  return fit;
}

Fit MatchKnown(const Item &item, Rest *rest) {
  std::string wanted;
  AddItem(item, *rest->scene, rest->ordinal, &wanted);
  return MatchBytes(wanted, rest);
}

Fit MatchItem(const Item &item, Rest *rest) {
  switch (item.kind) {
    case ItemKind::kDigits:
    case ItemKind::kText:
    case ItemKind::kLine: return MatchClass(item.kind, rest);
    case ItemKind::kEither: return MatchEither(item, rest);
    case ItemKind::kAny: return MatchAny(item, rest);
    case ItemKind::kRecord: return MatchRecord(item, rest);
    case ItemKind::kHeaderOf: return MatchHeaderOf(item, rest);
    case ItemKind::kHeader: return MatchHeader(rest);
    case ItemKind::kGroup: return MatchAll(item.inside, rest);
    case ItemKind::kBytes:
      if (rest->bytes.size() < static_cast<std::size_t>(item.count))
        return rest->ended ? Fit::kNo : Fit::kMore;
      rest->bytes.remove_prefix(static_cast<std::size_t>(item.count));
      return Fit::kYes;
    case ItemKind::kKeep: {
      const std::string_view before = rest->bytes;
      const Fit fit = MatchAll(item.inside, rest);
      if (fit == Fit::kYes)
        rest->scene->kept[item.text] = before.substr(0, before.size() - rest->bytes.size());
      return fit;
    }
    case ItemKind::kTimes:
      return Transcript_HasPattern(item) ? MatchTimes(item, rest) : MatchKnown(item, rest);
    default: return MatchKnown(item, rest);
  }
}

std::string Short(const std::string &bytes) {
  if (bytes.size() <= kShown) return Transcript_Quote(bytes);
  return Transcript_Quote(bytes.substr(0, kShown)) + " and " +
         std::to_string(bytes.size() - kShown) + " bytes more";
}

std::string ShowItem(const Item &item, const Scene &scene) {
  switch (item.kind) {
    case ItemKind::kDigits: return "digits";
    case ItemKind::kText: return "text";
    case ItemKind::kLine: return "line";
    case ItemKind::kHeader: return "header";
    case ItemKind::kBytes: return Tool_Format("bytes %d", item.count);
    case ItemKind::kTimes: {
      if (!Transcript_HasPattern(item)) break;
      return Tool_Format("times %d ", item.count) + ShowItem(item.inside[0], scene);
    }
    case ItemKind::kKeep:
      return std::string("keep ").append(item.text).append(" ") + ShowItem(item.inside[0], scene);
    case ItemKind::kEither: {
      std::string shown = std::string("either ") + ShowItem(item.inside[0], scene);
      for (std::size_t i = 1; i < item.inside.size(); ++i)
        shown += " or " + ShowItem(item.inside[i], scene);
      return shown;
    }
    case ItemKind::kAny: return "any " + ShowItem(item.inside[0], scene);
    case ItemKind::kRecord:
    case ItemKind::kHeaderOf: {
      std::string shown = item.kind == ItemKind::kRecord ? "record " : "header-of ";
      shown += item.text;
      for (const Item &field : item.inside)
        shown += " " + field.text + "=" + ShowItem(field.inside[0], scene);
      return shown;
    }
    default: break;
  }
  if (Transcript_HasPattern(item))
    return std::string("(").append(Pattern_Show(item.inside, scene)).append(")");
  std::string bytes;
  AddItem(item, scene, 0, &bytes);
  return Short(bytes);
}

}  // namespace

std::string Pattern_Bytes(const std::vector<Item> &items, const Scene &scene) {
  std::string bytes;
  for (const Item &item : items) AddItem(item, scene, 0, &bytes);
  return bytes;
}

Fit Pattern_Match(const std::vector<Item> &items, std::string_view bytes, bool ended, Scene *scene,
                  std::size_t *length) {
  Rest rest = {bytes, ended, scene};
  const Fit fit = MatchAll(items, &rest);
  *length = bytes.size() - rest.bytes.size();
  return fit;
}

std::string Pattern_Show(const std::vector<Item> &items, const Scene &scene) {
  std::string shown, bytes;
  const auto add = [&shown](const std::string &text) {
    if (!shown.empty()) shown += ' ';
    shown += text;
  };
  for (const Item &item : items) {
    if (!Transcript_HasPattern(item)) {
      AddItem(item, scene, 0, &bytes);
      continue;
    }
    if (!bytes.empty()) add(Short(bytes));
    bytes.clear();
    add(ShowItem(item, scene));
  }
  if (!bytes.empty()) add(Short(bytes));
  return shown;
}
