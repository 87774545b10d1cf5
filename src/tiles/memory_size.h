#pragma once

#include <cstdint>
#include <optional>
#include <string>

// A memory size as the command line gives it: a whole number of bytes, or with K, M or G
// (binary: 1K = 1024 bytes). Nothing for text that is not such a size or is 0.
std::optional<std::uint64_t> parse_memory_size(const std::string& text);

// The size in the largest of G, M, K that keeps a whole or one-decimal number, rounded up
// ("1.5G", "120M", "512K"), so that the printed size is never below the true one.
std::string format_memory_size(std::uint64_t bytes);
