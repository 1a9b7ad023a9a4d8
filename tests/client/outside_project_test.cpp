// The client library as another project uses it: installed, moved, and found by CMake and by pkg-config. The project is
// the example in docs/client.md, which must match the files in docs/examples.
#include <cstdlib>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using OutsideProject = DaemonTest;

TEST_F(OutsideProject, OfTheDocumentationIsBuiltAndTalksToTheDaemon) {
    Start();
    tree->Dir("old/sub");
    tree->File("old/a.txt");
    const std::string log = tree->Path("log");
    const std::string script =
        "set -e; exec >" + log + " 2>&1; cd " + tree->Path() + "; build=" BUILD_PATH "; source=" SOURCE_PATH R"sh(
        cmake --install $build --prefix $PWD/installed >install.log && mv installed prefix
        ! grep -rlF -e $source -e $build prefix/include prefix/lib*
        cmake -G Ninja -S $source/docs/examples/client -B cpp -DCMAKE_PREFIX_PATH=$PWD/prefix >cmake.log
        cmake --build cpp >build.log
        for name in $(nm -D --defined-only prefix/lib*/libfile_migrate_client.so prefix/lib/*/libfile_migrate_client.so \
                2>/dev/null | grep -o ' file_migrate_[a-z_]*'); do
            [ -e prefix/share/man/man3/$name.3 ] || echo "$name has no man page"
        done
        export PKG_CONFIG_PATH=$(dirname $(find $PWD/prefix -name file_migrate_client.pc))
        gcc -std=c99 -Wall -Wextra -Wpedantic -Werror $source/docs/examples/client/list_dir.c -o list_dir \
            $(pkg-config --cflags --libs file_migrate_client)
        echo '#include <file_migrate_orvane/file_migrate_orvane.h>
            FileMigrateRcvMsg request = {.cmd = FileMigrateCommand_CopyComb};' >wire.c
        gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only wire.c -Iprefix/include
        ln -s nowhere $PWD/old/link
        cpp/move_app_data $PWD/old $FILE_MIGRATE_SECOND_FS/new 1000 1000 2>&1 | grep -o 'old/link: .* lost'
        rm old/link
        cpp/move_app_data $PWD/old $PWD/new 1000 1000 | grep -o moved
        export LD_LIBRARY_PATH=$(pkg-config --variable=libdir file_migrate_client)
        ./list_dir $PWD/new | sort)sh";
    EXPECT_EQ(std::system(script.c_str()), 0);  // NOLINT(cert-env33-c,concurrency-mt-unsafe): a shell is wanted.
    EXPECT_EQ(ReadFile(log), "old/link: neither a file nor a directory; it would be lost\nmoved\na.txt\nsub/\n");
    const std::string examples = SOURCE_PATH "/docs/examples/client/", page = ReadFile(SOURCE_PATH "/docs/client.md");
    for (const char* file : {"CMakeLists.txt", "move_app_data.cpp", "list_dir.c"}) {
        EXPECT_NE(page.find(ReadFile(examples + file).append("```\n")), page.npos) << file;
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
