// Accepting, and the thread. A descriptor shortage (a test may make one) delays accepting and does not end it.
#include "sim/server/server.h"

#include <signal.h>

#include <utility>

#include "sim/server/connection.h"
#include "sim/server/sockets.h"

namespace kivosim {

Server::Server(const std::string& address, std::uint16_t port, Service& service, TlsContexts& contexts)
    : service_(service),
      contexts_(contexts),
      acceptor_(Listen(context_, address, port)),
      retry_(context_),
      port_(acceptor_.local_endpoint().port()) {
  contexts_.For(CertificateKind::kGood);  // not in the first client's time
  Accept();
}

Server::~Server() {
  context_.stop();
  if (thread_.joinable()) thread_.join();
}

std::uint16_t Server::AddPlain(const std::string& address, std::uint16_t port, PlainHttp::Handler handler,
                               PlainHttp::Sink sink) {
  plain_.push_back(std::make_unique<PlainHttp>(context_, address, port, std::move(handler), std::move(sink)));
  return plain_.back()->Port();
}

void Server::Run() {
  // The thread takes no signals: they belong to the program that the simulator lives in.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  thread_ = std::thread([this] { context_.run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Server::Accept() {
  acceptor_.async_accept([this](const boost::system::error_code& error, boost::asio::ip::tcp::socket socket) {
    if (error == boost::asio::error::operation_aborted) return;
    if (!error) {
      std::make_shared<Connection>(std::move(socket), service_, contexts_)->Start();
      return Accept();
    }
    retry_.expires_after(std::chrono::milliseconds(10));
    retry_.async_wait([this](const boost::system::error_code& stopped) {
      if (!stopped) Accept();
    });
  });
}

}  // namespace kivosim
