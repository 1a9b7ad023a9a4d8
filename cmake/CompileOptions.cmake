# Language, warnings and hardening, the same for every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Position-independent executables need the linker's flag too, not only the compiler's.
include(CheckPIESupported)
check_pie_supported()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wnon-virtual-dtor -Wold-style-cast
                    -fstack-protector-strong -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
add_compile_definitions(_GNU_SOURCE _GLIBCXX_ASSERTIONS)
add_link_options(-Wl,-z,relro,-z,now)

# Hardening that depends on the processor.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|amd64|i.86")
    add_compile_options(-fstack-clash-protection -fcf-protection)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    add_compile_options(-fstack-clash-protection -mbranch-protection=standard)
endif()

# _FORTIFY_SOURCE needs optimisation, and hides some calls from the sanitizers. For the packages debian/rules sets it.
add_compile_options("$<$<CONFIG:Release>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")

# FILE_MIGRATE_SANITIZE: what -fsanitize= takes ("address,undefined", "thread"); set by the presets.
set(FILE_MIGRATE_SANITIZE "" CACHE STRING "Sanitizers to build with")
option(FILE_MIGRATE_FUZZ "Build the fuzz targets for libFuzzer, and everything with its sanitizers (clang)" OFF)
if(FILE_MIGRATE_FUZZ)
    set(FILE_MIGRATE_SANITIZE fuzzer-no-link,address,undefined)
endif()
if(FILE_MIGRATE_SANITIZE)
    # The check of virtual tables needs a pipe. In a test that leaves no descriptors, it takes that failure for a broken
    # object.
    add_compile_options(-fsanitize=${FILE_MIGRATE_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${FILE_MIGRATE_SANITIZE})
endif()
