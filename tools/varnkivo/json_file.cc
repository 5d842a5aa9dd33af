// Reads a file that somebody else writes. Touches that file only, and waits for nothing: a pipe in its place is opened
// without a writer. What is in the file may be anything; a parser that gives up must not end the tool.
#include "json_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace kivotool {
namespace {

constexpr std::size_t kMost = 4u << 20;

bool Parse(const std::string& text, Json::Value& document) {
  std::istringstream in(text);
  std::string errors;
  try {
    return Json::parseFromStream(Json::CharReaderBuilder(), in, &document, &errors) && document.isObject();
  } catch (const Json::Exception&) {
    return false;
  }
}

std::string ReadAll(int file) {
  std::string text;
  char block[4096];
  ssize_t got;
  while (text.size() < kMost && (got = read(file, block, sizeof block)) > 0)
    text.append(block, static_cast<std::size_t>(got));
  return text;
}

}  // namespace

JsonFile ReadJsonFile(const std::string& path) {
  JsonFile result;
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (file < 0) {
    result.known = errno == ENOENT;
    return result;
  }
  result.exists = true;
  result.known =
      fstat(file, &result.facts) == 0 && S_ISREG(result.facts.st_mode) && Parse(ReadAll(file), result.document);
  close(file);
  return result;
}

std::int64_t SecondsIn(const Json::Value& document, const char* name) {
  const Json::Value& value = document[name];
  return value.isInt64() ? value.asInt64() : value.isString() ? std::strtoll(value.asCString(), nullptr, 10) : 0;
}

}  // namespace kivotool
