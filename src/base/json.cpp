// The one door to the JSON library.
#ifdef __SSE2__
#define RAPIDJSON_SSE2
#endif

#include <rapidjson/internal/strtod.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace rapidjson::internal {

// The library's own makes other numbers of zero with a large exponent, of digits that round up to 2^64 and of
// what is larger than every number.
inline double strtodExact(double value, int p, const char* digits, size_t length, size_t decimalPosition,
                          int exp) {
  double result;
  if (StrtodFast(value, p, &result)) return result;
  const std::int64_t scale =
      exp + static_cast<std::int64_t>(decimalPosition) - static_cast<std::int64_t>(length);
  return std::strtod((std::string(digits, length) + 'e' + std::to_string(scale)).c_str(), nullptr);
}

}  // namespace rapidjson::internal

#define StrtodFullPrecision strtodExact
#include <rapidjson/reader.h>
#undef StrtodFullPrecision
#include <rapidjson/writer.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/base64.h"
#include "base/json_document.h"
#include "base/json_writer.h"

namespace velotide {

namespace {

// The library's output stream over a queue. Being a type of our own it also keeps the writer off the
// library's vector path, which lets the control characters 0x1A to 0x1F through unescaped.
struct QueueStream {
  using Ch = char;

  explicit QueueStream(ByteQueue& out) : queue(out) {}
  void Put(char character) {
    queue.reserve(1)[0] = static_cast<std::uint8_t>(character);
    queue.commit(1);
  }
  void Flush() {}

  ByteQueue& queue;
};

}  // namespace

struct JsonWriter::Engine : rapidjson::Writer<QueueStream> {
  explicit Engine(ByteQueue& out) : rapidjson::Writer<QueueStream>(stream), stream(out) {}

  void rawText(const CarriedBytes& value) {
    Prefix(rapidjson::kStringType);
    stream.Put('"');
    appendBase64(stream.queue, value);
    stream.Put('"');
  }

  // A text that nothing has to be escaped in, in one piece.
  void plainText(std::string_view value) {
    Prefix(rapidjson::kStringType);
    std::uint8_t* at = stream.queue.reserve(value.size() + 2).data();
    *at++ = '"';
    at = std::copy(value.begin(), value.end(), at);
    *at = '"';
    stream.queue.commit(value.size() + 2);
  }

  QueueStream stream;
  bool good = true;
};

namespace {

// Without a branch, so that the compiler turns it into a few vector instructions.
bool isPlain(std::string_view text) {
  bool isEscaped = false;
  for (const char character : text) {
    isEscaped |= static_cast<unsigned char>(character) < 0x20 || character == '"' || character == '\\';
  }
  return !isEscaped;
}

}  // namespace

JsonWriter::JsonWriter(ByteQueue& out) : engine_(std::make_unique<Engine>(out)) {}
JsonWriter::~JsonWriter() = default;

void JsonWriter::beginObject() { engine_->StartObject(); }
void JsonWriter::endObject() { engine_->EndObject(); }
void JsonWriter::beginArray() { engine_->StartArray(); }
void JsonWriter::endArray() { engine_->EndArray(); }
void JsonWriter::key(std::string_view name) { text(name); }
void JsonWriter::text(std::string_view value) {
  if (isPlain(value)) return engine_->plainText(value);
  engine_->String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}
void JsonWriter::boolean(bool value) { engine_->Bool(value); }
void JsonWriter::integer(std::int64_t value) { engine_->Int64(value); }
void JsonWriter::natural(std::uint64_t value) { engine_->Uint64(value); }
void JsonWriter::real(double value) { engine_->good &= engine_->Double(value); }
void JsonWriter::bytes(const CarriedBytes& value) { engine_->rawText(value); }
bool JsonWriter::good() const { return engine_->good; }

namespace {

// What the library's vector scan would overlook: invalid UTF-8, and control characters, which may stand in
// JSON text only as white space between tokens. Tab, line feed and carriage return inside a text the reader
// finds itself.
bool isCleanText(std::string_view text) {
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t highBits = 0x80 * ones;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto size = static_cast<std::int64_t>(text.size());
  std::int64_t at = 0;
  while (at < size) {
    std::uint64_t word;
    if (size - at >= 8) {
      std::memcpy(&word, bytes + at, 8);
      const bool plain = ((word | ((word - 0x20 * ones) & ~word)) & highBits) == 0;
      if (plain) {
        at += 8;
        continue;
      }
    }
    UChar32 character;
    U8_NEXT(bytes, at, size, character);
    const bool space = character == '\t' || character == '\n' || character == '\r';
    if (character < 0x20 && !space) return false;
  }
  return true;
}

// A surrogate written as an escape without its other half leaves bytes that are not UTF-8.
bool holdsLoneSurrogate(std::string_view text) {
  for (std::size_t at = text.find('\xED'); at != std::string_view::npos; at = text.find('\xED', at + 1)) {
    if (at + 1 < text.size() && static_cast<std::uint8_t>(text[at + 1]) >= 0xA0) return true;
  }
  return false;
}

// The library's events, turned into tokens.
struct TokenSink {
  explicit TokenSink(std::vector<JsonToken>& list) : tokens(list) {}

  bool Null() { return push(JsonToken::Kind::null), true; }
  bool Bool(bool value) { return push(JsonToken::Kind::boolean).boolean = value, true; }
  bool Int(int value) { return Int64(value); }
  bool Uint(unsigned value) { return Uint64(value); }
  bool Int64(std::int64_t value) {
    if (value >= 0) return Uint64(static_cast<std::uint64_t>(value));
    return push(JsonToken::Kind::integer).integer = value, true;
  }
  bool Uint64(std::uint64_t value) { return push(JsonToken::Kind::natural).natural = value, true; }
  bool Double(double value) { return push(JsonToken::Kind::real).real = value, std::isfinite(value); }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return addText(JsonToken::Kind::text, {text, length});
  }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    return addText(JsonToken::Kind::key, {text, length});
  }
  bool StartObject() { return open(JsonToken::Kind::openObject); }
  bool EndObject(rapidjson::SizeType) { return close(JsonToken::Kind::closeObject); }
  bool StartArray() { return open(JsonToken::Kind::openArray); }
  bool EndArray(rapidjson::SizeType) { return close(JsonToken::Kind::closeArray); }

  JsonToken& push(JsonToken::Kind kind) {
    JsonToken& token = tokens.emplace_back();
    token.kind = kind;
    return token;
  }
  bool addText(JsonToken::Kind kind, std::string_view text) {
    if (holdsLoneSurrogate(text)) return false;
    JsonToken& token = push(kind);
    token.text = text.data();
    token.length = static_cast<std::uint32_t>(text.size());
    return true;
  }
  bool open(JsonToken::Kind kind) {
    // Until the value is closed its token links to the enclosing open one.
    push(kind).length = innermost;
    innermost = static_cast<std::uint32_t>(tokens.size());
    return true;
  }
  bool close(JsonToken::Kind kind) {
    push(kind);
    JsonToken& opening = tokens[innermost - 1];
    const auto span = static_cast<std::uint32_t>(tokens.size()) - (innermost - 1);
    innermost = opening.length;
    opening.length = span;
    return true;
  }

  std::vector<JsonToken>& tokens;
  std::uint32_t innermost = 0;  // index of the innermost open token plus one; 0 at the top
};

using Reader = rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>>;
constexpr unsigned readFlags =
    rapidjson::kParseInsituFlag | rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag;

template <typename Sink>
bool readInPlace(std::span<char> text, Sink& sink) {
  if (!isCleanText({text.data(), text.size()})) return false;
  text.data()[text.size()] = '\0';
  rapidjson::InsituStringStream stream(text.data());
  Reader reader;
  return !reader.Parse<readFlags>(stream, sink).IsError();
}

}  // namespace

bool JsonDocument::parse(std::span<char> text) {
  if (tokens_.capacity() > keptTokens) std::vector<JsonToken>().swap(tokens_);
  tokens_.clear();
  TokenSink sink(tokens_);
  return readInPlace(text, sink);
}

JsonDocument::Cursor JsonDocument::root() const { return Cursor(tokens_.data()); }

bool JsonDocument::Cursor::takeNull() {
  if (at_->kind != JsonToken::Kind::null) return false;
  ++at_;
  return true;
}

std::optional<bool> JsonDocument::Cursor::takeBoolean() {
  if (at_->kind != JsonToken::Kind::boolean) return std::nullopt;
  return (at_++)->boolean;
}

namespace {

// 2^63 and 2^64 as limits for whole numbers that were written with a fraction or an exponent, or are too
// large for 64 bits: those the reader rounds, -2^63 - 1 to -2^63 among them.
constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 18446744073709551616.0;

bool isWholeBetween(const JsonToken& token, double below, double above) {
  return token.kind == JsonToken::Kind::real && token.real > below && token.real < above &&
         std::trunc(token.real) == token.real;
}

}  // namespace

std::optional<std::int64_t> JsonDocument::Cursor::takeInteger() {
  const JsonToken& token = *at_;
  std::optional<std::int64_t> value;
  if (token.kind == JsonToken::Kind::integer) value = token.integer;
  if (token.kind == JsonToken::Kind::natural && token.natural <= INT64_MAX) {
    value = static_cast<std::int64_t>(token.natural);
  }
  if (isWholeBetween(token, -twoTo63, twoTo63)) value = static_cast<std::int64_t>(token.real);
  if (value) ++at_;
  return value;
}

std::optional<std::uint64_t> JsonDocument::Cursor::takeNatural() {
  const JsonToken& token = *at_;
  std::optional<std::uint64_t> value;
  if (token.kind == JsonToken::Kind::natural) value = token.natural;
  if (isWholeBetween(token, -1, twoTo64)) value = static_cast<std::uint64_t>(token.real);
  if (value) ++at_;
  return value;
}

std::optional<double> JsonDocument::Cursor::takeReal() {
  const JsonToken& token = *at_;
  std::optional<double> value;
  if (token.kind == JsonToken::Kind::real) value = token.real;
  if (token.kind == JsonToken::Kind::natural) value = static_cast<double>(token.natural);
  if (token.kind == JsonToken::Kind::integer) value = static_cast<double>(token.integer);
  if (value) ++at_;
  return value;
}

std::optional<std::string_view> JsonDocument::Cursor::takeText() {
  if (at_->kind != JsonToken::Kind::text) return std::nullopt;
  return (at_++)->view();
}

bool JsonDocument::Cursor::enter(JsonToken::Kind kind) {
  if (at_->kind != kind) return false;
  ++at_;
  return true;
}

bool JsonDocument::Cursor::enterObject() { return enter(JsonToken::Kind::openObject); }

std::optional<std::string_view> JsonDocument::Cursor::nextKey() {
  const JsonToken& token = *at_++;
  if (token.kind == JsonToken::Kind::closeObject) return std::nullopt;
  return token.view();
}

bool JsonDocument::Cursor::enterArray() { return enter(JsonToken::Kind::openArray); }

bool JsonDocument::Cursor::nextElement() {
  if (at_->kind != JsonToken::Kind::closeArray) return true;
  ++at_;
  return false;
}

void JsonDocument::Cursor::skipValue() {
  const bool opens = at_->kind == JsonToken::Kind::openObject || at_->kind == JsonToken::Kind::openArray;
  at_ += opens ? at_->length : 1;
}

bool isJsonObjectOrArray(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos || (text[first] != '{' && text[first] != '[')) return false;
  struct : rapidjson::BaseReaderHandler<rapidjson::UTF8<>> {
    bool Default() { return true; }
  } nothing;
  ByteQueue copy;
  copy.append(text);
  return readInPlace(copy.mutableText(), nothing);
}

}  // namespace velotide
