// Makes programs of this machine (better: of a sandbox) trust the simulator: adds its CA to a bundle of PEM files. Our
// block in the file is framed by comment lines and replaced by the next simulator's, so a bundle grows once only.
#pragma once

#include <string>

namespace kivosim {

/// Whoever reads the file meanwhile finds either the old or the new one. Throws std::runtime_error when it cannot be
/// written; a file that does not exist is made.
void TrustInBundle(const std::string& file, const std::string& caPem);

}  // namespace kivosim
