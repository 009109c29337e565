// The name-table blocks shared by the diagnostic dumps of every request and response.
#ifndef WSI_COMMON_DUMP_HPP
#define WSI_COMMON_DUMP_HPP

#include <ostream>

#include <wsi/interface.hpp>

namespace wsi {

// Writes `title` on a line of its own, then "  None." when `map` is empty, otherwise one line
// "  [k] name=value" for each entry in order of first insertion, k counting from 1. Every line
// ends with std::endl.
void _dumpMap(std::ostream& os, const char* title, const OrderedNameTable& map);

// The "Server Variable(s):" block: the same lines as _dumpMap, numbered in the table's name
// order.
void _dumpServerVariables(std::ostream& os, const NameTable& map);

}  // namespace wsi

#endif  // WSI_COMMON_DUMP_HPP
