// Adding a CA to a bundle: it grows once, keeps what was there, and never shows a reader half of it.
#include "sim/trust_bundle.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "sim/sim_bench.h"

namespace {

using testing::HasSubstr;

const char kFile[] = "/tmp/bundle.pem";

std::string Content() {
  std::ifstream stream(kFile, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string Pem() {
  kivosim::Options options;
  options.trustBundle.clear();
  return kivosim::Simulator(options).CaPem();
}

TEST(SimTrustBundle, OneBlockIsReplacedByTheNextAlsoInAFileThatIsAMount) {
  for (const bool mounted : {false, true}) {
    std::ofstream(kFile) << "# others";
    ASSERT_EQ(0, chmod(kFile, 0640));
    ASSERT_EQ(0, mounted ? mount(kFile, kFile, nullptr, MS_BIND, nullptr) : 0);
    kivosim::TrustInBundle(kFile, Pem());
    const std::size_t size = Content().size();
    std::ofstream(kFile, std::ios::app) << "# added later\n";
    const std::string second = Pem();
    kivosim::TrustInBundle(kFile, second);
    EXPECT_EQ(size + 14, Content().size());
    EXPECT_EQ(0u, Content().find("# others\n#"));
    EXPECT_THAT(Content(), testing::AllOf(HasSubstr("\n" + second), HasSubstr("\n# added later\n")));
    struct stat status {};
    EXPECT_EQ(0640u, stat(kFile, &status) == 0 ? status.st_mode & 07777 : 0);
    EXPECT_EQ(mounted ? 0 : -1, umount(kFile));
  }
}

TEST(SimTrustBundle, ReadersAlwaysFindAWholeFile) {
  std::ofstream(kFile) << std::string(200000, '#') << "\n";
  kivosim::TrustInBundle(kFile, Pem());
  const std::size_t size = Content().size();
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; i < 60; ++i) kivosim::TrustInBundle(kFile, Pem());
    done = true;
  });
  int torn = 0;
  while (!done) torn += Content().size() != size;
  writer.join();
  EXPECT_EQ(0, torn);
}

}  // namespace
