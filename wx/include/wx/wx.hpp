// Every piece of the utility library that the web server interface uses.
#ifndef WX_WX_HPP
#define WX_WX_HPP

#include <wx/char_casing.hpp>
#include <wx/char_to_numeric.hpp>
#include <wx/encoding.hpp>
#include <wx/log.hpp>
#include <wx/map_ordered.hpp>
#include <wx/nv_pair.hpp>
#include <wx/ptr_len_pair.hpp>
#include <wx/url_decoder.hpp>
#include <wx/url_parser.hpp>

#endif  // WX_WX_HPP
