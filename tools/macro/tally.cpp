#include "tools/macro/tally.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr std::size_t kMoveMost = 1000000;   // numbers that one look-up may touch
constexpr std::size_t kWorkMost = 20000000;  // and all of them

std::size_t Shown(const Place &place) { return std::min(place.most, kValueMost + 1); }

void Merge(const Tally &tally, Tally *into) {
  into->times.resize(tally.times.size());
  for (std::size_t i = 0; i < tally.times.size(); ++i)
    into->times[i] = std::max(into->times[i], tally.times[i]);
  into->bytes = std::max(into->bytes, tally.bytes);
}

// The cursor may have come from elsewhere, whatever was written before.
void Follow(Pass *pass) {
  std::map<Spot, Tally> &values = pass->output.values;
  const auto has = [&](const Spot &spot) { return values.contains(spot); };
  const bool is_moved = pass->output.is_moved;
  pass->output.is_moved = false;
  if (!is_moved && values.size() == pass->cursor.size() &&
      std::all_of(pass->cursor.begin(), pass->cursor.end(), has))
    return;
  Tally merged;
  for (const auto &[spot, tally] : values) Merge(tally, &merged);
  values.clear();
  for (const Spot &spot : pass->cursor) values[spot] = merged;
}

std::size_t WorkOf(const Pass &pass, const std::vector<Move> &moves) {
  std::size_t work = 0;
  for (const Move &move : moves) work += (move.found.places.size() + 1) * (Pass_Count(pass) + 1);
  return work;
}

// What is written, whatever spot it is written from.
void AddOverall(Pass *pass, const std::vector<Move> &moves) {
  Output &output = pass->output;
  std::set<std::size_t> places;
  for (const Move &move : moves) places.insert(move.found.places.begin(), move.found.places.end());
  std::size_t most = 0;
  for (const std::size_t place : places)
    most = std::max(most, Shown(pass->documents.places[place]));
  output.overall.bytes += most;
  if (places.size() == 1)
    ++output.overall.times[*places.begin()];
  else
    output.several += most;
}

void MoveEach(Pass *pass, const std::vector<Move> &moves, bool is_written) {
  std::map<Spot, Tally> values;
  const auto arrive = [&](const Spot &spot, const Tally &tally) {
    const auto [at, is_new] = values.emplace(spot, tally);
    if (!is_new) Merge(tally, &at->second);
  };
  for (const Move &move : moves) {
    const Tally &before = pass->output.values[move.from];
    if (move.found.may_miss) arrive(move.from, before);
    for (const std::size_t place : move.found.places) {
      Tally tally = before;
      if (is_written) {
        ++tally.times[place];
        tally.bytes += Shown(pass->documents.places[place]);
      }
      arrive({place, true}, tally);
    }
  }
  pass->output.values = values;
}

// Bytes of a place that is written: all that it adds, in how much room.
struct Piece {
  std::uint64_t bytes;
  std::uint64_t room;
};

bool IsDenser(const Piece &a, const Piece &b) { return a.bytes * b.room > b.bytes * a.room; }

// What adds most for its room takes it first, and the last one a part of its own: no document holds
// more.
std::size_t MostOf(const Pass &pass, const std::vector<std::size_t> &times) {
  const std::vector<Place> &places = pass.documents.places;
  std::uint64_t frame = 2, all = 0, most = 0;
  std::vector<Piece> pieces;
  for (std::size_t i = 0; i < places.size(); ++i) {
    const std::uint64_t name = places[i].name.size() + 2, bytes = times[i] * Shown(places[i]);
    if (places[i].always) frame += name;
    all += bytes;
    if (bytes > 0) pieces.push_back({bytes, Shown(places[i]) + (places[i].always ? 0 : name)});
  }
  std::uint64_t room = kDocumentMost - std::min<std::uint64_t>(frame, kDocumentMost);
  if (all <= room) return static_cast<std::size_t>(all);
  std::sort(pieces.begin(), pieces.end(), IsDenser);
  for (const Piece &piece : pieces) {
    if (piece.room <= room)
      most += piece.bytes;
    else
      return static_cast<std::size_t>(most + (piece.bytes * room + piece.room - 1) / piece.room);
    room -= piece.room;
  }
  return static_cast<std::size_t>(most);
}

}  // namespace

void Tally_Move(Pass *pass, const std::vector<Move> &moves, bool is_written) {
  Output &output = pass->output;
  if (is_written) AddOverall(pass, moves);
  output.is_new = true;
  const std::size_t work = WorkOf(*pass, moves);
  output.work += work;
  output.merged |= work > kMoveMost || output.work > kWorkMost;
  if (output.merged) return output.values.clear();
  Follow(pass);
  MoveEach(pass, moves, is_written);
}

std::size_t Tally_Most(Pass *pass, std::size_t enough) {
  Output &output = pass->output;
  if (output.overall.bytes <= enough) return output.overall.bytes;
  if (!output.is_new) return output.most;
  const std::size_t overall = output.several + MostOf(*pass, output.overall.times);
  std::size_t most = output.merged ? overall : 0;
  for (const auto &[spot, tally] : output.values)
    most = std::max(most, std::min(tally.bytes, MostOf(*pass, tally.times)));
  output.work += output.values.size() * Pass_Count(*pass);
  output.is_new = false;
  output.most = std::min(most, overall);
  return output.most;
}
