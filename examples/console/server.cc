// The routes of the console and what stands before them. Keeps nothing but what sessions.h keeps.
// The page has no sign-in of its own: a device puts it behind that of its administration pages.
#include "server.h"

#include <sys/socket.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "page.h"

namespace console {
namespace {

constexpr std::size_t kMostBody = 4096;
constexpr char kForm[] = "application/x-www-form-urlencoded";

void Show(httplib::Response& response, int status, const std::string& page) {
  response.status = status;
  response.set_content(page, "text/html; charset=utf-8");
}

void Message(httplib::Response& response, int status, const std::string& title, const std::string& words) {
  Show(response, status, MessagePage(title, words));
}

void Busy(httplib::Response& response) {
  response.set_header("Retry-After", "10");
  Message(response, 503, "One moment", "The device is talking to the account centre. Come back in a few seconds.");
}

/// The one value of a parameter; empty where it is missing or given twice.
std::string Only(const httplib::Request& request, const char* name) {
  return request.get_param_value_count(name) == 1 ? request.get_param_value(name) : "";
}

/// "same-origin" and not "no-referrer", with which browsers send "Origin: null" with every form of the page itself.
void AddHeaders(const httplib::Request&, httplib::Response& response) {
  response.set_header("X-Frame-Options", "DENY");
  response.set_header("X-Content-Type-Options", "nosniff");
  response.set_header("Referrer-Policy", "same-origin");
  response.set_header("Cache-Control", "no-store");
  if (!response.has_header("Content-Security-Policy"))
    response.set_header("Content-Security-Policy", ContentPolicy(DeviceState()));
}

}  // namespace

Server::Server() {
  http_.set_socket_options([](socket_t socket) {  // the library's own would let a second console share the port
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
  http_.set_payload_max_length(kMostBody);
  http_.set_keep_alive_max_count(1);  // a refused request's body is not read, and must not pass for the next request
  http_.set_post_routing_handler(AddHeaders);
  http_.set_pre_routing_handler([this](const Request& request, Response& response) {
    const Refused refused = Refusal(request);
    if (refused.status == 0) return httplib::Server::HandlerResponse::Unhandled;
    if (refused.status == 405) response.set_header("Allow", "GET, POST");
    if (refused.status == 303)
      response.set_redirect(refused.words, 303);
    else
      Message(response, refused.status, "That is not answered here", refused.words);
    return httplib::Server::HandlerResponse::Handled;
  });
  http_.set_exception_handler([](const Request&, Response& response, std::exception_ptr) {
    Message(response, 500, "Something went wrong", "The device could not do that. Its system log may say why.");
  });
  http_.set_error_handler([](const Request&, Response& response) {
    const bool unknown = response.status == 404;
    if (response.body.empty())
      Message(response, response.status, "Nothing here", unknown ? "There is no such page." : "That is no request.");
  });
  http_.Get("/", [this](const Request& request, Response& response) { Index(request, response); });
  http_.Post("/sign-in", [this](const Request& request, Response& response) { SignIn(request, response); });
  http_.Get("/callback", [this](const Request& request, Response& response) { Callback(request, response); });
  http_.Get("/sign-out", [this](const Request& request, Response& response) { AskSignOut(request, response); });
  http_.Post("/sign-out", [this](const Request& request, Response& response) { SignOut(request, response); });
}

int Server::Bind(int port) {
  if (port == 0)
    port = http_.bind_to_any_port("127.0.0.1");
  else if (!http_.bind_to_port("127.0.0.1", port))
    port = -1;
  address_ = "127.0.0.1:" + std::to_string(port);
  origin_ = "http://" + address_;
  cookie_ = "varnkivo_console_" + std::to_string(port);  // cookies do not know ports: another one's must not be ours
  return port;
}

void Server::Stop() {
  for (int i = 0; i < 100 && !http_.is_running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  http_.stop();  // which does nothing to a server that only starts to run
}

/// Status 0: go on. A foreign name that leads here is how a page from elsewhere reaches a device (DNS rebinding).
Server::Refused Server::Refusal(const Request& request) const {
  const std::string host = request.get_header_value("Host");
  const bool local = host == "localhost" + address_.substr(address_.find(':'));
  if (request.get_header_value_count("Host") != 1 || (host != address_ && !local))
    return {400, "This address is not the console's."};
  if (local) return {303, origin_ + "/"};  // a sign-in comes back to 127.0.0.1, where the cookie has to be
  if (request.method == "POST") return PostRefusal(request);
  if (request.method != "GET") return {405, "Only GET and POST are."};
  return {0, ""};
}

Server::Refused Server::PostRefusal(const Request& request) const {
  const std::string type = request.get_header_value("Content-Type"),
                    length = request.get_header_value("Content-Length");
  if (request.has_header("Origin") && request.get_header_value("Origin") != origin_)
    return {403, "The form was sent by another page."};
  if (type.substr(0, type.find_first_of("; ")) != kForm) return {415, "Only forms are."};
  if (request.has_header("Transfer-Encoding") || request.has_header("Content-Encoding") || length.empty())
    return {411, "The form has to say its length."};
  if (length.size() > 4 || std::strtoul(length.c_str(), nullptr, 10) > kMostBody) return {413, "The form is too long."};
  if (request.target.find('?') != std::string::npos) return {400, "A form has its fields in its body."};
  return {0, ""};
}

/// Empty where the browser has none yet.
std::string Server::Session(const Request& request) const {
  std::string rest = request.get_header_value("Cookie");
  while (!rest.empty()) {
    const std::size_t end = rest.find("; ");
    const std::string pair = rest.substr(0, end);
    if (pair.rfind(cookie_ + "=", 0) == 0) {
      const std::string value = pair.substr(cookie_.size() + 1);
      return IsSession(value) ? value : "";
    }
    rest = end == std::string::npos ? "" : rest.substr(end + 2);
  }
  return "";
}

bool Server::FormIsOurs(const Request& request, Response& response) const {
  const std::string session = Session(request);
  if (!session.empty() && SameSecret(Only(request, "csrf"), tokens_.For(session))) return true;
  Message(response, 403, "That form is not valid",
          "It is not from this page, or the browser keeps no cookies. Nothing was done; go back and try again.");
  return false;
}

void Server::Index(const Request& request, Response& response) {
  std::string session = Session(request);
  if (session.empty()) {
    session = RandomHex(16);
    response.set_header("Set-Cookie", cookie_ + "=" + session + "; Path=/; HttpOnly; SameSite=Lax");
  }
  const std::optional<DeviceState> state = device_.Look();
  if (!state) return Busy(response);
  response.set_header("Content-Security-Policy", ContentPolicy(*state));
  Show(response, 200, IndexPage(*state, notice_.For(session), tokens_.For(session)));
}

void Server::SignIn(const Request& request, Response& response) {
  if (!FormIsOurs(request, response)) return;
  notice_.Clear();
  const std::string session = Session(request);
  const std::optional<DeviceState> before = device_.Look();
  if (!before) return Busy(response);
  try {
    if (before->signedIn) throw Problem("This device is signed in already. Sign out first to change the account.");
    // The account host's landing page hands the code on to 127.0.0.1 for a state that ends in a port.
    const std::string state = RandomHex(16) + address_.substr(address_.find(':')).replace(0, 1, ".");
    const SignInStart start = device_.BeginSignIn(state);
    pending_.Add({state, session, start.verifier, start.redirectUri});
    response.set_redirect(start.url, 303);
  } catch (const Problem& problem) {
    notice_.Set(session, {problem.what()});
    response.set_redirect("/", 303);
  }
}

/// State and cookie must both be those of a sign-in that was begun here: else somebody may be trying to sign this
/// device in to an account of theirs.
void Server::Callback(const Request& request, Response& response) {
  const std::string session = Session(request), code = Only(request, "code"), error = Only(request, "error");
  if (code.empty() == error.empty())
    return Message(response, 400, "Nothing was done", "That is no answer to a sign-in.");
  const std::optional<PendingSignIn> pending = pending_.Take(Only(request, "state"), session);
  if (!pending) {
    return Message(response, 400, "Nothing was done",
                   "No sign-in of this browser waits for that answer: it was finished already, took longer than ten "
                   "minutes, or was begun elsewhere. Start again from the device's page.");
  }
  try {
    if (error == "access_denied")
      throw Problem("The sign-in was not allowed at the account centre. Nothing was changed.");
    if (!error.empty()) throw Problem("The account centre could not finish the sign-in. Try again in a while.");
    device_.SignIn(code, pending->verifier, pending->redirectUri);
  } catch (const Problem& problem) {
    notice_.Set(session, {problem.what()});
  }
  response.set_redirect("/", 303);
}

void Server::AskSignOut(const Request& request, Response& response) {
  const std::string session = Session(request);
  const std::optional<DeviceState> state = device_.Look();
  if (!state) return Busy(response);
  if (session.empty() || !state->signedIn) return response.set_redirect("/", 303);
  Show(response, 200, SignOutPage(*state, tokens_.For(session)));
}

void Server::SignOut(const Request& request, Response& response) {
  if (!FormIsOurs(request, response)) return;
  notice_.Clear();
  const bool tellCentre = Only(request, "local") != "1";
  try {
    device_.SignOut(tellCentre);
  } catch (const Problem& problem) {
    notice_.Set(Session(request), {problem.what(), tellCentre});
  }
  response.set_redirect("/", 303);
}

}  // namespace console
