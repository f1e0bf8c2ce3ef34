// Runs code that must not make any system call.
#pragma once
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <iterator>

// Makes the kernel end the process with SIGSYS if this thread makes a system call other than an
// exit. Returns false if it cannot.
inline bool ForbidSystemCalls() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog filter = {std::size(program), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Forks a child that runs `body` without system calls and exits with its result. Returns the
// child's wait status.
template <typename Body>
int EndWithoutSystemCalls(Body body) {
    const pid_t child = fork();
    if (child == 0) syscall(SYS_exit, ForbidSystemCalls() ? body() : 99);
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}
