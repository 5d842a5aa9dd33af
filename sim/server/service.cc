// One request from hook to journal. The hook is asked before the routes; the fault is laid over whatever they answer.
#include "sim/server/service.h"

#include <strings.h>
#include <exception>

#include <utility>

#include "sim/handlers/routes.h"

namespace kivosim {
namespace {

Reply Answer(const Request& request, const Hook& hook, bool skipHandler, CloudState& state) {
  try {
    if (skipHandler) return Response{};
    if (hook)
      if (std::optional<Response> response = hook(request)) return {*response};
    return Dispatch(request, state);
  } catch (const std::exception& error) {
    return {{500, "{\"code\":\"badsys\"}"}, std::string("handler failed: ") + error.what()};
  }
}

bool ClientCloses(const Request& request) {
  return request.version != "HTTP/1.1" || strcasecmp(request.Header("Connection").c_str(), "close") == 0;
}

}  // namespace

Service::Exchange Service::Serve(const Request& request, JournalEntry entry) {
  Hook hook;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    hook = hook_;
  }
  std::optional<Fault> fault = faults.Outage(request);
  if (!fault) fault = faults.Take(request.path);
  const Reply reply = Answer(request, hook, fault && fault->skipHandler, state);
  Exchange exchange{PlanResponse(reply.response, fault, ClientCloses(request)), {}};
  if (fault) exchange.onSent = fault->onSent;
  entry.kind = JournalEntry::Kind::kRequest;
  entry.request = request;
  entry.complaint = reply.complaint;
  entry.status = exchange.plan.status;
  entry.answer = fault && fault->body ? *fault->body : reply.response.body;
  journal.Add(std::move(entry));
  return exchange;
}

void Service::SetHook(Hook hook) {
  const std::lock_guard<std::mutex> lock(mutex_);
  hook_ = std::move(hook);
}

void Service::Reset() {
  SetHook({});
  state.Reset();
  faults.Clear();
  faults.BringBack("");
  journal.Clear();
}

}  // namespace kivosim
