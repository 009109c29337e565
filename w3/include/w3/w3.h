/* The host web server's configuration and log-file naming services.
 *
 * Stand-in behaviour: a configuration value comes from the environment variable of that name,
 * else from a "name=value" line of the file named by W3_CONFIG; the log-file name is
 * "$W3_LOG_DIR/<base name>", or the empty text when W3_LOG_DIR is unset or empty.
 * Valid C99 and C++11. */
#ifndef W3_W3_H
#define W3_W3_H

#include <w3/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* (Re)reads the configuration file named by W3_CONFIG. May be called any number of times. */
W3_API void W3CFG_Initialize(void);

/* Returns non-zero when the configuration has the value `name` and copies it into `buffer` as
 * strncpy does: at most `size` bytes, zero-terminated when the value is shorter than `size` (a
 * value of `size` bytes or more fills the buffer without a terminating zero). Returns 0 and
 * leaves `buffer` untouched when the configuration has no such value. */
W3_API int W3CFG_GetQwebValue(const char* name, char* buffer, int size);

/* Writes into `buffer` (at most `size` bytes, the zero included) the zero-terminated name of the
 * log file for `baseName`, or the empty text when the server has none. */
W3_API void W3LOG_GetQorvaLogFileName(char* buffer, int size, const char* baseName);

#ifdef __cplusplus
}
#endif

#endif /* W3_W3_H */
