#include "Categories/NSTask+Convenience.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <iterator>

namespace {

/// Makes close_range(2) fail with `error`, and opening any folder, such as /proc/self/fd.
bool refuseListsOfDescriptors(unsigned error) {
    sock_filter instructions[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close_range, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, O_DIRECTORY, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOENT),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {static_cast<unsigned short>(std::size(instructions)), instructions};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(Sandbox, ChildrenGetNoDescriptorsOnOldKernelsWithoutProc) {
    const NSTask::Arguments probe = {"-c", "(exec <&50) 2>/dev/null && echo inherited; echo end"};
    for (const unsigned error : {unsigned{ENOSYS}, unsigned{EPERM}})
        EXPECT_EXIT(
            {
                dup2(STDERR_FILENO, 50);
                const bool isRefused = refuseListsOfDescriptors(error);
                _exit(isRefused && NSTask::stdoutWithLaunchPath("/bin/bash", probe) == "end\n" ? 42 : 1);
            },
            testing::ExitedWithCode(42), "");
}

} // namespace
