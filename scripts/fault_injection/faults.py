"""The faults: which system calls can fail with which errors, and how often a run makes each call."""

import collections
import dataclasses
import re

# The errors that the kernel returns for valid arguments. Calls that are not listed fail with OTHER_ERRORS.
ERRORS = {
    "access": "EACCES ENOENT ENOMEM",
    "accept4": "EMFILE ECONNABORTED",
    "chmod": "EPERM EIO",
    "clone": "EAGAIN ENOMEM",
    "clone3": "EAGAIN ENOMEM ENOSYS",
    "close_range": "EMFILE ENOMEM ENOSYS",
    "connect": "ECONNREFUSED ENETUNREACH EACCES EAGAIN EINPROGRESS",
    "copy_file_range": "EIO ENOSPC EXDEV EINTR EFBIG",
    "dup2": "EBUSY EINTR EMFILE",
    "eventfd2": "EMFILE ENOMEM",
    "faccessat2": "EACCES ENOENT EIO",
    "fchmod": "EPERM EIO EROFS",
    "fcntl": "EMFILE EINTR ENOLCK EAGAIN",
    "fork": "EAGAIN ENOMEM",
    "fsync": "EIO ENOSPC EDQUOT",
    "ftruncate": "EIO EFBIG EINTR",
    "getcwd": "ENOENT EACCES ENOMEM",
    "getdents64": "EIO",
    "getpeername": "ENOTCONN ENOBUFS",
    "getrandom": "EINTR ENOSYS",
    "getsockname": "ENOBUFS",
    "getsockopt": "ENOMEM",
    "inotify_init1": "EMFILE ENOMEM",
    "ioctl": "EIO ENOTTY EOPNOTSUPP EINTR",
    "link": "EPERM EIO EMLINK",
    "linkat": "EPERM EIO EMLINK",
    "lseek": "EINVAL EIO",
    "lstat": "EACCES ENOENT ENOMEM EIO",
    "mkdir": "EACCES EROFS ENOSPC EIO",
    "mkdirat": "EACCES EROFS ENOSPC EIO",
    "mmap": "ENOMEM",
    "mprotect": "ENOMEM",
    "mremap": "ENOMEM",
    "newfstatat": "EACCES ENOENT EIO ENOMEM",
    "openat": "EACCES ENOENT EIO EMFILE EINTR ENOSPC",
    "pipe2": "EMFILE ENFILE",
    "poll": "EINTR ENOMEM",
    "prctl": "EINVAL EPERM",
    "pread64": "EIO EINTR",
    "prlimit64": "EPERM",
    "pwrite64": "EIO ENOSPC EINTR",
    "read": "EIO EINTR",
    "readlink": "EACCES EIO ENOENT",
    "readlinkat": "EACCES EIO ENOENT",
    "recvfrom": "ECONNRESET EINTR EAGAIN",
    "rename": "EACCES ENOSPC EIO EROFS",
    "sched_getaffinity": "EINVAL",
    "sendto": "ECONNRESET EPIPE EINTR EAGAIN",
    "setsid": "EPERM",
    "setsockopt": "ENOBUFS EINVAL",
    "socket": "EMFILE EAFNOSUPPORT EACCES",
    "socketpair": "EMFILE ENOMEM",
    "statfs": "EIO ENOSYS",
    "statx": "EACCES ENOENT EIO ENOSYS",
    "symlinkat": "EACCES ENOSPC EIO",
    "unlink": "EACCES EIO EROFS",
    "unlinkat": "EACCES EIO EROFS",
    "utimensat": "EPERM EACCES EIO",
    "vfork": "EAGAIN ENOMEM",
    # Not ECHILD: the kernel returns it only if SIGCHLD is ignored, which the tool prevents. With strace the child
    # would still be running, which the kernel never allows.
    "wait4": "EINTR",
    "waitid": "EINTR",
    "write": "EIO ENOSPC EINTR EAGAIN EPIPE",
    "writev": "EIO ENOSPC EINTR",
}
OTHER_ERRORS = "EIO ENOMEM"

LEFT_OUT = {
    "the kernel closes the descriptor even when it reports an error; with strace it stays open": "close",
    "the kernel reports a failure by returning the old break, not an error number": "brk",
    "they do not fail with valid arguments": """
        alarm arch_prctl exit exit_group getegid geteuid getgid getpgrp getpid getppid getsid gettid getuid
        rseq rt_sigaction rt_sigpending rt_sigprocmask rt_sigreturn sched_yield set_robust_list
        set_tid_address sigaltstack sysinfo umask uname""",
    "it fails only when it removes the middle of a mapping, which nothing here does": "munmap",
    "a wake-up does not fail; if strace skipped it, a thread would wait forever": "futex",
    "it is advice only: nothing depends on it": "madvise fadvise64",
    "an interrupted sleep ends early; strace would skip the sleep": "clock_nanosleep nanosleep restart_syscall",
    "a process that ends itself with a signal would continue": "kill tgkill",
    "strace counts per process: the first call would be the one with which it starts the tool": "execve",
}
NOT_INJECTED = {call for calls in LEFT_OUT.values() for call in calls.split()}


@dataclasses.dataclass(frozen=True)
class Fault:
    """The `number`th `call` of each process or thread of `target` fails with `error`."""

    target: str  # ROAD/PROGRAM
    call: str
    error: str
    number: int

    @staticmethod
    def parse(text):
        target, call, error, number = text.split(":")
        return Fault(target, call, error, int(number))

    def __str__(self):
        return f"{self.target}:{self.call}:{self.error}:{self.number}"

    @property
    def road(self):
        return self.target.split("/")[0]

    @property
    def program(self):
        return self.target.split("/")[1]


def calls_to_fail(trace):
    """The calls in the trace of a complete run that may fail, as pairs of name and number.

    The calls of the dynamic loader before the program's own code are left out: if one fails, the loader ends the
    program with a message and status 127. Its last call unmaps its cache.
    """
    calls = collections.defaultdict(list)  # by process or thread, the first one first
    for process, call in re.findall(r"^(\d+) +(\w+)\(", trace, re.MULTILINE):
        calls[process].append(call)
    first = next(iter(calls.values()))
    loaded = first.index("munmap") + 1 if "ld.so.cache" in trace else 0
    of_loader = collections.Counter(first[:loaded])
    most = collections.Counter()
    for made in calls.values():
        most |= collections.Counter(made)
    return [
        (call, number)
        for call in sorted(most.keys() - NOT_INJECTED)
        for number in range(of_loader[call] + 1, most[call] + 1)
    ]


def faults_of(target, trace, allocations):
    """All faults of a target whose complete run has the trace `trace` and makes `allocations` allocations."""
    return [
        Fault(target, call, error, number)
        for call, number in calls_to_fail(trace)
        for error in ERRORS.get(call, OTHER_ERRORS).split()
    ] + [Fault(target, "malloc", "ENOMEM", number) for number in range(1, allocations + 1)]
