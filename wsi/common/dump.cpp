// The name-table blocks shared by the diagnostic dumps.
#include "wsi/common/dump.hpp"

#include <string>

namespace wsi {
namespace {

// Writes the lines of one block: the title, then "  None." or "  [k] name=value" for each entry
// of [begin, end) in iteration order.
template <class Iterator>
void dumpEntries(std::ostream& os, const char* title, Iterator begin, Iterator end) {
  os << title << std::endl;
  if (begin == end) {
    os << "  None." << std::endl;
    return;
  }
  unsigned long k = 0;
  for (Iterator it = begin; it != end; ++it)
    os << "  [" << ++k << "] " << it->first << '=' << it->second << std::endl;
}

}  // namespace

void _dumpMap(std::ostream& os, const char* title, const OrderedNameTable& map) {
  dumpEntries(os, title, map.begin(), map.end());
}

void _dumpServerVariables(std::ostream& os, const NameTable& map) {
  dumpEntries(os, "Server Variable(s):", map.begin(), map.end());
}

}  // namespace wsi
