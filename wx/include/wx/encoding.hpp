// Character-encoding and language tags of the utility library.
//
// Every text-handling template takes an Encoding as its argument. The numeric values appear in
// exported symbol names, so they are fixed: the stream and file back ends use Encoding 0, the
// connector back end Encoding 3. For ASCII input both give the same results.
#ifndef WX_ENCODING_HPP
#define WX_ENCODING_HPP

// The tags are part of the names of exported template instantiations. Under hidden visibility
// clang gives an instantiation the visibility of its argument types, so the tags are declared with
// default visibility; otherwise every instantiation on an Encoding would be hidden.
#pragma GCC visibility push(default)

namespace wx {
namespace encoding {
enum Encoding {
  host = 0,      // the host program's own byte text (stream and file back ends)
  connector = 3  // the text the web server's connector carries
};
}  // namespace encoding

namespace language {
enum Language {
  english = 1  // ASCII letters 'a'..'z' fold onto 'A'..'Z'; every other byte is itself
};
}  // namespace language
}  // namespace wx

#pragma GCC visibility pop

#endif  // WX_ENCODING_HPP
