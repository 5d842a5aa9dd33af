// HTTP in clear on a loopback port, one request per connection: the control interface, and the listener that shows what
// a client sends where it should not. Lives on the server thread.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "sim/message.h"

namespace kivosim {

class PlainHttp {
 public:
  using Handler = std::function<Response(const Request&)>;
  using Sink = std::function<void(const std::string&)>;

  /// `sink` is given every byte as it comes; it may be empty. Throws std::runtime_error when the port is not to be had.
  PlainHttp(boost::asio::io_context& context, const std::string& address, std::uint16_t port, Handler handler,
            Sink sink);
  std::uint16_t Port() const { return acceptor_.local_endpoint().port(); }

 private:
  void Accept();

  boost::asio::ip::tcp::acceptor acceptor_;
  const Handler handler_;
  const Sink sink_;
};

}  // namespace kivosim
