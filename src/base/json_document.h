#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace velotide {

// One value or structural mark of a parsed JSON text. `length` is the byte length of a text or key; for an
// opening mark it is the distance to the token behind its closing mark, so that a value is skipped in one
// step.
struct JsonToken {
  enum class Kind : std::uint8_t {
    null,
    boolean,
    integer,  // negative
    natural,
    real,
    text,
    key,
    openObject,
    closeObject,
    openArray,
    closeArray,
  };
  Kind kind = Kind::null;
  std::uint32_t length = 0;
  union {
    bool boolean;
    std::int64_t integer;
    std::uint64_t natural = 0;
    double real;
    const char* text;
  };

  std::string_view view() const { return {text, length}; }
};

// A strictly parsed JSON text as a flat list of tokens. Parsing is iterative (depth costs memory, never
// stack), refuses invalid UTF-8 and anything behind the value, and works in place: texts are views into the
// parsed buffer. A document is reusable and keeps a bounded amount of memory between uses.
class JsonDocument {
 public:
  // Parses `text`, which is changed, must stay alive while the tokens are used and must be followed by at
  // least ByteQueue::padding bytes of which the first may be overwritten. False when it is not one JSON
  // value; the tokens are then meaningless.
  bool parse(std::span<char> text);

  // Positioned at the value. Valid until the next parse.
  class Cursor;
  Cursor root() const;

 private:
  static constexpr std::size_t keptTokens = 4096;

  std::vector<JsonToken> tokens_;
};

// Walks over the tokens of a document. Reading a value moves behind it; reading one of another type answers
// nothing and leaves the cursor where it is.
class JsonDocument::Cursor {
 public:
  explicit Cursor(const JsonToken* at) : at_(at) {}

  bool takeNull();
  std::optional<bool> takeBoolean();
  // Whole numbers, however written (1, 1.0, 1e2), that fit the type. One with a fraction or an exponent is
  // judged as the double that it rounds to.
  std::optional<std::int64_t> takeInteger();
  std::optional<std::uint64_t> takeNatural();
  std::optional<double> takeReal();
  std::optional<std::string_view> takeText();

  // enterObject, then nextKey before each value until it answers nothing (the object is then left behind).
  bool enterObject();
  std::optional<std::string_view> nextKey();
  // enterArray, then a value after each true of nextElement.
  bool enterArray();
  bool nextElement();

  void skipValue();

 private:
  bool enter(JsonToken::Kind kind);

  const JsonToken* at_;
};

// Whether a text is one JSON value whose top level is an object or an array. Iterative, like the document.
bool isJsonObjectOrArray(std::string_view text);

}  // namespace velotide
