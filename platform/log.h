// The daemon's log functions: KelvoPrint with the daemon's type, domain and tag. All but LogRoutine write what an
// operator reads. Any thread may call them. They keep errno.
#pragma once

#include "kelvo_print.h"

namespace TAVO::FileMigrateOrvane {

inline constexpr int LOG_TYPE = 3;
inline constexpr unsigned int LOG_DOMAIN = 0xD002E01;
inline constexpr const char* LOG_TAG = "FileMigrateOrvane";

template <class... Args>
void Log(LogMark mark, const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    KelvoPrint<Args...>(LOG_TYPE, mark, LOG_DOMAIN, LOG_TAG, format, args...);
}

/// Writes a line of the daemon's bookkeeping, which the journal gets only if asked for. A failure is never routine.
template <class... Args>
void LogRoutine(LogLevel level, const KelvoFormat<std::type_identity_t<Args>...>& format,
                const Args&... args) noexcept {
    Log<Args...>({level, LogKind::Routine}, format, args...);
}

/// Writes a line that reports what failed in a request or why it was refused.
template <class... Args>
void LogFailure(const LogFailureFields& failure, const KelvoFormat<std::type_identity_t<Args>...>& format,
                const Args&... args) noexcept {
    Log<Args...>({LogLevel::Error, LogKind::Event, &failure}, format, args...);
}

template <class... Args>
void LogInfo(const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    Log<Args...>(LogLevel::Info, format, args...);
}

template <class... Args>
void LogWarn(const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    Log<Args...>(LogLevel::Warn, format, args...);
}

template <class... Args>
void LogError(const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    Log<Args...>(LogLevel::Error, format, args...);
}

}  // namespace TAVO::FileMigrateOrvane
