// SPDX-License-Identifier: MIT
//
// A writer's lock is named after the path of its directory as the writer spells it. One directory
// has one name here, and the other spellings are known.
#pragma once

#include <string>
#include <vector>

namespace Zorbe::Tool {

/// `path` without empty and "." components and without a slash at its end. ".." stays: what it
/// leads to depends on symbolic links.
std::string canonicalPath(const std::string& path);

/// The same, of a relative path below the working directory.
std::string absolutePath(const std::string& path);

/// The name of a table in the same form, without a slash at its begin: "./a//b/" is "a/b".
std::string canonicalName(const std::string& name);

/// The base directory of this process's environment, in every spelling that its programs are likely
/// to have: as it is, canonical, with a slash at its end, and without symbolic links.
std::vector<std::string> spellingsOfBase(const std::string& base);

/// The paths that lead to the table `name` below `base` by its usual spellings.
std::vector<std::string> spellingsOfTable(const std::string& base, const std::string& name);

/// The path without symbolic links; empty when there is no such file.
std::string realPath(const std::string& path);

}  // namespace Zorbe::Tool
