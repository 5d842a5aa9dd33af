// Plain HTTP: read a request, answer it, close.
#include "sim/server/plain_http.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <memory>
#include <utility>

#include "sim/server/request_reader.h"
#include "sim/server/response_plan.h"
#include "sim/server/sockets.h"

namespace kivosim {
namespace {

using boost::asio::ip::tcp;

class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(tcp::socket socket, const PlainHttp::Handler& handler, const PlainHttp::Sink& sink)
      : socket_(std::move(socket)), handler_(handler), sink_(sink) {}

  void Read() {
    socket_.async_read_some(boost::asio::buffer(received_),
                            [self = shared_from_this()](const boost::system::error_code& error, std::size_t size) {
                              if (!error) self->Receive(std::string(self->received_, size));
                            });
  }

 private:
  void Receive(const std::string& bytes) {
    if (sink_) sink_(bytes);
    reader_.Feed(bytes);
    const std::optional<Request> request = reader_.Next();
    if (request) return Answer(handler_(*request));
    if (!reader_.Problem().empty()) return Answer({400, reader_.Problem() + "\n", "text/plain"});
    Read();
  }

  void Answer(const Response& response) {
    answer_ = PlanResponse(response, std::nullopt, true).pieces.front().bytes;
    boost::asio::async_write(
        socket_, boost::asio::buffer(answer_),
        [self = shared_from_this()](const boost::system::error_code&, std::size_t) { CloseSocket(self->socket_); });
  }

  tcp::socket socket_;
  const PlainHttp::Handler& handler_;
  const PlainHttp::Sink& sink_;
  RequestReader reader_;
  char received_[4096];
  std::string answer_;
};

}  // namespace

PlainHttp::PlainHttp(boost::asio::io_context& context, const std::string& address, std::uint16_t port, Handler handler,
                     Sink sink)
    : acceptor_(Listen(context, address, port)), handler_(std::move(handler)), sink_(std::move(sink)) {
  Accept();
}

void PlainHttp::Accept() {
  acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
    if (error == boost::asio::error::operation_aborted) return;
    if (!error) {
      PrepareAccepted(socket);
      std::make_shared<Session>(std::move(socket), handler_, sink_)->Read();
    }
    Accept();
  });
}

}  // namespace kivosim
