// The HTTP status and method vocabulary.
#ifndef WSI_HTTP_HPP
#define WSI_HTTP_HPP

#include <wsi/export.h>
#include <wx/encoding.hpp>

namespace wsi {
namespace Http {

// A numeric HTTP status code; -1 means no valid status has been set.
enum Status : int {
  InvalidStatus = -1,
  Continue = 100,
  SwitchingProtocols = 101,
  Processing = 102,
  Ok = 200,
  Created = 201,
  Accepted = 202,
  NonAuthoritativeInformation = 203,
  NoContent = 204,
  ResetContent = 205,
  PartialContent = 206,
  MultiStatus = 207,
  MultipleChoices = 300,
  MovedPermanently = 301,
  MovedTemporarily = 302,
  SeeOther = 303,
  NotModified = 304,
  UseProxy = 305,
  TemporaryRedirect = 307,
  BadRequest = 400,
  Unauthorized = 401,
  PaymentRequired = 402,
  Forbidden = 403,
  NotFound = 404,
  MethodNotAllowed = 405,
  NotAcceptable = 406,
  ProxyAuthenticationRequired = 407,
  RequestTimeOut = 408,
  Conflict = 409,
  Gone = 410,
  LengthRequired = 411,
  PreconditionFailed = 412,
  RequestEntityTooLarge = 413,
  RequestUriTooLarge = 414,
  UnsupportedMediaType = 415,
  RequestedRangeNotSatisfiable = 416,
  ExpectationFailed = 417,
  UnprocessableEntity = 422,
  Locked = 423,
  FailedDependency = 424,
  UpgradeRequired = 426,
  InternalServerError = 500,
  NotImplemented = 501,
  BadGateway = 502,
  ServiceUnavailable = 503,
  GatewayTimeOut = 504,
  HttpVersionNotSupported = 505,
  VariantAlsoVaries = 506,
  InsufficientStorage = 507,
  NotExtended = 510
};

// A request method; -1 means none was recognised.
enum MethodId : int {
  InvalidMethod = -1,
  Get = 0,
  Post = 1,
  Head = 2,
  Put = 3,
  Delete = 4,
  Trace = 5,
  Connect = 6,
  Options = 7
};

// The reason phrase of `status`, never null: "Invalid Status" for -1, "Unknown Status" for any
// code the library does not know. The texts are this library's own wording and are kept as they
// are ("Moved Temporarily", "Request Time Out", ...): existing hosts compare them.
template <wx::encoding::Encoding E>
WSI_API const char* StatusDesc(Status status);

// The name of `id`, never null: "GET" .. "OPTIONS" for 0 .. 7, "INVALID" for -1 and "UNKNOWN"
// for any other value.
template <wx::encoding::Encoding E>
WSI_API const char* MethodNameOf(MethodId id);

// The method whose name equals the whole of `name` ignoring ASCII case, or -1. `name` must not
// be null.
template <wx::encoding::Encoding E>
WSI_API MethodId MethodIdOf(const char* name);

}  // namespace Http
}  // namespace wsi

#endif  // WSI_HTTP_HPP
