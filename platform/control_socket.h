// The listening socket that the init system made for this process. The descriptor belongs to the caller. Reads the
// environment: to be called by the main thread before others start.
#pragma once

namespace TAVO::FileMigrateOrvane {

/// Finds the socket that init passed under a name.
/// @param name  the socket's name as the socket unit gives it (FileDescriptorName=)
/// @return the descriptor, closed on exec; -1 when init passed none, or, with a warning in the log, when it passed
///         sockets of other names only, several of this name, or one that is not a listening local stream socket.
int GetControlSocket(const char* name);

}  // namespace TAVO::FileMigrateOrvane
