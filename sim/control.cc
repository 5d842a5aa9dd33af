// Carries the control interface: an event loop and its thread around the plain HTTP listener.
#include "sim/control.h"

#include <boost/asio/io_context.hpp>
#include <thread>
#include <utility>

#include "sim/control_paths.h"
#include "sim/server/plain_http.h"

namespace kivosim {

struct Control::Impl {
  Impl(Simulator& simulator, std::uint16_t wanted, std::function<void()> afterReset)
      : listener(context, "127.0.0.1", wanted,
                 [&simulator, afterReset = std::move(afterReset)](const Request& request) {
                   return AnswerControl(simulator, request, afterReset);
                 },
                 {}),
        port(listener.Port()),
        thread([this] { context.run(); }) {}
  ~Impl() {
    context.stop();
    thread.join();
  }

  boost::asio::io_context context{1};
  PlainHttp listener;
  const std::uint16_t port;
  std::thread thread;
};

Control::Control(Simulator& simulator, std::uint16_t port, std::function<void()> afterReset)
    : impl_(std::make_unique<Impl>(simulator, port, std::move(afterReset))) {}
Control::~Control() = default;
std::uint16_t Control::Port() const { return impl_->port; }
std::string Control::Url() const { return "http://127.0.0.1:" + std::to_string(impl_->port); }

}  // namespace kivosim
