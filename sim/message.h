// What a request was and what the answer shall be: the two values that handlers, hooks and faults speak in. They hold
// no state. Names and values are kept as they came over the wire; nothing is lower-cased or merged.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace kivosim {

/// Names and values in the order of the wire; a name may come more than once.
using Pairs = std::vector<std::pair<std::string, std::string>>;

struct Request {
  std::string method;   ///< "POST"
  std::string target;   ///< as in the request line, query text included: "/device/api/password_login"
  std::string path;     ///< `target` up to the first "?"
  std::string version;  ///< "HTTP/1.1"
  std::string host;     ///< the Host header, lower case, without a port
  std::string sni;      ///< the name asked for in the handshake; empty when none was
  Pairs headers;
  Pairs query;  ///< decoded pairs after the "?"
  Pairs form;   ///< decoded pairs of a form body; empty when the body is no well-formed form
  std::string body;
  std::string raw;               ///< head and body, byte for byte as received
  std::size_t connection = 0;    ///< number of the connection, from 1
  std::size_t onConnection = 0;  ///< number of the request on its connection, from 1

  /// The value of the first header called `name` (any case), or "".
  std::string Header(const std::string& name) const;
  /// The value of the first form parameter, else of the first query parameter, called `name`, or "".
  std::string Param(const std::string& name) const;
  bool HasParam(const std::string& name) const;
};

struct Response {
  int status = 200;
  std::string body = {};
  std::string contentType = "application/json";  ///< empty: no such header
  Pairs headers = {};                            ///< added after the standard ones
};

}  // namespace kivosim
