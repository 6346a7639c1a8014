#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Text measured as terminals draw it: in cells, of which wide characters take two and combining marks none.
namespace velotide::client {

// Text from elsewhere as it may be shown: what steers terminals or hides (control, format, private and
// unassigned characters, line ends of any kind) becomes "?", and marks beyond what a cell carries are left
// out.
std::string shownText(std::string_view text);

// Of text that came from shownText.
std::size_t cellsOf(std::string_view text);

// At most `cells` wide; "…" stands for what was cut off at the end, or at the beginning.
std::string keepBeginning(std::string_view text, std::size_t cells);
std::string keepEnd(std::string_view text, std::size_t cells);

// Exactly `cells` wide.
std::string alignLeft(std::string_view text, std::size_t cells);
std::string alignRight(std::string_view text, std::size_t cells);

}  // namespace velotide::client
