// Runs a command as on an older kernel:
//
//     old_kernel COMMAND [ARGUMENT...]
//
// For the command and its children statx fails with ENOSYS, and so do the calls that are newer than Linux 5.2, such as
// close_range, openat2 and fchmodat2. This also covers Linux 5.10, which has some of them. The C library then replaces
// statx, without the time of birth. New calls are numbered by age, and have the same number on all architectures.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <iterator>

int main(int count, char** arguments) {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_statx, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, SYS_pidfd_open, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(filter), filter};
    if (count < 2 || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        std::perror("old_kernel");
        return 1;
    }
    execvp(arguments[1], arguments + 1);
    std::perror(arguments[1]);
    return 1;
}
