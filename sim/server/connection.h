// One TLS connection from accept to close: handshake, requests, answers with their pauses and cuts. Lives on the server
// thread as long as an operation of it is pending. It always reads, so a client that goes away is noticed at once.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "sim/server/real_clock.h"
#include "sim/server/request_reader.h"
#include "sim/server/service.h"
#include "sim/server/tls_contexts.h"
#include "sim/server/tls_engine.h"

namespace kivosim {

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(boost::asio::ip::tcp::socket socket, Service& service, TlsContexts& contexts);
  ~Connection();
  void Start() { Read(); }

 private:
  using Error = boost::system::error_code;

  void Read();
  void Receive(const std::string& bytes);
  void ReceiveInSpoiltHandshake();
  void ReceivePlain(const std::string& plain);

  void ServeNext();
  void RefuseMalformed();
  void SendNextPiece();
  void SendPiece();
  void SendEndless();
  void EndAnswer();

  void Flush(std::function<void()> then);
  void Write();
  void CloseSending(bool notify);
  void Finish(const std::string& error);
  void JournalEnd(const std::string& error);
  JournalEntry Describe() const;

  boost::asio::ip::tcp::socket socket_;
  RealTimer timer_;
  Service& service_;
  const std::optional<ConnectionFault> fault_;
  TlsEngine tls_;
  RequestReader reader_;
  const std::size_t number_;

  char received_[16384];
  std::string writing_, toWrite_;     // at the socket now; waiting for it
  std::function<void()> afterWrite_;  // once both are empty
  Service::Exchange exchange_;
  std::size_t nextPiece_ = 0;
  std::size_t served_ = 0, applicationBytes_ = 0;
  bool answering_ = false;  // also after an answer that nothing can follow
  bool finished_ = false;
};

}  // namespace kivosim
