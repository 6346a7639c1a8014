#include "end_to_end/json_text.h"

#include <charconv>
#include <stdexcept>

namespace velotide::bench {
namespace {

// What follows `"name":`.
std::optional<std::string_view> findValue(std::string_view record, std::string_view name) {
  const std::string key = jsonText(name) + ":";
  const std::size_t at = record.find(key);
  if (at == std::string_view::npos) return std::nullopt;
  return record.substr(at + key.size());
}

[[noreturn]] void failWithout(std::string_view name, std::string_view record) {
  throw std::runtime_error("no " + std::string(name) + " in " + std::string(record.substr(0, 500)));
}

}  // namespace

std::string jsonText(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') quoted += '\\';
    quoted += character;
  }
  return quoted += '"';
}

std::string jsonList(const std::vector<std::string>& texts) {
  std::string list = "[";
  for (const std::string& text : texts) {
    if (list.size() > 1) list += ',';
    list += jsonText(text);
  }
  return list += ']';
}

std::optional<std::string_view> findText(std::string_view record, std::string_view name) {
  const auto value = findValue(record, name);
  if (!value || !value->starts_with('"')) return std::nullopt;
  return value->substr(1, value->find('"', 1) - 1);
}

std::optional<std::uint64_t> findNumber(std::string_view record, std::string_view name) {
  const auto value = findValue(record, name);
  std::uint64_t number = 0;
  if (!value || std::from_chars(value->data(), value->data() + value->size(), number).ec != std::errc()) {
    return std::nullopt;
  }
  return number;
}

std::string requireText(std::string_view record, std::string_view name) {
  const auto text = findText(record, name);
  if (!text) failWithout(name, record);
  return std::string(*text);
}

std::uint64_t requireNumber(std::string_view record, std::string_view name) {
  const auto number = findNumber(record, name);
  if (!number) failWithout(name, record);
  return *number;
}

}  // namespace velotide::bench
