// The device's own configuration, "/usr/varn/etc/host.conf", as the other groups of the platform read it.
#ifndef VARNPLATFORM_DEVICE_FACTS_H
#define VARNPLATFORM_DEVICE_FACTS_H

#include <string>

namespace varnplatform {

/// The serial in use: "serial" of the configuration, else the machine id. Empty, with the error recorded: none.
std::string SerialNumber();

/// First line of a small text file, trimmed; empty where there is none.
std::string FirstLine(const std::string& path);

}  // namespace varnplatform

#endif  // VARNPLATFORM_DEVICE_FACTS_H
