// The fields of a fuzz input, for the targets that need several texts from one input.
#ifndef WSI_FUZZ_FIELDS_HPP
#define WSI_FUZZ_FIELDS_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

// The input split at every '|' (so n separators give n + 1 fields). Inside a field, the four bytes
// 0xFF, hi, lo, c stand for hi * 256 + lo copies of the byte c, so that a short input can describe
// a huge text; the expanded fields together hold at most `max_bytes` bytes, runs beyond that are
// cut. A 0xFF with fewer than three bytes after it stands for itself.
std::vector<std::string> splitFields(const std::uint8_t* data, std::size_t size,
                                     std::size_t max_bytes);

// The field at `index`, or the empty text when there are fewer fields.
const std::string& fieldAt(const std::vector<std::string>& fields, std::size_t index);

}  // namespace fuzz

#endif  // WSI_FUZZ_FIELDS_HPP
