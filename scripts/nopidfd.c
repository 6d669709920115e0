/*
 * Preloaded into every program that runs under qemu-arm (scripts/cross-test
 * names it in the armhf sysroot's /etc/ld.so.preload, which only emulated
 * programs see).
 *
 * qemu-user 7.2 rejects clone(CLONE_PIDFD) with EINVAL, while the host kernel
 * answers the waitid(P_PIDFD) probe that Qt uses to decide whether to use it;
 * QProcess then cannot start anything under emulation.  This makes the probe
 * report ENOSYS, as a pre-5.4 kernel would, so Qt takes its plain fork() path,
 * which the emulator handles.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

long syscall(long number, ...)
{
    static long (*next)(long, ...);
    va_list ap;
    long a[6];
    int i;

    /* Every argument of a system call is one register-sized word. */
    va_start(ap, number);
    for (i = 0; i < 6; ++i)
        a[i] = va_arg(ap, long);
    va_end(ap);

    if (number == __NR_waitid && a[0] == P_PIDFD) {
        errno = ENOSYS;
        return -1;
    }
    if (!next)
        next = (long (*)(long, ...))dlsym(RTLD_NEXT, "syscall");
    return next(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
