// Cuts a stream of bytes into HTTP/1.1 requests, keeping each one byte for byte. One reader per connection; bytes may
// come in any portions.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "sim/message.h"

namespace kivosim {

class RequestReader {
 public:
  RequestReader();
  ~RequestReader();

  void Feed(const std::string& bytes) { pending_ += bytes; }
  /// The next complete request, if its bytes are all there. Sets Problem() when they are no HTTP.
  std::optional<Request> Next();

  const std::string& Problem() const { return problem_; }  ///< not empty: the connection is of no more use
  /// True once for a request whose sender waits for "100 Continue" before it sends the body.
  bool TakeExpectContinue();
  const std::string& Rest() const { return pending_; }  ///< bytes that do not make a request (yet)
  /// What is known of the unfinished request: `raw`, and the fields of its head if that has come.
  Request Unfinished() const;

 private:
  struct Parser;
  Request Describe() const;

  std::unique_ptr<Parser> parser_;
  std::string pending_;       // bytes from the start of the present request on
  std::size_t parsed_ = 0;    // how many of them the parser has seen
  std::size_t finished_ = 0;  // requests given out
  bool continueAsked_ = false;
  std::string problem_;
};

}  // namespace kivosim
