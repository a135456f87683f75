// SPDX-License-Identifier: MIT
#include "host/spelling.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace Zorbe::Tool {

namespace {

struct Free {
  void operator()(char* text) const { std::free(text); }
};

void addNew(std::vector<std::string>& paths, const std::string& path) {
  if (std::find(paths.begin(), paths.end(), path) == paths.end()) paths.push_back(path);
}

}  // namespace

std::string canonicalName(const std::string& name) {
  std::string result;
  for (std::size_t begin = 0; begin < name.size();) {
    const std::size_t end = std::min(name.find('/', begin), name.size());
    const std::string component = name.substr(begin, end - begin);
    if (!component.empty() && component != ".") {
      if (!result.empty()) result += '/';
      result += component;
    }
    begin = end + 1;
  }
  return result;
}

std::string canonicalPath(const std::string& path) {
  std::string components = canonicalName(path);
  if (!path.empty() && path.front() == '/') return "/" + components;
  return components;
}

std::string absolutePath(const std::string& path) {
  if (!path.empty() && path.front() == '/') return canonicalPath(path);
  return canonicalPath(std::filesystem::current_path().string() + "/" + path);
}

std::vector<std::string> spellingsOfBase(const std::string& base) {
  const std::string canonical = canonicalPath(base);
  std::vector<std::string> bases;
  addNew(bases, base);
  addNew(bases, canonical);
  addNew(bases, canonical + "/");
  const std::string real = realPath(base);
  if (!real.empty()) addNew(bases, real);
  return bases;
}

std::vector<std::string> spellingsOfTable(const std::string& base, const std::string& name) {
  if (name.empty()) return {base, base + "/.", base + "/./", base + "/"};
  std::vector<std::string> paths;
  for (const char* before : {"/", "/./"}) {
    std::string path = base;
    path.append(before).append(name);
    for (const char* after : {"", "/", "/."}) paths.push_back(path + after);
  }
  return paths;
}

std::string realPath(const std::string& path) {
  const std::unique_ptr<char, Free> real(realpath(path.c_str(), nullptr));
  return real ? real.get() : "";
}

}  // namespace Zorbe::Tool
