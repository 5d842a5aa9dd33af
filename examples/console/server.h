// The console's HTTP side: which requests are answered, and the round trip of a sign-in over them.
// It trusts nothing that a request carries before Refusal() has let it through; there is no other way in.
#pragma once

#include <httplib.h>

#include <string>

#include "device.h"
#include "sessions.h"

namespace console {

class Server {
 public:
  Server();
  /// Binds to 127.0.0.1 and nothing else; `port` 0 is any free one. Returns the port, or -1.
  int Bind(int port);
  /// Serves until Stop(), then until the requests under way have ended.
  void Run() { http_.listen_after_bind(); }
  void Stop();

 private:
  using Request = httplib::Request;
  using Response = httplib::Response;
  struct Refused {
    int status;
    std::string words;
  };

  Refused Refusal(const Request& request) const;
  Refused PostRefusal(const Request& request) const;
  std::string Session(const Request& request) const;
  bool FormIsOurs(const Request& request, Response& response) const;
  void Index(const Request& request, Response& response);
  void SignIn(const Request& request, Response& response);
  void Callback(const Request& request, Response& response);
  void AskSignOut(const Request& request, Response& response);
  void SignOut(const Request& request, Response& response);

  std::string address_, origin_, cookie_;  // "127.0.0.1:8380", "http://127.0.0.1:8380", the cookie's name
  Device device_;
  FormTokens tokens_;
  PendingSignIns pending_;
  Notice notice_;
  httplib::Server http_;
};

}  // namespace console
