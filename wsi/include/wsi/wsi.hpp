// The whole C++ interface of the web server interface: the object model, the HTTP vocabulary,
// the stream, file, connector and CGI handles, the context and the C entry points, and the
// helpers for forms, uploads and cookies.
#ifndef WSI_WSI_HPP
#define WSI_WSI_HPP

#include <wsi/cgi_handle.hpp>
#include <wsi/context.hpp>
#include <wsi/cookies.hpp>
#include <wsi/fcgi_server.hpp>
#include <wsi/form_types.hpp>
#include <wsi/form_urlencoded.hpp>
#include <wsi/http.hpp>
#include <wsi/interface.hpp>
#include <wsi/ios_handle.hpp>
#include <wsi/multipart.hpp>
#include <wsi/multipart_form.hpp>
#include <wsi/qco_handle.hpp>
#include <wsi/wsi.h>

#endif  // WSI_WSI_HPP
