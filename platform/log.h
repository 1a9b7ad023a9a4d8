// The daemon's log functions: KelvoPrint with the daemon's type, domain and tag, one function for each level. Any
// thread may call them. They keep errno.
#pragma once

#include "kelvo_print.h"

namespace TAVO::FileMigrateOrvane {

inline constexpr int LOG_TYPE = 3;
inline constexpr unsigned int LOG_DOMAIN = 0xD002E01;
inline constexpr const char* LOG_TAG = "FileMigrateOrvane";

template <class... Args>
void LogDebug(const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    KelvoPrint<Args...>(LOG_TYPE, LogLevel::Debug, LOG_DOMAIN, LOG_TAG, format, args...);
}

template <class... Args>
void LogInfo(const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    KelvoPrint<Args...>(LOG_TYPE, LogLevel::Info, LOG_DOMAIN, LOG_TAG, format, args...);
}

template <class... Args>
void LogWarn(const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    KelvoPrint<Args...>(LOG_TYPE, LogLevel::Warn, LOG_DOMAIN, LOG_TAG, format, args...);
}

template <class... Args>
void LogError(const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    KelvoPrint<Args...>(LOG_TYPE, LogLevel::Error, LOG_DOMAIN, LOG_TAG, format, args...);
}

}  // namespace TAVO::FileMigrateOrvane
