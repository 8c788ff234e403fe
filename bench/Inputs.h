#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Inputs of the benchmarks: the same on every machine and in every run.
namespace bench {

inline constexpr size_t kMegabyte = 1'000'000;

/// So many lower-case words with lengths in the given range.
std::vector<std::string> Words(size_t count, size_t shortest, size_t longest);

/// Words of mixed case, no two of them alike even when case is ignored.
std::vector<std::string> DistinctLines(size_t count);

/// The items, with the separator between them.
std::string Joined(const std::vector<std::string>& items, std::string_view separator);

/// At least so many bytes of such words.
std::string WordText(size_t bytes, size_t shortest, size_t longest, std::string_view separator);

/// So many lower-case letters, among them so many in a hundred of the special bytes.
std::string TextWith(size_t bytes, std::string_view specials, unsigned percent);

/// The text repeated so many times.
std::string Repeated(std::string_view text, size_t times);

} // namespace bench
