#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// JSON by plain text search, enough for the compact records of the wire and for the report. On purpose
// nothing of the project's own record code: a mistake that its coder and decoder share would stay invisible.
namespace velotide::bench {

std::string jsonText(std::string_view text);
std::string jsonList(const std::vector<std::string>& texts);

// The first field of that name, wherever in the record; a text is taken as it stands, with its escapes.
std::optional<std::string_view> findText(std::string_view record, std::string_view name);
std::optional<std::uint64_t> findNumber(std::string_view record, std::string_view name);

std::string requireText(std::string_view record, std::string_view name);
std::uint64_t requireNumber(std::string_view record, std::string_view name);

}  // namespace velotide::bench
