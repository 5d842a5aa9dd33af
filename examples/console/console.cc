// varnkivo-console: a device's own account page, as an example of a sign-in by browser. Prints its address when it is
// ready and serves until SIGTERM or SIGINT: status 0 then, 1 when it cannot start, 2 for a wrong command line.
// The page has no sign-in of its own: a device puts it behind that of its administration pages.
#include <httplib.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include "device.h"
#include "page.h"
#include "session.h"

namespace console {
namespace {

/// Trusts nothing that a request carries before Refusal() has let it through; there is no other way in.
class Server {
 public:
  Server();
  /// Binds to 127.0.0.1 and nothing else; `port` 0 is any free one. Returns the port, or -1.
  int Bind(int port);
  /// Serves until `ending`, then until the requests under way have ended; the same signal again ends the process.
  void Run(const sigset_t& ending);

 private:
  using Request = httplib::Request;
  using Response = httplib::Response;
  using Handler = httplib::Server::Handler;
  using Action = std::string (Server::*)(const Request&, Session&);

  std::string Refusal(const Request& request) const;
  Handler InTurn(Handler handler);
  Handler Form(Action action);
  Session* Known(const Request& request);
  void Index(const Request& request, Response& response);
  void Callback(const Request& request, Response& response);
  std::string SignIn(const Request& request, Session& session);
  std::string SignOut(const Request& request, Session& session);

  std::string address_, origin_, cookie_;  // "127.0.0.1:8380", "http://127.0.0.1:8380", the cookie's name
  std::timed_mutex turn_;                  // the library and the sessions serve one request at a time
  std::deque<Session> sessions_;           // oldest first
  httplib::Server http_;
};

void Message(httplib::Response& response, int status, const std::string& title, const std::string& words) {
  response.status = status;
  response.set_content(MessagePage(title, words), "text/html; charset=utf-8");
}

/// The one value of a parameter; empty where it is missing or given twice.
std::string Only(const httplib::Request& request, const char* name) {
  return request.get_param_value_count(name) == 1 ? request.get_param_value(name) : "";
}

/// "same-origin" and not "no-referrer", with which browsers send "Origin: null" with every form of the page itself.
void AddHeaders(const httplib::Request&, httplib::Response& response) {
  response.set_header("X-Content-Type-Options", "nosniff");
  response.set_header("Referrer-Policy", "same-origin");
  response.set_header("Cache-Control", "no-store");
  response.set_header("Content-Security-Policy",
                      "default-src 'none'; style-src 'self'; base-uri 'none'; frame-ancestors 'none'");
}

Server::Server() {
  http_.set_socket_options([](socket_t socket) {  // the library's own would let a second console share the port
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
  http_.set_payload_max_length(4096);
  http_.set_keep_alive_max_count(1);  // a refused request's body is not read, and must not pass for the next request
  http_.set_post_routing_handler(AddHeaders);
  http_.set_pre_routing_handler([this](const Request& request, Response& response) {
    const std::string words = Refusal(request);
    if (words.empty()) return httplib::Server::HandlerResponse::Unhandled;
    Message(response, 400, "That is not answered here", words);
    return httplib::Server::HandlerResponse::Handled;
  });
  http_.set_exception_handler([](const Request&, Response& response, std::exception_ptr) {
    Message(response, 500, "Something went wrong", "The device could not do that. Its system log may say why.");
  });
  http_.set_error_handler([](const Request&, Response& response) {
    if (response.body.empty()) Message(response, response.status, "Nothing here", "There is no such page or form.");
  });
  http_.Get("/style.css", [](const Request&, Response& response) { response.set_content(kStyle, "text/css"); });
  http_.Get("/", InTurn([this](const Request& request, Response& response) { Index(request, response); }));
  http_.Get("/callback", InTurn([this](const Request& request, Response& response) { Callback(request, response); }));
  http_.Post("/sign-in", Form(&Server::SignIn));
  http_.Post("/sign-out", Form(&Server::SignOut));
}

int Server::Bind(int port) {
  if (port == 0 ? (port = http_.bind_to_any_port("127.0.0.1")) < 0 : !http_.bind_to_port("127.0.0.1", port)) return -1;
  address_ = "127.0.0.1:" + std::to_string(port);
  origin_ = "http://" + address_;
  cookie_ = "varnkivo_console_" + std::to_string(port);  // cookies do not know ports: another one's must not be ours
  return port;
}

void Server::Run(const sigset_t& ending) {
  std::thread serving([this] { http_.listen_after_bind(); });
  int signal = 0;
  sigwait(&ending, &signal);
  pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);  // in this thread, which waits for the other: the next one strikes
  while (!http_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(10));  // else it is not stopped
  http_.stop();
  serving.join();
}

/// Empty: go on. A foreign name that leads here is how a page from elsewhere reaches a device (DNS rebinding).
std::string Server::Refusal(const Request& request) const {
  if (request.get_header_value_count("Host") != 1 || request.get_header_value("Host") != address_)
    return "This page is at " + origin_ + "/ and nowhere else.";
  const bool form = request.method == "POST";
  if (!form && request.method != "GET") return "Only GET and POST are.";
  if (request.has_header("Origin") && request.get_header_value("Origin") != origin_)
    return "This form is another page's.";
  if (form && request.target.find('?') != std::string::npos) return "A form has its fields in its body.";
  return "";
}

/// A sign-in can take two minutes; the other requests do not wait with it.
httplib::Server::Handler Server::InTurn(Handler handler) {
  return [this, handler = std::move(handler)](const Request& request, Response& response) {
    // By the system's clock: the thread sanitizer does not know the call behind the other kind of waiting.
    const std::unique_lock<std::timed_mutex> turn(turn_, std::chrono::system_clock::now() + std::chrono::seconds(2));
    if (turn) return handler(request, response);
    response.set_header("Retry-After", "10");
    Message(response, 503, "One moment", "The device is talking to the account centre. Come back in a few seconds.");
  };
}

/// Leads on to where `action` says, or to the first page, which tells what went wrong.
void Lead(httplib::Response& response, Session& session, const std::function<std::string()>& action) {
  std::string next = "/";
  session.notice = {};
  try {
    next = action();
  } catch (const Problem& problem) {
    session.notice.words = problem.what();
  }
  response.set_redirect(next, 303);
}

httplib::Server::Handler Server::Form(Action action) {
  return InTurn([this, action](const Request& request, Response& response) {
    Session* const session = Known(request);
    if (session && SameSecret(Only(request, "csrf"), session->formToken))
      return Lead(response, *session, [&] { return (this->*action)(request, *session); });
    Message(response, 403, "That form is not valid",
            "It is not from this page, or the browser keeps no cookies. Nothing was done; try again.");
  });
}

/// Null where the browser has no cookie of ours yet.
Session* Server::Known(const Request& request) {
  const std::string cookies = "; " + request.get_header_value("Cookie") + ";", name = "; " + cookie_ + "=";
  const std::size_t found = cookies.find(name), begin = found + name.size();
  if (found == std::string::npos) return nullptr;
  const std::string value = cookies.substr(begin, cookies.find(';', begin) - begin);
  const auto known = std::find_if(sessions_.begin(), sessions_.end(),
                                  [&](const Session& session) { return SameSecret(session.cookie, value); });
  return known == sessions_.end() ? nullptr : &*known;
}

void Server::Index(const Request& request, Response& response) {
  Session* session = Known(request);
  if (!session) {
    const std::string from = request.get_header_value("Sec-Fetch-Site");  // a page elsewhere must not fill the list
    if (!from.empty() && from != "none" && from != "same-origin")
      return Message(response, 200, "Device account", "A page from elsewhere has led you here.");
    const auto idle = std::find_if(sessions_.begin(), sessions_.end(),
                                   [](const Session& other) { return other.pending.state.empty(); });
    if (sessions_.size() == 64) sessions_.erase(idle == sessions_.end() ? sessions_.begin() : idle);
    session = &sessions_.emplace_back();
    response.set_header("Set-Cookie", cookie_ + "=" + session->cookie + "; Path=/; HttpOnly; SameSite=Lax");
  }
  response.set_content(IndexPage(Look(), *session), "text/html; charset=utf-8");
  session->notice = {};
}

std::string Server::SignIn(const Request&, Session& session) {
  if (Look().signedIn) throw Problem("This device is signed in already. Sign out first to change the account.");
  // The account host's landing page hands the code on to 127.0.0.1 for a state that ends in a port.
  session.pending = {RandomHex(16) + address_.substr(address_.find(':')).replace(0, 1, "."), "", ""};
  return BeginSignIn(session.pending);
}

/// State and cookie must both be those of a sign-in that was begun here: else somebody may be trying to sign this
/// device in to an account of theirs.
void Server::Callback(const Request& request, Response& response) {
  const std::string code = Only(request, "code"), error = Only(request, "error");
  if (code.empty() == error.empty())
    return Message(response, 400, "Nothing was done", "That is no answer to a sign-in.");
  Session* const session = Known(request);
  const PendingSignIn pending = session ? session->TakePending(Only(request, "state")) : PendingSignIn();
  if (pending.state.empty()) {
    return Message(response, 400, "Nothing was done",
                   "No sign-in of this browser waits for that answer: it was finished already, took longer than ten "
                   "minutes, or was begun elsewhere. Start again from the device's page.");
  }
  Lead(response, *session, [&] {
    if (error == "access_denied")
      throw Problem("The sign-in was not allowed at the account centre. Nothing was changed.");
    if (!error.empty()) throw Problem("The account centre could not finish the sign-in. Try again in a while.");
    if (Look().signedIn) throw Problem("This device has been signed in meanwhile. That was left as it is.");
    console::SignIn(code, pending);
    return "/";
  });
}

std::string Server::SignOut(const Request& request, Session& session) {
  session.notice.offerLocalSignOut = Only(request, "local") != "1";
  console::SignOut(session.notice.offerLocalSignOut);
  return "/";
}

}  // namespace
}  // namespace console

int main(int argc, char** argv) {
  int wanted = argc == 1 ? 8380 : -1;
  char rest;
  if (argc == 3 && std::string(argv[1]) == "--port" && std::sscanf(argv[2], "%5d%c", &wanted, &rest) != 1) wanted = -1;
  if (wanted != 0 && (wanted < 1024 || wanted > 65535))  // browsers leave a port of 80 out of Host and Origin
    return std::fputs("usage: varnkivo-console [--port N]   (1024..65535, or 0 for any; default 8380)\n", stderr), 2;
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);  // before any thread: they all inherit it
  signal(SIGPIPE, SIG_IGN);
  console::Server server;
  const int port = server.Bind(wanted);
  if (port < 0) return std::fprintf(stderr, "varnkivo-console: cannot listen on 127.0.0.1:%d\n", wanted), 1;
  std::printf("http://127.0.0.1:%d/\n", port);
  std::fflush(stdout);
  server.Run(ending);
  return 0;
}
