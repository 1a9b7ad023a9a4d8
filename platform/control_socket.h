// The listening socket that the init system created for this process. The descriptor belongs to the caller. Reads the
// environment, so the main thread calls it before it starts other threads.
#pragma once

namespace TAVO::FileMigrateOrvane {

/// Finds the socket that init passed under a name.
/// @param name  the name from the socket unit (FileDescriptorName=)
/// @return the descriptor, closed on exec; -1 if init passed no socket. Also -1, with a warning in the log, if init
///         passed only sockets with other names, several with this name, or one that is not a listening local stream
///         socket.
int GetControlSocket(const char* name);

}  // namespace TAVO::FileMigrateOrvane
