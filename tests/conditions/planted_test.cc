// Other users who put links, fifos, folders and hard links where the library will write.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "conditions.h"

using namespace conditions;
namespace fs = std::filesystem;

namespace {

/// Puts `kind` at `path` as the user `uid` would.
void Plant(const std::string& path, const std::string& kind, uid_t uid, const std::string& canary) {
  fs::remove_all(path);
  if (kind == "link") fs::create_symlink(canary, path);
  if (kind == "dangling link") fs::create_symlink(canary + "-made", path);
  EXPECT_TRUE(kind != "fifo" || mkfifo(path.c_str(), 0666) == 0) << path;
  if (kind == "folder") fs::create_directory(path);
  if (kind == "hard link") fs::create_hard_link(canary, path);
  if (kind == "foreign file") WriteFile(path, "");
  EXPECT_TRUE(kind == "hard link" || lchown(path.c_str(), uid, uid) == 0) << path;
}

TEST(Planted, NothingOutsideIsTouchedAndNobodyWaits) {
  const struct {
    std::string path;
    uid_t uid;
  } places[] = {
      {"/tmp/account_query_info.lock", 1000}, {kRecord, 934}, {std::string(kFolder) + ".user.conf.lock", 934}};
  for (const auto& place : places)
    for (const std::string kind : {"link", "dangling link", "fifo", "folder", "hard link", "foreign file"}) {
      SCOPED_TRACE(place.path + ": " + kind);
      FreshCloud();
      const bool lock = place.path[1] == 't';
      const std::string canary = lock ? "/tmp/canary" : "/usr/varn/canary";  // a hard link stays on its file system
      WriteFile(canary, "canary");
      ASSERT_EQ(0, chmod(canary.c_str(), 0600));
      ASSERT_EQ("login 0 0", InChild(Login));
      Plant(place.path, kind, place.uid, canary);
      const std::string result = InChild([] {
        const std::string query = Query();
        return query + ", " + Set();
      });
      EXPECT_EQ("0600 0:0 canary, none",
                ModeAndOwner(canary) + " " + ReadFile(canary) + ", " + ModeAndOwner(canary + "-made"));
      EXPECT_TRUE(place.path != kRecord || kind != "hard link" || result == "query -1 3, get -1 3") << result;
      if (kind == "foreign file" && place.path != kRecord) {
        EXPECT_EQ("query 0 0, set 0 0", result);
      } else if (lock && kind != "hard link") {
        EXPECT_EQ("query -1 0, set 0 0", result) << "the slot stays when the lock is not to be had";
      }
      fs::remove_all(place.path);
      EXPECT_EQ("login 0 0", InChild(Login)) << "it works again once the trap is gone";
    }
}

}  // namespace
