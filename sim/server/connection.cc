// The connection's state machine. Every step that waits keeps the object alive by the shared pointer in its handler;
// Finish() ends all of them by closing the socket and the timer, and is the only place that does so.
#include "sim/server/connection.h"

#include <boost/asio/write.hpp>
#include <utility>

#include "sim/server/sockets.h"

namespace kivosim {
namespace {

constexpr std::chrono::seconds kLinger{5};  // for a client that does not close after our FIN
constexpr std::size_t kMostUnread = 64U << 20U;

CertificateKind KindOf(const std::optional<ConnectionFault>& fault) {
  const bool given = fault && fault->kind == ConnectionFault::Kind::kCertificate;
  return given ? fault->certificate : CertificateKind::kGood;
}

}  // namespace

Connection::Connection(boost::asio::ip::tcp::socket socket, Service& service, TlsContexts& contexts)
    : socket_(std::move(socket)),
      timer_(socket_.get_executor()),
      service_(service),
      fault_(service.faults.TakeForConnection()),
      tls_(contexts.For(KindOf(fault_))),
      number_(service.journal.ConnectionOpened()) {
  PrepareAccepted(socket_);
}

Connection::~Connection() {
  if (finished_) return;
  CloseSocket(socket_);  // the server was stopped
  service_.journal.ConnectionClosed();
}

// Receiving ----------------------------------------------------------------------------------------------------------

void Connection::Read() {
  socket_.async_read_some(boost::asio::buffer(received_),
                          [self = shared_from_this()](const Error& error, std::size_t size) {
                            if (self->finished_) return;
                            if (error) return self->Finish(error.message());
                            self->Receive(std::string(self->received_, size));
                            if (!self->finished_) self->Read();
                          });
}

void Connection::Receive(const std::string& bytes) {
  if (fault_ && fault_->kind != ConnectionFault::Kind::kCertificate) return ReceiveInSpoiltHandshake();
  std::string plain;
  const bool goesOn = tls_.Receive(bytes, plain);
  if (!plain.empty()) ReceivePlain(plain);
  if (finished_) return;
  if (goesOn) return Flush({});
  const std::string error = tls_.Error().empty() ? "closed by the client" : tls_.Error();
  Flush([this, error] { Finish(error); });
}

void Connection::ReceiveInSpoiltHandshake() {
  if (fault_->kind == ConnectionFault::Kind::kResetInHandshake) {
    ResetSocket(socket_);
    return Finish("reset on purpose");
  }
  if (fault_->kind != ConnectionFault::Kind::kNotTls || answering_) return;
  answering_ = true;
  toWrite_ = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
  Flush([this] { CloseSending(false); });
}

void Connection::ReceivePlain(const std::string& plain) {
  applicationBytes_ += plain.size();
  service_.journal.CountReceived(plain.size());
  reader_.Feed(plain);
  if (reader_.Rest().size() > kMostUnread) return Finish("too many bytes unread");
  ServeNext();
}

// Answering ----------------------------------------------------------------------------------------------------------

void Connection::ServeNext() {
  if (answering_) return;
  std::optional<Request> request = reader_.Next();
  if (!reader_.Problem().empty()) return RefuseMalformed();
  if (!request) {
    if (reader_.TakeExpectContinue()) tls_.Send("HTTP/1.1 100 Continue\r\n\r\n");
    return Flush({});
  }
  answering_ = true;
  ++served_;
  request->sni = tls_.Sni();
  request->connection = number_;
  exchange_ = service_.Serve(*request, Describe());
  nextPiece_ = 0;
  SendNextPiece();
}

void Connection::RefuseMalformed() {
  answering_ = true;
  JournalEntry entry = Describe();
  entry.kind = JournalEntry::Kind::kIncomplete;
  entry.request = reader_.Unfinished();
  entry.complaint = reader_.Problem();
  entry.status = 400;
  service_.journal.Add(std::move(entry));
  tls_.Send("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
  Flush([this] { CloseSending(true); });
}

void Connection::SendNextPiece() {
  if (nextPiece_ == exchange_.plan.pieces.size()) {
    if (exchange_.onSent) exchange_.onSent();
    return exchange_.plan.endless.empty() ? EndAnswer() : SendEndless();
  }
  const std::chrono::milliseconds pause = exchange_.plan.pieces[nextPiece_].pause;
  if (pause.count() <= 0) return SendPiece();
  timer_.expires_after(pause);
  timer_.async_wait([self = shared_from_this()](const Error& error) {
    if (!error && !self->finished_) self->SendPiece();
  });
}

void Connection::SendPiece() {
  const std::string& bytes = exchange_.plan.pieces[nextPiece_++].bytes;
  tls_.Send(bytes);
  service_.journal.CountSent(bytes.size());
  Flush([this] { SendNextPiece(); });
}

void Connection::SendEndless() {
  tls_.Send(exchange_.plan.endless);
  service_.journal.CountSent(exchange_.plan.endless.size());
  Flush([this] { SendEndless(); });
}

void Connection::EndAnswer() {
  switch (exchange_.plan.end) {
    case End::kNormal:
      if (exchange_.plan.closes) return CloseSending(true);
      answering_ = false;
      return ServeNext();
    case End::kCloseNotify:
      return CloseSending(true);
    case End::kFin:
      return CloseSending(false);
    case End::kReset:
      ResetSocket(socket_);
      return Finish("reset on purpose");
    case End::kSilence:
      return;
  }
}

// Sending and closing ------------------------------------------------------------------------------------------------

/// Sends what TLS has ready; then calls `then`, which stands for the one thing that waits for an empty line.
void Connection::Flush(std::function<void()> then) {
  toWrite_ += tls_.TakeOutput();
  if (then) afterWrite_ = std::move(then);
  if (writing_.empty()) Write();
}

void Connection::Write() {
  if (finished_) return;
  if (toWrite_.empty()) {
    // Not called from here: a long answer in small pieces would become a deep stack.
    if (afterWrite_)
      boost::asio::post(socket_.get_executor(), [self = shared_from_this(), then = std::exchange(afterWrite_, {})] {
        if (!self->finished_) then();
      });
    return;
  }
  writing_ = std::exchange(toWrite_, {});
  boost::asio::async_write(socket_, boost::asio::buffer(writing_),
                           [self = shared_from_this()](const Error& error, std::size_t) {
                             self->writing_.clear();
                             if (self->finished_) return;
                             if (error) return self->Finish(error.message());
                             self->Write();
                           });
}

void Connection::CloseSending(bool notify) {
  if (notify) tls_.CloseNotify();
  Flush([this] {
    Error ignored;
    socket_.shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
    timer_.expires_after(kLinger);
    timer_.async_wait([self = shared_from_this()](const Error& error) {
      if (!error) self->Finish("client did not close");
    });
  });
}

void Connection::Finish(const std::string& error) {
  if (finished_) return;
  finished_ = true;
  afterWrite_ = {};
  timer_.cancel();
  CloseSocket(socket_);
  JournalEnd(error);
  service_.journal.ConnectionClosed();
}

void Connection::JournalEnd(const std::string& error) {
  JournalEntry entry = Describe();
  entry.error = error;
  if (!tls_.Established())
    entry.kind = JournalEntry::Kind::kHandshakeFailed;
  else if (!answering_ && !reader_.Rest().empty())
    entry.kind = JournalEntry::Kind::kIncomplete;
  else if (served_ == 0 && !answering_)
    entry.kind = JournalEntry::Kind::kNoRequest;
  else
    return;
  if (entry.kind == JournalEntry::Kind::kIncomplete) entry.request = reader_.Unfinished();
  service_.journal.Add(std::move(entry));
}

JournalEntry Connection::Describe() const {
  JournalEntry entry;
  entry.connection = number_;
  entry.sni = tls_.Sni();
  entry.tlsVersion = tls_.Version();
  entry.applicationBytes = applicationBytes_;
  return entry;
}

}  // namespace kivosim
