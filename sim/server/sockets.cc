// Socket settings. Closing never fails here: what goes wrong then has been wrong before.
#include "sim/server/sockets.h"

#include <fcntl.h>

#include <boost/asio/io_context.hpp>
#include <stdexcept>

namespace kivosim {
namespace {

using boost::asio::ip::tcp;

[[noreturn]] void CannotListen(const std::string& address, std::uint16_t port, const boost::system::error_code& error) {
  std::string hint;
  if (error == boost::asio::error::address_in_use) hint = " (is another simulator running?)";
  if (error == boost::asio::error::access_denied) hint = " (ports below 1024 need root)";
  throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) + ": " + error.message() + hint);
}

void SetCloseOnExec(int descriptor) { fcntl(descriptor, F_SETFD, FD_CLOEXEC); }

}  // namespace

tcp::acceptor Listen(boost::asio::io_context& context, const std::string& address, std::uint16_t port) {
  boost::system::error_code error;
  const tcp::endpoint endpoint(boost::asio::ip::make_address(address, error), port);
  if (error) CannotListen(address, port, error);
  tcp::acceptor acceptor(context);
  acceptor.open(endpoint.protocol(), error);
  if (!error) SetCloseOnExec(acceptor.native_handle());
  if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor.bind(endpoint, error);
  if (!error) acceptor.listen(boost::asio::socket_base::max_listen_connections, error);
  if (error) CannotListen(address, port, error);
  return acceptor;
}

void PrepareAccepted(tcp::socket& socket) {
  boost::system::error_code ignored;
  SetCloseOnExec(socket.native_handle());
  socket.set_option(tcp::no_delay(true), ignored);
}

void CloseSocket(tcp::socket& socket) {
  boost::system::error_code ignored;
  socket.shutdown(tcp::socket::shutdown_both, ignored);
  socket.close(ignored);
}

void ResetSocket(tcp::socket& socket) {
  boost::system::error_code ignored;
  socket.set_option(boost::asio::socket_base::linger(true, 0), ignored);
  socket.close(ignored);
}

}  // namespace kivosim
