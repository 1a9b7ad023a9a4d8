// The entry from the workers into the commands. All workers may call it at the same time.
#pragma once

namespace TAVO::FileMigrateOrvane {

/// Validates a received request, runs its command and writes the reply. A request that fails a check is logged and
/// recorded; it gets no answer.
/// @param fd           the connection
/// @param recvBuf      the buffer that recv() filled, aligned as a FileMigrateRcvMsg
/// @param recvBufSize  the number of bytes received
void HandleCmd(const int& fd, const char* recvBuf, const int& recvBufSize);

}  // namespace TAVO::FileMigrateOrvane
