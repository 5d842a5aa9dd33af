// Tells the plug-ins of other packages about account events.
#ifndef VARNKIVO_KIVO_PLUGIN_MANAGER_H_
#define VARNKIVO_KIVO_PLUGIN_MANAGER_H_

#include "varnkivo.h"

#include <varn/platform.h>

#include <string>

namespace varnkivo {

/// Holds no state. A plug-in that fails is logged and stops nothing; nothing is thrown for it.
class KIVO_API KivoPluginManager {
 public:
  /// Runs the plug-ins registered for the product "kivo" and `event` ("kivo/login") and waits for them.
  void TriggerEvent(const std::string& event, _tag_sdk_plugin_action_ action) const;
  void Pre(const std::string& event) const;   ///< before the event
  void Post(const std::string& event) const;  ///< after it
};

}  // namespace varnkivo

#endif  // VARNKIVO_KIVO_PLUGIN_MANAGER_H_
