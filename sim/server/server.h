// The running part of a simulator: listeners, connections and the one thread that serves them. Made by Start(), gone
// with Stop(); the state it works on is the Service, which outlives it.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <memory>
#include <thread>

#include "sim/server/plain_http.h"
#include "sim/server/real_clock.h"
#include "sim/server/service.h"
#include "sim/server/tls_contexts.h"

namespace kivosim {

class Server {
 public:
  Server(const std::string& address, std::uint16_t port, Service& service, TlsContexts& contexts);
  ~Server();  ///< ends the thread, whatever connections wait for, and closes them
  std::uint16_t Port() const { return port_; }

  /// Adds a listener for HTTP in clear. Only before Run().
  std::uint16_t AddPlain(const std::string& address, std::uint16_t port, PlainHttp::Handler handler,
                         PlainHttp::Sink sink);
  void Run();

 private:
  void Accept();

  Service& service_;
  TlsContexts& contexts_;
  boost::asio::io_context context_{1};
  boost::asio::ip::tcp::acceptor acceptor_;
  RealTimer retry_;
  const std::uint16_t port_;
  std::vector<std::unique_ptr<PlainHttp>> plain_;
  std::thread thread_;
};

}  // namespace kivosim
