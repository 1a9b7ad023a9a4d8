#include "process_umask.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string_view>

#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

mode_t ReadProcessUmask() {
    constexpr mode_t everything = 0777;
    constexpr std::string_view field = "\nUmask:\t";
    constexpr int octal = 8;
    const UniqueFd status(open("/proc/thread-self/status", O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> buffer{};  // the field is in the second line
    const ssize_t size = read(status.Get(), buffer.data(), buffer.size() - 1);
    const std::string_view text(buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::size_t at = text.find(field);
    return at == std::string_view::npos
               ? everything
               : static_cast<mode_t>(std::strtoul(text.data() + at + field.length(), nullptr, octal));
}

}  // namespace TAVO::FileMigrateOrvane
