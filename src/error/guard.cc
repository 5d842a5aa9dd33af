// Turns an exception that reached an exported function into a log line and a code. Touches the slot.
// It must not throw itself, not even when memory is short: then the line is lost and the code stays.
#include "internal/guard.h"

#include "internal/log.h"
#include "internal/redact.h"
#include "kivo_exception.h"

#include <json/json.h>

#include <new>

namespace varnkivo {
namespace {

int Report(Site site, int code, const char* text) noexcept {
  try {
    LogError(site, "%s", Redact(text).c_str());
  } catch (...) {
    LogError(site, "%s", GetKivoErrorMsg(code));
  }
  VARNKIVOErrSet(code);
  return -1;
}

}  // namespace

int Unexpected(Site site) noexcept {
  try {
    throw;
  } catch (const KivoException& error) {
    return Report(site, error.GetCode(), error.what());
  } catch (const Json::Exception& error) {
    return Report(site, KIVO_ERR_BAD_JSON, error.what());
  } catch (const std::bad_alloc& error) {
    return Report(site, KIVO_ERR_SYSTEM, error.what());
  } catch (const std::exception& error) {
    return Report(site, KIVO_ERR_UNKNOWN, error.what());
  } catch (...) {
    return Report(site, KIVO_ERR_UNKNOWN, "unknown exception");
  }
}

}  // namespace varnkivo
