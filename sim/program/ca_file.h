// The CA certificate as a file of its own, for programs that take one ("curl --cacert").
#pragma once

#include <string>

namespace kivosim {

/// Written to the folder for temporary files under a fresh name, readable by all; removed by the destructor.
class CaFile {
 public:
  explicit CaFile(const std::string& pem);
  ~CaFile();
  CaFile(const CaFile&) = delete;
  CaFile& operator=(const CaFile&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace kivosim
