/* The platform's header as a C99 program uses it. */
#include <varn/platform.h>

int CallPlatformFromC(void);

int CallPlatformFromC(void) {
  VLIBPlugin* plugins = NULL;
  _tag_sdk_plugin_action_ action = VLIB_PLUGIN_ACTION_POST;
  enum _tag_sdk_plugin_action_ same = action;
  if (VLIBPluginSDKInit("kivo", "no/such/event", &plugins, 0) != 0 || plugins == NULL) return -1;
  if (VLIBPluginAction(same, plugins) != 0 || VLIBPluginExit(plugins) != 0) return -2;
  return (int)VLIB_PLUGIN_ACTION_PRE * 10 + (int)action;
}
