// Runs the plug-ins that other packages registered for an account event. Touches nothing of the account itself.
// The session is closed whatever failed; a failing plug-in never stops what it is told of.
#include "kivo_plugin_manager.h"

#include "internal/log.h"

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_plugin_manager";

}  // namespace

void KivoPluginManager::TriggerEvent(const std::string& event, _tag_sdk_plugin_action_ action) const {
  VLIBPlugin* handle = nullptr;
  if (VLIBPluginSDKInit("kivo", event.c_str(), &handle, 0) < 0) {
    LogError(kSource, "Failed to init plugin: %s", event.c_str());
  } else if (VLIBPluginAction(action, handle) < 0) {
    LogError(kSource, "Failed to do plugin %s, action=%u", event.c_str(), static_cast<unsigned int>(action));
  }
  VLIBPluginExit(handle);
}

void KivoPluginManager::Pre(const std::string& event) const { TriggerEvent(event, VLIB_PLUGIN_ACTION_PRE); }
void KivoPluginManager::Post(const std::string& event) const { TriggerEvent(event, VLIB_PLUGIN_ACTION_POST); }

}  // namespace varnkivo
