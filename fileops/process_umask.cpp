#include "process_umask.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string_view>

#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

mode_t ReadProcessUmask() {
    constexpr mode_t EVERYTHING = 0777;
    constexpr std::string_view FIELD = "\nUmask:\t";
    constexpr int OCTAL = 8;
    const UniqueFd status(open("/proc/thread-self/status", O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> buffer{};  // the field is in the second line
    const ssize_t size = read(status.Get(), buffer.data(), buffer.size() - 1);
    const std::string_view text(buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::size_t at = text.find(FIELD);
    return at == std::string_view::npos
               ? EVERYTHING
               : static_cast<mode_t>(std::strtoul(text.data() + at + FIELD.length(), nullptr, OCTAL));
}

}  // namespace TAVO::FileMigrateOrvane
