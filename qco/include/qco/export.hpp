// Symbol visibility for the connector library (namespace qco).
//
// The library is built with hidden visibility, so only names marked with QCO_API are part of its
// dynamic interface. On ELF the same attribute serves for building and for using the library, so
// one macro covers both.
#ifndef QCO_EXPORT_HPP
#define QCO_EXPORT_HPP

#if defined(__GNUC__) || defined(__clang__)
#define QCO_API __attribute__((visibility("default")))
// Keeps a private helper of an exported class out of the dynamic interface.
#define QCO_LOCAL __attribute__((visibility("hidden")))
#else
#define QCO_API
#define QCO_LOCAL
#endif

#endif  // QCO_EXPORT_HPP
