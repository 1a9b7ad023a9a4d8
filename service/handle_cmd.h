// The one entry from the workers into the commands. May run on all workers at once.
#pragma once

namespace TAVO::FileMigrateOrvane {

/// Validates a received request, has its command carried out and writes the reply. A request that fails a check
/// is logged and recorded and gets no answer at all.
/// @param recvBuf      what recv() filled, aligned as a FileMigrateRcvMsg
/// @param recvBufSize  bytes that recv() returned
void HandleCmd(const int& fd, const char* recvBuf, const int& recvBufSize);

}  // namespace TAVO::FileMigrateOrvane
