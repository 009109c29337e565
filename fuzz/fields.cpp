// The fields of a fuzz input.
#include "fields.hpp"

namespace fuzz {

std::vector<std::string> splitFields(const std::uint8_t* data, std::size_t size,
                                     std::size_t max_bytes) {
  std::vector<std::string> fields(1);
  std::size_t total = 0;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '|') {
      fields.emplace_back();
      continue;
    }
    std::size_t count = 1;
    char c = static_cast<char>(data[i]);
    if (data[i] == 0xFF && size - i > 3) {
      count = static_cast<std::size_t>(data[i + 1]) << 8 | data[i + 2];
      c = static_cast<char>(data[i + 3]);
      i += 3;
    }
    if (count > max_bytes - total) count = max_bytes - total;
    fields.back().append(count, c);
    total += count;
  }
  return fields;
}

const std::string& fieldAt(const std::vector<std::string>& fields, std::size_t index) {
  static const std::string empty;
  return index < fields.size() ? fields[index] : empty;
}

}  // namespace fuzz
