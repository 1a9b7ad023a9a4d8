// Owner and permission bits of a path or a whole tree. Symbolic links are never followed: an owner is that of the
// link itself, and a mode cannot be given to one (EOPNOTSUPP). For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

#include "path_para.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

[[nodiscard]] int DoChOwn(const std::string& path, unsigned int uid, unsigned int gid, int& err, int recordKind);

/// @param mode permission bits
[[nodiscard]] int DoChMod(const std::string& path, unsigned int mode, int& err, int recordKind);

/// A directory before its contents; goes on past an entry that fails. 0, or -1 if anything failed.
[[nodiscard]] int DoChOwnRecurse(const std::string& path, unsigned int uid, unsigned int gid, int& err, int recordKind);

/// The same for the mode; fails for each symbolic link in the tree, after everything else was changed.
[[nodiscard]] int DoChModRecurse(const std::string& path, unsigned int mode, int& err, int recordKind);

/// DoChOwnRecurse from an open object on. @param path its text for messages
[[nodiscard]] int DoChOwnRecurse(const UniqueFd& object, const std::string& path, unsigned int uid, unsigned int gid,
                                 int& err, int recordKind);

/// DoChMod, then DoChOwn; a set-id bit comes last, when the owner is final.
/// @param object  the object that is meant, open; none for whatever is at the path
[[nodiscard]] int SetModeAndOwner(const UniqueFd& object, const std::string& path, const PermPara& perm, int& err,
                                  int recordKind);

/// Changes the owner as `recurseOpt` directs. EINVAL for an id that is not given or an unknown option.
[[nodiscard]] int ChOwn(const PathPara& para, int& err, int recordKind);

/// Changes the mode as `recurseOpt` directs. EINVAL for a mode that is not given or an unknown option.
[[nodiscard]] int ChMod(const PathPara& para, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
