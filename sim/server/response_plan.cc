// Builds the bytes of an answer and cuts them up. No Date and no Server header: two equal answers are equal bytes.
#include "sim/server/response_plan.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace kivosim {
namespace {

const char* Reason(int status) {
  static constexpr struct {
    int status;
    const char* reason;
  } kReasons[] = {{100, "Continue"},
                  {200, "OK"},
                  {204, "No Content"},
                  {301, "Moved Permanently"},
                  {302, "Found"},
                  {303, "See Other"},
                  {307, "Temporary Redirect"},
                  {308, "Permanent Redirect"},
                  {400, "Bad Request"},
                  {401, "Unauthorized"},
                  {403, "Forbidden"},
                  {404, "Not Found"},
                  {429, "Too Many Requests"},
                  {500, "Internal Server Error"},
                  {503, "Service Unavailable"}};
  for (const auto& row : kReasons)
    if (row.status == status) return row.reason;
  return "Status";
}

bool HasNoBody(int status) { return status < 200 || status == 204 || status == 304; }

std::string Chunk(const std::string& bytes) {
  char size[32];
  std::snprintf(size, sizeof size, "%zx\r\n", bytes.size());
  return bytes.empty() ? "" : size + bytes + "\r\n";
}

Response Spoil(Response response, const Fault& fault) {
  if (fault.status) response.status = *fault.status;
  if (fault.body) response.body = *fault.body;
  if (fault.contentType) response.contentType = *fault.contentType;
  response.headers.insert(response.headers.end(), fault.headers.begin(), fault.headers.end());
  return response;
}

std::string Head(const Response& response, const Fault& fault, bool closes) {
  std::string head = "HTTP/1.1 " + std::to_string(response.status) + " " + Reason(response.status) + "\r\n";
  const bool bare = HasNoBody(response.status);
  if (!bare && !response.contentType.empty()) head += "Content-Type: " + response.contentType + "\r\n";
  if (!bare && fault.framing == Framing::kChunked) head += "Transfer-Encoding: chunked\r\n";
  if (fault.contentLength || (!bare && fault.framing == Framing::kLength)) {
    // An endless body under a length has to announce one that is never reached.
    const std::uint64_t length = fault.endless ? std::uint64_t{1} << 40U : response.body.size();
    head += "Content-Length: " + std::to_string(fault.contentLength.value_or(length)) + "\r\n";
  }
  if (closes) head += "Connection: close\r\n";
  for (const auto& [name, value] : response.headers) head += name + ": " + value + "\r\n";
  return head + "\r\n";
}

std::string Body(const Response& response, const Fault& fault) {
  if (HasNoBody(response.status)) return "";
  if (fault.framing != Framing::kChunked) return response.body;
  return Chunk(response.body) + (fault.endless ? "" : "0\r\n\r\n");
}

std::size_t RawHeadSize(const std::string& bytes) {
  const std::size_t blank = bytes.find("\r\n\r\n");
  return blank == std::string::npos ? bytes.size() : blank + 4;
}

std::vector<std::size_t> Offsets(const Fault& fault, std::size_t size) {
  std::vector<std::size_t> offsets = fault.splits;
  if (offsets.empty() && fault.dripBytes > 0)
    for (std::size_t at = fault.dripBytes; at < size; at += fault.dripBytes) offsets.push_back(at);
  std::sort(offsets.begin(), offsets.end());
  return offsets;
}

std::vector<ResponsePlan::Piece> CutUp(const std::string& bytes, const Fault& fault) {
  const std::chrono::milliseconds pause = fault.splits.empty() ? fault.dripInterval : fault.splitPause;
  std::vector<ResponsePlan::Piece> pieces;
  std::size_t start = 0;
  for (const std::size_t offset : Offsets(fault, bytes.size())) {
    if (offset <= start || offset >= bytes.size()) continue;
    pieces.push_back({pause, bytes.substr(start, offset - start)});
    start = offset;
  }
  pieces.push_back({pause, bytes.substr(start)});
  pieces.front().pause = fault.delay;
  return pieces;
}

}  // namespace

ResponsePlan PlanResponse(const Response& response, const std::optional<Fault>& strikes, bool clientCloses) {
  const Fault fault = strikes.value_or(Fault{});
  const Response spoilt = Spoil(response, fault);
  ResponsePlan plan;
  plan.closes = clientCloses || fault.framing == Framing::kUntilClose || spoilt.status < 200;
  const std::string head = fault.raw ? "" : Head(spoilt, fault, plan.closes && spoilt.status >= 200);
  std::string bytes = fault.raw ? *fault.raw : head + Body(spoilt, fault);
  const std::size_t whole = bytes.size();
  const std::size_t headSize = fault.raw ? RawHeadSize(bytes) : head.size();
  if (fault.cutAfter) bytes.resize(std::min(bytes.size(), *fault.cutAfter));
  if (fault.cutBodyAfter) bytes.resize(std::min(bytes.size(), headSize + *fault.cutBodyAfter));
  if (fault.cutLast) bytes.resize(bytes.size() - std::min(bytes.size(), *fault.cutLast));
  const bool cut = bytes.size() < whole;
  if (fault.endless && !cut) {
    const std::string block(16384, 'x');
    plan.endless = fault.framing == Framing::kChunked ? Chunk(block) : block;
  }
  plan.end = cut && fault.end == End::kNormal ? End::kFin : fault.end;
  // Raw bytes tell the client nothing the server could rely on, so it is the client who ends the connection then.
  if (fault.raw) plan.closes = false;
  plan.status = bytes.compare(0, 9, "HTTP/1.1 ") == 0 ? std::atoi(bytes.c_str() + 9) : 0;
  plan.pieces = CutUp(bytes, fault);
  return plan;
}

}  // namespace kivosim
