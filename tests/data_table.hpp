// Test cases kept as tables in tests/data: one case a line, fields separated by tabs.
#ifndef WSI_TESTS_DATA_TABLE_HPP
#define WSI_TESTS_DATA_TABLE_HPP

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace wsi_test {

// One case: its fields, unescaped, and the line it stands on (for failure messages).
struct Row {
  std::vector<std::string> fields;
  int line;
  const std::string& operator[](std::size_t i) const { return fields.at(i); }
};

// Undoes the escapes a field may hold so that any byte can be written: \t \n \r \0 \\ \xHH, and
// \e for a field that is meant to be empty.
inline std::string unescapeField(const std::string& raw) {
  static const std::string kLetters = "tnr0e", kBytes("\t\n\r\0", 4);  // \e stands for nothing
  std::string out;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] != '\\' || i + 1 == raw.size()) {
      out += raw[i];
    } else if (raw[++i] == 'x') {
      if (i + 2 >= raw.size()) throw std::runtime_error("truncated \\x escape: " + raw);
      out += static_cast<char>(std::stoi(raw.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      const std::size_t at = kLetters.find(raw[i]);
      out += at == std::string::npos ? std::string(1, raw[i]) : kBytes.substr(at, 1);
    }
  }
  return out;
}

// The rows of tests/data/<name> but blank and '#' lines, split at tabs and unescaped; throws for a
// missing or empty table, so that it never passes as an empty one.
inline std::vector<Row> readTable(const std::string& name) {
  const std::string path = std::string(WSI_TEST_DATA) + "/" + name;
  std::ifstream in(path.c_str(), std::ios::binary);
  if (!in) throw std::runtime_error("cannot read test table " + path);
  std::vector<Row> rows;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.empty() || line[0] == '#') continue;
    Row row{{}, number};
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, '\t');)
      row.fields.push_back(unescapeField(field));
    if (line.back() == '\t') row.fields.push_back(std::string());
    rows.push_back(row);
  }
  if (rows.empty()) throw std::runtime_error("empty test table " + path);
  return rows;
}

}  // namespace wsi_test

#endif  // WSI_TESTS_DATA_TABLE_HPP
