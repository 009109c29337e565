// The host web server's configuration and log-file naming services.
//
// A configuration value comes from the environment first, then from the file named by W3_CONFIG,
// which W3CFG_Initialize reads: one "name=value" a line, split at the first '=', with the blanks
// and tabs around the name and around the value removed (a CR before the LF is dropped too).
// Empty lines, lines whose first non-blank byte is '#' and lines without '=' are skipped; when a
// name is given twice the later line wins.
#include <pthread.h>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>

#include <w3/w3.h>

namespace {

typedef std::map<std::string, std::string> Settings;

// The settings read from the configuration file by the last W3CFG_Initialize.
pthread_mutex_t config_mutex = PTHREAD_MUTEX_INITIALIZER;
Settings config_values;  // guarded by config_mutex

class ConfigLock {
 public:
  ConfigLock() { pthread_mutex_lock(&config_mutex); }
  ~ConfigLock() { pthread_mutex_unlock(&config_mutex); }
  ConfigLock(const ConfigLock&) = delete;
  ConfigLock& operator=(const ConfigLock&) = delete;
};

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

// The text of `line` in [begin, end) without the blanks and tabs at either end.
std::string stripped(const std::string& line, std::string::size_type begin,
                     std::string::size_type end) {
  while (begin < end && isBlank(line[begin]))
    ++begin;
  while (end > begin && isBlank(line[end - 1]))
    --end;
  return line.substr(begin, end - begin);
}

// Adds the setting of one configuration line to `values`, if the line holds one.
void readLine(std::string line, Settings& values) {
  if (!line.empty() && line[line.size() - 1] == '\r') line.erase(line.size() - 1);
  std::string::size_type begin = 0;
  while (begin < line.size() && isBlank(line[begin]))
    ++begin;
  if (begin == line.size() || line[begin] == '#') return;
  const std::string::size_type equal = line.find('=', begin);
  if (equal == std::string::npos) return;
  values[stripped(line, begin, equal)] = stripped(line, equal + 1, line.size());
}

// The settings of the file named by W3_CONFIG; none when it is unset, empty or unreadable.
Settings readConfigFile() {
  Settings values;
  const char* path = std::getenv("W3_CONFIG");
  if (path == nullptr || *path == '\0') return values;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line))
    readLine(line, values);
  return values;
}

// Copies `value` into `buffer` as strncpy does: at most `size` bytes, zero-filled.
void copyValue(const char* value, char* buffer, int size) {
  if (size > 0) std::strncpy(buffer, value, static_cast<std::size_t>(size));
}

}  // namespace

extern "C" {

void W3CFG_Initialize(void) {
  Settings values = readConfigFile();
  ConfigLock lock;
  config_values.swap(values);
}

int W3CFG_GetQwebValue(const char* name, char* buffer, int size) {
  if (name == nullptr || buffer == nullptr) return 0;
  if (const char* value = std::getenv(name)) {
    copyValue(value, buffer, size);
    return 1;
  }
  ConfigLock lock;
  const Settings::const_iterator it = config_values.find(name);
  if (it == config_values.end()) return 0;
  copyValue(it->second.c_str(), buffer, size);
  return 1;
}

void W3LOG_GetQorvaLogFileName(char* buffer, int size, const char* baseName) {
  if (buffer == nullptr || size <= 0) return;
  buffer[0] = '\0';
  const char* dir = std::getenv("W3_LOG_DIR");
  if (dir == nullptr || *dir == '\0' || baseName == nullptr || *baseName == '\0') return;
  std::string name(dir);
  if (name[name.size() - 1] != '/') name.push_back('/');
  name += baseName;
  // A name that does not fit would be another file: give none instead.
  if (name.size() >= static_cast<std::size_t>(size)) return;
  std::memcpy(buffer, name.c_str(), name.size() + 1);
}

}  // extern "C"
