// The temporary CA file.
#include "sim/program/ca_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace kivosim {

CaFile::CaFile(const std::string& pem) {
  const char* folder = std::getenv("TMPDIR");
  path_ = std::string(folder && *folder ? folder : "/tmp") + "/varnkivo-sim-ca-XXXXXX.pem";
  const int fd = mkstemps(path_.data(), 4);
  const bool written =
      fd >= 0 && write(fd, pem.data(), pem.size()) == static_cast<ssize_t>(pem.size()) && fchmod(fd, 0644) == 0;
  if (fd >= 0) close(fd);
  if (!written) throw std::runtime_error("cannot write " + path_);
}

CaFile::~CaFile() { unlink(path_.c_str()); }

}  // namespace kivosim
