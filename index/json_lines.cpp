#include "index/json_lines.h"

#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

constexpr std::size_t kMostDepth = 32;

// Sees the parts of one object in their order.  The parser keeps its place in an array of its own,
// so that no depth of the input reaches the stack.  Each function is false where the object is not
// to be read on; expected then says why.
class Visitor : public json::json_sax_t {
 public:
  explicit Visitor(Fields *fields) : fields_(fields) {}
  const std::string &Expected() const { return expected_; }

  bool null() override { return InObject(); }
  bool boolean(bool value) override { return Add(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { return Add(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { return Add(std::to_string(value)); }
  bool number_float(number_float_t, const string_t &text) override { return Add(text); }
  bool string(string_t &text) override { return Add(text); }
  bool binary(binary_t &) override { return false; }  // JSON has none

  bool start_object(std::size_t) override {
    if (!GoDown()) return false;
    names_.push_back(path_.size());
    return true;
  }
  bool key(string_t &name) override {
    path_.resize(names_.back());
    if (!path_.empty()) path_ += '.';
    path_ += name;
    return true;
  }
  bool end_object() override {
    path_.resize(names_.back());
    names_.pop_back();
    --depth_;
    return true;
  }
  bool start_array(std::size_t) override { return InObject() && GoDown(); }
  bool end_array() override {
    --depth_;
    return true;
  }
  bool parse_error(std::size_t position, const std::string &,
                   const nlohmann::detail::exception &) override {
    expected_ =
        "expected a JSON object on one line; it is wrong at byte " + std::to_string(position);
    return false;
  }

 private:
  bool Refuse(std::string expected) {
    expected_ = std::move(expected);
    return false;
  }
  bool InObject() {
    return !names_.empty() || Refuse("expected a JSON object on one line, not another value");
  }
  bool GoDown() {
    return ++depth_ <= kMostDepth || Refuse("expected objects and arrays at most 32 deep");
  }
  bool Add(std::string_view text) {
    if (!InObject()) return false;
    if (!Field_IsName(path_)) return Refuse(Reader_ExpectedName(path_));
    if (fields_->size() == kMostValues) return Refuse(kExpectedValues);
    fields_->push_back({path_, ""});
    Reader_Append(&fields_->back().value, text);
    return true;
  }

  Fields *fields_;
  std::string path_;                // the name of the field that comes next
  std::vector<std::size_t> names_;  // of each open object, how much of path_ leads to it
  std::size_t depth_ = 0;
  std::string expected_;
};

}  // namespace

ReadResult JsonLines_Read(Reader *reader, Fields *fields) {
  std::string_view line;
  do {
    const LineResult result = Lines_Next(&reader->lines, kMostRecord, &line);
    if (result == LineResult::kEnd) return ReadResult::kEnd;
    if (result == LineResult::kFailed) return ReadResult::kFailed;
    reader->line = reader->lines.number;
    if (result == LineResult::kTooLong) return Reader_Bad(reader, kExpectedSize);
    fields->clear();
    Visitor visitor(fields);
    if (!Reader_Trim(line).empty() && !json::sax_parse(line, &visitor))
      return Reader_Bad(reader, visitor.Expected());
  } while (fields->empty());
  return ReadResult::kDocument;
}
