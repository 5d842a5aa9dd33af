// HTTP parsing by Boost.Beast, fed from memory. The parser's own view (fields, decoded body) and the bytes it was fed
// are both kept: the first for handlers, the second for the journal. This is the only file that includes Beast.
#include "sim/server/request_reader.h"

#include <algorithm>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cctype>
#include <stdexcept>

#include "sim/form.h"

namespace kivosim {
namespace http = boost::beast::http;

struct RequestReader::Parser : http::request_parser<http::string_body> {
  Parser() {
    eager(true);
    body_limit(64U << 20U);
    header_limit(1U << 20U);
  }
  /// put() throws for one field that is longer than the 64 KiB its table holds, whatever the limit.
  std::size_t Take(const boost::asio::const_buffer& bytes, boost::beast::error_code& error) {
    try {
      return put(bytes, error);
    } catch (const std::length_error&) {
      error = http::error::header_limit;
      return 0;
    }
  }
};

RequestReader::RequestReader() : parser_(std::make_unique<Parser>()) {}
RequestReader::~RequestReader() = default;

namespace {

std::string HostName(std::string host) {
  host = host.substr(0, host.find(':'));
  std::transform(host.begin(), host.end(), host.begin(), [](unsigned char c) { return std::tolower(c); });
  return host;
}

}  // namespace

std::optional<Request> RequestReader::Next() {
  while (problem_.empty() && parsed_ < pending_.size() && !parser_->is_done()) {
    boost::beast::error_code error;
    const auto rest = boost::asio::buffer(pending_.data() + parsed_, pending_.size() - parsed_);
    const std::size_t used = parser_->Take(rest, error);
    parsed_ += used;
    if (error == http::error::need_more) break;
    if (error) problem_ = "not HTTP: " + error.message();
    if (used == 0) break;
  }
  if (!parser_->is_done()) return std::nullopt;
  Request request = Describe();
  request.raw = pending_.substr(0, parsed_);
  request.onConnection = ++finished_;
  pending_.erase(0, parsed_);
  parsed_ = 0;
  continueAsked_ = false;
  parser_ = std::make_unique<Parser>();
  return request;
}

Request RequestReader::Describe() const {
  const auto& message = parser_->get();
  Request request;
  request.method = std::string(message.method_string());
  request.target = std::string(message.target());
  request.path = request.target.substr(0, request.target.find('?'));
  request.version = message.version() == 11 ? "HTTP/1.1" : "HTTP/1.0";
  for (const auto& field : message) request.headers.emplace_back(field.name_string(), field.value());
  request.host = HostName(request.Header("Host"));
  request.body = message.body();
  if (request.path.size() < request.target.size() &&
      !ParseForm(request.target.substr(request.path.size() + 1), request.query).empty())
    request.query.clear();
  if (request.Header("Content-Type") == "application/x-www-form-urlencoded" &&
      !ParseForm(request.body, request.form).empty())
    request.form.clear();
  return request;
}

bool RequestReader::TakeExpectContinue() {
  if (continueAsked_ || parser_->is_done() || !parser_->is_header_done()) return false;
  const auto expect = parser_->get()[http::field::expect];
  continueAsked_ = true;
  return boost::beast::iequals(expect, "100-continue");
}

Request RequestReader::Unfinished() const {
  Request request;
  if (parser_->is_header_done()) request = Describe();
  request.raw = pending_;
  request.onConnection = finished_ + 1;
  return request;
}

}  // namespace kivosim
