#pragma once

#include <string_view>

namespace velotide::AppVersion {

inline constexpr std::string_view displayValue = "v1.257.0-rc3";
inline constexpr std::string_view value = displayValue.substr(1);

}  // namespace velotide::AppVersion
