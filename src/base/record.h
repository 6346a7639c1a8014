#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "base/base64.h"
#include "base/bytes.h"
#include "base/json_document.h"
#include "base/json_writer.h"
#include "base/time.h"
#include "base/uuid.h"

// Records and their JSON form. A record is an aggregate that names its fields once, in the order and with the
// names of its JSON keys:
//
//   struct Cursor {
//     Uuid generation;
//     std::optional<std::string> note;   // may be absent or null, is never written as null
//     bool operator==(const Cursor&) const = default;
//     static void fields(auto& self, auto& visit) {
//       visit("generation", self.generation);
//       visit("note", self.note);
//     }
//   };
//
// An enumeration that travels lists its raw words beside its cases, in their order:
//
//   enum class Origin { human, machine };
//   constexpr auto rawWords(Origin) { return std::array{"human", "machine"}; }
//
// A field with a default, `visit("limit", self.limit, record::defaulted)`, is always written; when it is
// absent or null it keeps the value it was initialised with.
//
// Decoding is strict: required keys present and of their type, integers whole and in range, enumerations by
// their raw word, UUIDs and base64 well-formed; unknown keys are skipped. A record has at most 64 fields.

namespace velotide {

template <typename T>
concept Enumerated = std::is_enum_v<T> && requires(T value) {
  rawWords(value);
};

template <Enumerated E>
constexpr std::string_view rawWord(E value) {
  return rawWords(value)[static_cast<std::size_t>(value)];
}

template <Enumerated E>
constexpr std::optional<E> fromRawWord(std::string_view word) {
  const auto words = rawWords(E{});
  for (std::size_t index = 0; index < words.size(); ++index) {
    if (words[index] == word) return static_cast<E>(index);
  }
  return std::nullopt;
}

namespace record {

struct Defaulted {};
inline constexpr Defaulted defaulted;

struct AnyVisitor {
  void operator()(const char*, auto&, Defaulted = {}) {}
};

template <typename T>
inline constexpr bool isOptional = false;
template <typename T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <typename T>
inline constexpr bool isList = false;
template <typename T>
inline constexpr bool isList<std::vector<T>> = true;
template <>
inline constexpr bool isList<Bytes> = false;

}  // namespace record

template <typename T>
concept Record = requires(T& value, record::AnyVisitor& visit) {
  T::fields(value, visit);
};

// Appends `value` to `out`.
template <typename T>
void encode(JsonWriter& out, const T& value);

// Reads one value of the type of `value`. False when the JSON value is not one; `value` is then unspecified.
template <typename T>
bool decode(JsonDocument::Cursor& in, T& value);

// The JSON text of a record, appended to `out`. False, with `out` unchanged, when a number in it is not
// finite.
template <Record T>
bool encodeText(ByteQueue& out, const T& value) {
  const std::size_t before = out.size();
  JsonWriter writer(out);
  encode(writer, value);
  if (!writer.good()) out.dropBack(out.size() - before);
  return writer.good();
}

// The record that `text` is, parsed in place by `document` (see JsonDocument::parse for what `text` must
// allow).
template <Record T>
std::optional<T> decodeText(JsonDocument& document, std::span<char> text) {
  std::optional<T> value(std::in_place);
  if (!document.parse(text)) return std::nullopt;
  JsonDocument::Cursor cursor = document.root();
  if (!decode(cursor, *value)) return std::nullopt;
  return value;
}

namespace record {

struct FieldWriter {
  JsonWriter& out;

  template <typename T>
  void operator()(const char* name, const T& field, Defaulted = {}) {
    if constexpr (isOptional<T>) {
      if (!field) return;
      out.key(name);
      encode(out, *field);
    } else {
      out.key(name);
      encode(out, field);
    }
  }
};

// Offers one key to every field of a record; the field of that name takes the value.
struct FieldReader {
  JsonDocument::Cursor& in;
  std::string_view key;
  std::uint64_t& seen;
  std::uint64_t bit = 1;
  bool taken = false;
  bool good = true;

  template <typename T>
  void operator()(const char* name, T& field) {
    if (!taken && key == name) {
      taken = true;
      good = decode(in, field);
      seen |= bit;
    }
    bit <<= 1;
  }

  template <typename T>
  void operator()(const char* name, T& field, Defaulted) {
    if (!taken && key == name && in.takeNull()) taken = true;
    (*this)(name, field);
  }
};

struct RequiredFields {
  std::uint64_t seen;
  std::uint64_t bit = 1;
  bool present = true;

  template <typename T>
  void operator()(const char*, T&) {
    if (!isOptional<T> && (seen & bit) == 0) present = false;
    bit <<= 1;
  }

  void operator()(const char*, auto&, Defaulted) { bit <<= 1; }
};

template <Record T>
bool decodeFields(JsonDocument::Cursor& in, T& value) {
  if (!in.enterObject()) return false;
  std::uint64_t seen = 0;
  while (const std::optional<std::string_view> key = in.nextKey()) {
    FieldReader visit{in, *key, seen};
    T::fields(value, visit);
    if (!visit.good) return false;
    if (!visit.taken) in.skipValue();
  }
  RequiredFields required{seen};
  T::fields(value, required);
  return required.present;
}

template <typename T, typename Found>
bool assign(T& value, const std::optional<Found>& found) {
  if (found) value = static_cast<T>(*found);
  return found.has_value();
}

template <typename T>
bool decodeInteger(JsonDocument::Cursor& in, T& value) {
  if constexpr (std::is_unsigned_v<T>) {
    static_assert(sizeof(T) == 8);
    return assign(value, in.takeNatural());
  } else {
    const std::optional<std::int64_t> found = in.takeInteger();
    if (!found || *found < std::numeric_limits<T>::min() || *found > std::numeric_limits<T>::max())
      return false;
    value = static_cast<T>(*found);
    return true;
  }
}

template <typename T>
bool decodeFromText(JsonDocument::Cursor& in, T& value, auto parse) {
  const std::optional<std::string_view> text = in.takeText();
  if (!text) return false;
  std::optional<T> parsed = parse(*text);
  if (parsed) value = std::move(*parsed);
  return parsed.has_value();
}

template <typename T>
bool decodeList(JsonDocument::Cursor& in, std::vector<T>& list) {
  if (!in.enterArray()) return false;
  list.clear();
  while (in.nextElement()) {
    if (!decode(in, list.emplace_back())) return false;
  }
  return true;
}

inline bool decodeMap(JsonDocument::Cursor& in, std::map<std::string, std::string>& map) {
  if (!in.enterObject()) return false;
  map.clear();
  while (const std::optional<std::string_view> key = in.nextKey()) {
    if (!decode(in, map[std::string(*key)])) return false;
  }
  return true;
}

}  // namespace record

template <typename T>
void encode(JsonWriter& out, const T& value) {
  if constexpr (Record<const T>) {
    out.beginObject();
    record::FieldWriter visit{out};
    T::fields(value, visit);
    out.endObject();
  } else if constexpr (record::isList<T>) {
    out.beginArray();
    for (const auto& element : value) encode(out, element);
    out.endArray();
  } else if constexpr (std::is_same_v<T, std::map<std::string, std::string>>) {
    out.beginObject();
    for (const auto& [name, text] : value) {
      out.key(name);
      out.text(text);
    }
    out.endObject();
  } else if constexpr (std::is_same_v<T, bool>) {
    out.boolean(value);
  } else if constexpr (Enumerated<T>) {
    out.text(rawWord(value));
  } else if constexpr (std::is_integral_v<T>) {
    std::is_unsigned_v<T> ? out.natural(static_cast<std::uint64_t>(value))
                          : out.integer(static_cast<std::int64_t>(value));
  } else if constexpr (std::is_same_v<T, double>) {
    out.real(value);
  } else if constexpr (std::is_same_v<T, Date>) {
    out.real(value.sinceReference);
  } else if constexpr (std::is_same_v<T, Uuid>) {
    out.text(value.text());
  } else if constexpr (std::is_same_v<T, CarriedBytes>) {
    out.bytes(value);
  } else {
    static_assert(std::is_convertible_v<T, std::string_view>);
    out.text(value);
  }
}

template <typename T>
bool decode(JsonDocument::Cursor& in, T& value) {
  if constexpr (record::isOptional<T>) {
    value.reset();
    return in.takeNull() || decode(in, value.emplace());
  } else if constexpr (Record<T>) {
    return record::decodeFields(in, value);
  } else if constexpr (record::isList<T>) {
    return record::decodeList(in, value);
  } else if constexpr (std::is_same_v<T, std::map<std::string, std::string>>) {
    return record::decodeMap(in, value);
  } else if constexpr (std::is_same_v<T, bool>) {
    return record::assign(value, in.takeBoolean());
  } else if constexpr (Enumerated<T>) {
    return record::decodeFromText(in, value, fromRawWord<T>);
  } else if constexpr (std::is_integral_v<T>) {
    return record::decodeInteger(in, value);
  } else if constexpr (std::is_same_v<T, double>) {
    return record::assign(value, in.takeReal());
  } else if constexpr (std::is_same_v<T, Date>) {
    return record::assign(value.sinceReference, in.takeReal());
  } else if constexpr (std::is_same_v<T, Uuid>) {
    return record::decodeFromText(in, value, Uuid::parse);
  } else if constexpr (std::is_same_v<T, CarriedBytes>) {
    return record::decodeFromText(in, value, [](std::string_view text) {
      auto bytes = decodeBase64(text);
      return bytes ? std::optional(CarriedBytes(std::move(*bytes))) : std::nullopt;
    });
  } else {
    static_assert(std::is_same_v<T, std::string>);
    return record::assign(value, in.takeText());
  }
}

}  // namespace velotide
