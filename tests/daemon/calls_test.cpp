// The order of the system calls that change files. It decides who can reach an object while a request makes it, and
// what is left after a power cut.
#include <string>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using enum Command;

/// Prints the calls that changed something, in the words of the table below. "DIRECTORY:NAME" is a name that was given
/// relative to the directory's descriptor, "DESCRIPTOR:" the object of a descriptor itself. A call that follows a link
/// in a tree, or waits at a pipe, is printed with the word "follows" or "waits".
const std::string CHANGES =
    std::string(R"sed(sed -nE 's,@,\x40,g; s,~,\x7e,g; /[\x40\x7e]/!d; /fail_kmsg/d; s/^[0-9]+ +//
    /^openat\([0-9]/{/O_NOFOLLOW|O_PATH\|O_DIRECTORY/!s/^/follows /p
                      /O_NONBLOCK|O_CREAT|O_PATH|O_DIRECTORY/!s/^/waits /p}
    s/^openat\(AT_FDCWD[^"]*"(.*)", .*O_CREAT.*, 0([0-7]+)\) += [0-9]+.*/create \1 \2/p
    s/^openat\([0-9]+<(.*)>, "(.*)", .*O_CREAT.*, 0([0-7]+)\) += [0-9]+.*/create \1:\2 \3/p
    s/^mkdirat\(AT_FDCWD[^"]*"(.*)", 0([0-7]+)\) += 0/mkdir \1 \2/p
    s/^mkdirat\([0-9]+<(.*)>, "(.*)", 0([0-7]+)\) += 0/mkdir \1:\2 \3/p
    s/^pwrite64\([0-9]+<([^>]*)>.*/write \1/p
    s/^ftruncate\([0-9]+<(.*)>, 0\) += 0/truncate \1/p
    s/^fchown\([0-9]+<(.*)>, ([0-9]+), ([0-9]+)\) += 0/chown \1 \2:\3/p
    s/^fchownat\([0-9]+<(.*)>, "(.*)", ([0-9]+), ([0-9]+), .*= 0/chown \1:\2 \3:\4/p
    s/^fchmod\([0-9]+<(.*)>, 0([0-7]+)\) += 0/chmod \1 \2/p
    s/^syncfs\([0-9]+<([^>]*)>.*/sync \1/p
    s/^unlinkat\(AT_FDCWD[^"]*"(.*)", .*= 0/unlink \1/p
    s/^unlinkat\([0-9]+<(.*)>, "(.*)", .*= 0/unlink \1:\2/p' )sed") +
    CALLS;

using CallsTest = DaemonTest;

/// No object is open to more users than its source or its request allows while it has no content or another owner. A
/// set-id bit comes last. Nothing is removed before its copy is flushed. A file at the destination is replaced if its
/// owner, its other names or those who have it open could reach the copy through it.
TEST_F(CallsTest, ComeInAnOrderThatIsSafeAtEachMoment) {
    const struct {
        const char* name;
        const char* before;
        Request request;
        const char* calls;
        const char* fault = "";
        int result = 0;
    } rows[] = {
        {"copy", "mkdir s; echo a >s/f", Ask(CopyAll, "@/s", "@/t"),
         "mkdir @/t 1700, create @/t:f 644, write @/t/f, chmod @/t 755"},
        {"copy, shared blocks", "echo a >s", Ask(CopyAll, "@/s", "@/t"), "create @/t 600, chmod @/t 644",
         "ioctl:retval=0"},
        {"copy, no access lists", "mkdir s", Ask(CopyAll, "@/s", "@/t"), "mkdir @/t 1700, chmod @/t 755",
         "fremovexattr:error=EOPNOTSUPP"},
        {"copy of a program", "echo a >s; chown 1:2 s; chmod 4755 s", Ask(CopyAll, "@/s", "@/t"),
         "create @/t 600, write @/t, chmod @/t 755"},
        {"copy of the owner's program", "echo a >s; chmod 4755 s", Ask(CopyAll, "@/s", "@/t"),
         "create @/t 600, write @/t, chmod @/t 4755"},
        {"copy, a group's directory",
         "mkdir -pm 750 s; mkdir -m 751 s/d; echo a >s/d/f; chmod 640 s/d/f; chgrp 7 .; chmod 2775 .",
         Ask(CopyAll, "@/s", "@/t"),
         "mkdir @/t 1700, mkdir @/t:d 1700, create @/t/d:f 600, write @/t/d/f, chmod @/t/d/f 600, chmod @/t/d 2711, "
         "chmod @/t 2700"},
        {"copy, the source's group's directory",
         "mkdir -pm 750 s; mkdir -m 751 s/d; echo a >s/d/f; chmod 640 s/d/f; chgrp -R 7 .; chmod 2775 .",
         Ask(CopyAll, "@/s", "@/t"),
         "mkdir @/t 1700, mkdir @/t:d 1700, create @/t/d:f 600, write @/t/d/f, chmod @/t/d/f 640, chmod @/t/d 2751, "
         "chmod @/t 2750"},
        {"move", "mkdir s; echo a >s/f; chown 1:2 s s/f; chmod 4750 s/f", Ask(MoveAll, "@/s", "~/t"),
         "mkdir ~/t 1700, create ~/t:f 600, write ~/t/f, chown ~/t/f 1:2, chmod ~/t/f 750, chown ~/t 1:2, chmod ~/t "
         "755, sync ~/t, unlink @/s:f, unlink @/s"},
        {"move, a group's directory", "mkdir s; echo a >s/f; chown 1:2 s s/f; chmod 750 s s/f; chgrp 7 ~; chmod 2775 ~",
         Ask(MoveAll, "@/s", "~/t"),
         "mkdir ~/t 1700, create ~/t:f 600, write ~/t/f, chown ~/t/f 1:2, chmod ~/t/f 750, chown ~/t 1:2, chmod ~/t "
         "2750, sync ~/t, unlink @/s:f, unlink @/s"},
        {"move, second pass", "mkdir s; echo a >s/f; chown 1:2 s s/f; chmod 4750 s/f", Ask(MoveAll, "@/s", "~/t"),
         "mkdir ~/t 1700, create ~/t:f 600, write ~/t/f, chown ~/t 1:2, chmod ~/t 755, unlink ~/t:f, create ~/t:f 600, "
         "write ~/t/f, chown ~/t/f 1:2, chmod ~/t/f 750, chown ~/t: 1:2, chown ~/t:f 1:2, sync ~/t, unlink @/s:f, "
         "unlink @/s",
         "pwrite64:error=EIO:when=1"},
        {"move, no owner", "mkdir -m 770 s; chown 1:2 s", Ask(MoveAll, "@/s", "~/t"), "mkdir ~/t 1700, chmod ~/t 700",
         "fchown:error=EPERM", -1},
        {"move into a directory, no owner", "mkdir s ~/t; echo a >s/f; chown 1:2 s", Ask(MoveAll, "@/s", "~/t"),
         "create ~/t:f 600, write ~/t/f, chown ~/t/f 1:2, chmod ~/t/f 644", "fchownat:error=EPERM", -1},
        {"move into a directory, no owner of a file", "mkdir s ~/t; echo a >s/f; chown 1:2 s s/f",
         Ask(MoveAll, "@/s", "~/t"), "create ~/t:f 600, write ~/t/f, chown ~/t: 1:2, chown ~/t:f 1:2",
         "fchown:error=EPERM", -1},
        {"move onto a file", "echo a >s; echo b >~/t; chmod 640 s; chmod 600 ~/t", Ask(MoveAll, "@/s", "~/t"),
         "truncate ~/t, chmod ~/t 600, write ~/t, chown ~/t 0:0, chmod ~/t 640, sync ~/t, unlink @/s"},
        {"combined copy", "mkdir -p s/d t; echo a >s/d/f", Ask(CopyComb, "@/s", "@/t", "1", "2", "04755"),
         "mkdir @/t:d 1700, chmod @/t/d 755, chown @/t/d: 1:2, chmod @/t/d 4755, create @/t/d:f 600, write @/t/d/f, "
         "chmod @/t/d/f 755, chown @/t/d/f: 1:2, chmod @/t/d/f 4755, sync @/t, unlink @/s/d:f, unlink @/s:d, unlink "
         "@/s"},
        {"combined copy, a group's directory", "echo a >s; chgrp 7 .; chmod 2775 .",
         Ask(CopyComb, "@/s", "@/t", "1", "2", "770"),
         "create @/t 600, write @/t, chmod @/t 700, chown @/t: 1:2, chmod @/t 770, sync @/t, unlink @/s"},
        {"combined copy onto an open file", "mkdir -p s t; echo a >s/f; echo b >t/f",
         Ask(CopyComb, "@/s", "@/t", "0", "0", "600"),
         "unlink @/t:f, create @/t:f 600, write @/t/f, chmod @/t/f 600, chown @/t/f: 0:0, sync @/t, unlink @/s:f, "
         "unlink @/s"},
        {"copy onto a file", "echo a >s; echo b >t; chmod 640 s; chmod 600 t", Ask(CopyAll, "@/s", "@/t"),
         "truncate @/t, chmod @/t 600, write @/t, chmod @/t 640"},
        {"copy onto an open file", "echo a >s; echo b >t; chmod 640 s; chmod 644 t", Ask(CopyAll, "@/s", "@/t"),
         "unlink @/t, create @/t 600, write @/t, chown @/t 0:0, chmod @/t 640"},
        {"copy onto another's file", "echo a >s; echo b >t; chmod 600 t; chown 1000 t; chmod 1777 .",
         Ask(CopyAll, "@/s", "@/t"), "unlink @/t, create @/t 600, write @/t, chmod @/t 644"},
        {"copy onto a file with two names", "echo a >s; echo b >t; chmod 600 t; ln t u", Ask(CopyAll, "@/s", "@/t"),
         "unlink @/t, create @/t 600, write @/t, chown @/t 0:0, chmod @/t 644"},
        {"copy onto the owner's file", "echo a >s; echo b >t; chmod 600 t; chown 1000 s t", Ask(CopyAll, "@/s", "@/t"),
         "truncate @/t, chmod @/t 600, write @/t, chmod @/t 644"},
        {"copy onto the owner's open file", "echo a >s; echo b >t; chmod 642 t; chown 1000 s t",
         Ask(CopyAll, "@/s", "@/t"), "unlink @/t, create @/t 600, write @/t, chown @/t 1000:0, chmod @/t 644"},
        {"move onto another's file", "echo a >s; echo b >~/t; chmod 600 ~/t; chown 1000 ~/t; chmod 1777 ~",
         Ask(MoveAll, "@/s", "~/t"),
         "unlink ~/t, create ~/t 600, write ~/t, chown ~/t 0:0, chmod ~/t 644, sync ~/t, unlink @/s"},
        {"combined copy onto another's file", "echo a >s; echo b >t; chmod 600 t; chown 1000 t; chmod 1777 .",
         Ask(CopyComb, "@/s", "@/t", "0", "0", "755"),
         "unlink @/t, create @/t 600, write @/t, chmod @/t 755, chown @/t: 0:0, sync @/t, unlink @/s"},
        {"combined copy onto the owner's file", "echo a >s; echo b >t; chown 1000 t",
         Ask(CopyComb, "@/s", "@/t", "1000", "0", "755"),
         "truncate @/t, chmod @/t 644, write @/t, chmod @/t 755, chown @/t: 1000:0, sync @/t, unlink @/s"},
        {"combined copy to a program", "echo a >s; echo b >t; chmod 600 t",
         Ask(CopyComb, "@/s", "@/t", "0", "0", "4755"),
         "unlink @/t, create @/t 600, write @/t, chmod @/t 755, chown @/t: 0:0, chmod @/t 4755, sync @/t, unlink @/s"},
        {"make ancestors", "", Ask(MkDir, "@/a//b/c/", "", "", "", "", 2),
         "mkdir @/a 700, mkdir @/a:b 700, mkdir @/a/b:c 700"},
        {"prepare ancestors", "", Ask(PrepareDir, "@/a/b", "", "1", "2", "770", 2),
         "mkdir @/a 1700, chmod @/a 770, chown @/a: 1:2, mkdir @/a:b 1700, chmod @/a/b 770, chown @/a/b: 1:2"},
        {"prepare", "", Ask(PrepareDir, "@/t", "", "1", "2", "770", 1),
         "mkdir @/t 1700, chmod @/t 770, chown @/t: 1:2"},
        {"prepare, a group's directory", "chgrp 7 .; chmod 2775 .", Ask(PrepareDir, "@/t", "", "1", "2", "770", 1),
         "mkdir @/t 1700, chmod @/t 700, chown @/t: 1:2, chmod @/t 770"},
    };
    for (const auto& [name, before, request, calls, fault, result] : rows) {
        NewTrees();
        const std::string traced =
            "-etrace=openat,mkdirat,pwrite64,ftruncate,fchown,fchownat,fchmod,syncfs,unlinkat,ioctl,fremovexattr";
        Start(
            {{},
             {"strace", "-fqqyo", CALLS, traced, *fault == '\0' ? "--seccomp-bpf" : "-einject=" + std::string(fault)}});
        ASSERT_TRUE(Shell(before)) << name;
        EXPECT_EQ(Call(request).result, result) << name;
        EXPECT_EQ(*Shell(CHANGES + " | paste -sd, | sed 's/,/, /g'"), std::string(calls) + "\n") << name;
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
