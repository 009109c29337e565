/* Symbol visibility for the web server's program library.
 *
 * The library is built with hidden visibility, so only names marked with W3_API are part of its
 * dynamic interface. On ELF the same attribute serves for building and for using the library, so
 * one macro covers both. Valid C99 and C++11. */
#ifndef W3_EXPORT_H
#define W3_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define W3_API __attribute__((visibility("default")))
#else
#define W3_API
#endif

#endif /* W3_EXPORT_H */
