// Owner and permission bits of a path or a whole tree. Symbolic links are never followed: a change of owner applies to
// the link itself, and a change of mode fails for it (EOPNOTSUPP). For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

#include "entry.h"
#include "failures.h"
#include "path_para.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

[[nodiscard]] int DoChOwn(const std::string& path, unsigned int uid, unsigned int gid, int& err, int recordKind);

/// @param mode  permission bits
[[nodiscard]] int DoChMod(const std::string& path, unsigned int mode, int& err, int recordKind);

/// Changes a directory before its contents and continues after an entry that fails. -1 if anything failed.
[[nodiscard]] int DoChOwnRecurse(const std::string& path, unsigned int uid, unsigned int gid, int& err, int recordKind);
/// The same for an entry.
[[nodiscard]] int DoChOwnRecurse(const Entry& entry, const OwnerIds& owner, const Report& report);
/// The same for an open object. @param path  its path for messages
[[nodiscard]] int DoChOwnRecurse(const UniqueFd& object, std::string& path, const OwnerIds& owner,
                                 const Report& report);

/// The same for the mode. Each symbolic link in the tree is a failure, and everything else is still changed.
[[nodiscard]] int DoChModRecurse(const std::string& path, unsigned int mode, int& err, int recordKind);

/// DoChMod, then DoChOwn; a set-id bit comes last, when the owner is final.
/// @param object  the object to change, open; if empty, `path` is changed
[[nodiscard]] int SetModeAndOwner(const UniqueFd& object, const std::string& path, const PermPara& perm,
                                  const Report& report);

/// Changes the owner as `recurseOpt` says. EINVAL for an id that is not given or an unknown option.
[[nodiscard]] int ChOwn(const PathPara& para, int& err, int recordKind);

/// Changes the mode as `recurseOpt` says. EINVAL for a mode that is not given or an unknown option.
[[nodiscard]] int ChMod(const PathPara& para, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
