#ifndef SUPPORT_H
#define SUPPORT_H

// A real factory partition at /factory_data in a private mount namespace, and the tool run on it: a tmpfs, or
// ext4 on a loop device (flash holds faults that a tmpfs hides) when PRODCONFIG_TEST_FS is ext4.
#include <QtCore>

#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

// What a regular file holds; nothing of a FIFO, which would block the reader.
inline QByteArray contents(const QString &path)
{
    QFile file(path);
    return QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

namespace Sandbox {

// The partition's own flags, which no remount may take away, and whether it is a bind mount of a directory
// of another file system (mounted at /run/fs), which must stay writable.
constexpr unsigned long PartitionFlags = MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_NOATIME;
inline bool bound = false;

// A process monitor reading /proc/PID/fd holds each file it looks at for a moment, and so can refuse a
// read-only remount with EBUSY: the tests' own remounts try again for up to a second.
inline bool remount(bool writable)
{
    const unsigned long flags =
        PartitionFlags | (bound ? MS_BIND : MS_SYNCHRONOUS) | (writable ? 0 : MS_RDONLY);
    for (int tries = 0; ::mount("", "/factory_data", "", MS_REMOUNT | flags, "");) {
        if (errno != EBUSY || ++tries == 100)
            return false;
        QThread::msleep(10);
    }
    return true;
}

// What the kernel says, not what the tool believes; quick enough to watch the tool's write windows.
inline unsigned long flags(const char *path = "/factory_data")
{
    struct statvfs fs;
    return statvfs(path, &fs) == 0 ? fs.f_flag : ~0ul;
}
inline bool isReadOnly() { return flags() & ST_RDONLY; }

// Empty once inside, otherwise why not. A private /run holds what the stand-in platform library reports and
// the loop image. With PRODCONFIG_TEST_USERLAND=camera every other mount is read-only, /dev/shm and /tmp
// included, and TMPDIR is unset, as on the camera, where the partition is the one place a run may write.
// The mount point goes again at exit when this process made it and no other sandbox holds it any more.
inline QString enter()
{
    if (geteuid() != 0)
        return "needs root: the factory partition is a tmpfs in a private mount namespace";
    static bool made = ::mkdir("/factory_data", 0755) == 0;
    static int mountPoint = ::open("/factory_data", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (mountPoint < 0 || ::flock(mountPoint, LOCK_SH) != 0 || unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("", "/run", "tmpfs", 0, "size=16m") != 0 || !QDir().mkpath("/run/product-info") ||
        !QDir().mkpath("/run/fs"))
        return QString("cannot set up a private mount namespace: ") + strerror(errno);
    static const bool camera = qgetenv("PRODCONFIG_TEST_USERLAND") == "camera";
    if (camera) {
        for (const QByteArray &line : contents("/proc/self/mountinfo").split('\n')) {
            const QByteArray path = line.split(' ').value(4);
            if (!path.isEmpty() && path != "/run" && path != "/factory_data" && !path.startsWith("/proc") &&
                !path.startsWith("/sys"))
                ::mount("", path.constData(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, "");
        }
        qunsetenv("TMPDIR");
    }
    std::atexit([] {
        while (::umount2("/factory_data", MNT_DETACH) == 0) {
        }
        if (camera)
            ::mount("", "/", "", MS_REMOUNT | MS_BIND, "");
        if (made && ::flock(mountPoint, LOCK_EX | LOCK_NB) == 0)
            ::rmdir("/factory_data");
    });
    return {};
}

using Files = QMap<QString, QByteArray>;

// A fresh partition holding `files`, mode 0600 and owned by a camera service, read-only unless `writable`:
// a file system of its own mounted nosuid, nodev, noexec, noatime and sync, or with `bind` a directory of
// one, bound there nosuid, nodev, noexec and noatime.
inline bool reset(const Files &files, bool writable = false, bool bind = false)
{
    for (const char *path : {"/factory_data", "/run/fs"}) {
        while (::umount2(path, MNT_DETACH) == 0) {
        }
    }
    bound = bind;
    const char *at = bind ? "/run/fs" : "/factory_data";
    static const bool ext4 = qgetenv("PRODCONFIG_TEST_FS") == "ext4";
    const QString image = "truncate -s 0 /run/flash.img && mkfs.ext4 -q -I 128 /run/flash.img 8M 2>/dev/null";
    bool done = ext4 ? QProcess::execute("sh", {"-c", image + " && mount -o loop /run/flash.img " + at}) == 0
                     : ::mount("", at, "tmpfs", 0, "mode=0755,size=4m") == 0;
    done = done &&
           (bind ? QDir().mkpath("/run/fs/part") &&
                       ::mount("/run/fs/part", "/factory_data", nullptr, MS_BIND, nullptr) == 0
                 : true) &&
           remount(true);
    for (auto it = files.cbegin(); done && it != files.cend(); ++it) {
        QFile file("/factory_data/" + it.key());
        done = it.value().isNull() || // no such file
               (file.open(QIODevice::WriteOnly) && file.write(it.value()) == it.value().size() &&
                file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) &&
                ::fchown(file.handle(), 1000, 1000) == 0);
    }
    return done && (writable || remount(false));
}

// Takes every block left on the partition but `spare`, as another program's file would.
inline bool fill(int spare = 0)
{
    const int fd = remount(true) ? ::open("/factory_data/filler", O_WRONLY | O_CREAT | O_CLOEXEC, 0600) : -1;
    const QByteArray block(4096, 'x');
    for (size_t size = 4096; size; size /= 2) { // ext4 refuses a page that its blocks left cannot take whole
        while (::write(fd, block.constData(), size) > 0) {
        }
    }
    struct statvfs fs;
    const bool filled = ::fsync(fd) == 0 && statvfs("/factory_data", &fs) == 0 &&
                        ::ftruncate(fd, ::lseek(fd, 0, SEEK_END) - spare * qint64(fs.f_bsize)) == 0;
    return ::close(fd) == 0 && filled && remount(false);
}

} // namespace Sandbox

// No fault; a writable remount refused (no CAP_SYS_ADMIN); a read-only one refused (a file open for writing);
// no room left on the partition, or two blocks; the partition a bind mount; a reader holding the file open; a
// umask that lets no one read; every sync, or every read, failing with EIO.
enum Fault { None, NoSysAdmin, Busy, NoRoom, TwoBlocks, Bound, Reader, Umask, SyncFails, ReadFails };

struct ToolRun
{
    int exitCode;    // -1 after a crash or a signal
    QStringList log; // level|function|text a line, without the start-up messages when they are right
    QByteArray out, attributes; // stdout; the settings file's extended attributes before the run
};

// The extended attributes of a file, names and values.
inline QByteArray attributes(const QString &path)
{
    QProcess getfattr;
    getfattr.start("getfattr", {"-d", "-m", "-", path});
    return getfattr.waitForFinished() ? getfattr.readAllStandardOutput() : QByteArray("no getfattr");
}

// The tool started, through the emulator if any; messages framed, so a sanitizer's report is none.
inline void start(QProcess &tool, const QStringList &arguments, QStringList command = {})
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_MESSAGE_PATTERN", "\x1e%{type}|%{function}|%{message}\x1f");
    tool.setProcessEnvironment(environment);
    command << QString(PRODCONFIG_LAUNCHER).split('|', Qt::SkipEmptyParts) << PRODCONFIG_PATH << arguments;
    tool.start(command.takeFirst(), command);
    tool.waitForStarted();
}

inline ToolRun finish(QProcess &tool)
{
    tool.waitForFinished(60000);
    ToolRun run{tool.exitStatus() == QProcess::NormalExit ? tool.exitCode() : -1,
                {},
                tool.readAllStandardOutput(),
                {}};
    static const QRegularExpression record("\x1e(.*?)\x1f", QRegularExpression::DotMatchesEverythingOption);
    for (auto it = record.globalMatch(QString::fromUtf8(tool.readAllStandardError())); it.hasNext();)
        run.log << it.next().captured(1).split('\n');
    if (run.log.mid(0, 2) ==
        QStringList{"debug|main|\"Production Config Tool\"", "debug|main|Version:  \"\""})
        run.log = run.log.mid(2);
    return run;
}

// The tool run on a fresh partition holding `files`, after `prepare` ran there in a shell.
inline ToolRun runOn(const Sandbox::Files &files, const QStringList &arguments, Fault fault = None,
                     const QString &prepare = {})
{
    if (!Sandbox::reset(files, true, fault == Bound) ||
        (!prepare.isEmpty() && QProcess::execute("sh", {"-c", "cd /factory_data && " + prepare}) != 0) ||
        (fault != Busy && !Sandbox::remount(false)) ||
        ((fault == NoRoom || fault == TwoBlocks) && !Sandbox::fill(fault == TwoBlocks ? 2 : 0)))
        return {-2, {"cannot reset the partition"}, {}, {}};
    const int hold = fault == Busy     ? ::open("/factory_data/hold", O_WRONLY | O_CREAT | O_CLOEXEC, 0644)
                     : fault == Reader ? ::open("/factory_data/settings.ini", O_RDONLY | O_CLOEXEC)
                                       : -1;
    const QByteArray before = attributes("/factory_data/settings.ini");
    QProcess tool;
    QStringList prefix;
    if (fault == NoSysAdmin)
        prefix = QStringList{"setpriv", "--bounding-set", "-sys_admin", "--"};
    else if (fault == Umask)
        prefix = QStringList{"sh", "-c", "umask 0777 && exec \"$@\"", "sh"};
    else if (fault >= SyncFails)
        prefix = QStringList{
            "fiu-run", "-x", "-c",
            QString("enable name=posix/io/%1,failinfo=5").arg(fault == SyncFails ? "sync/*" : "rw/read")};
    start(tool, arguments, prefix);
    ToolRun run = finish(tool);
    run.attributes = before;
    ::close(hold);
    // A read-only remount refused from outside (see Sandbox::remount) leaves the partition writable: again.
    static bool again = false;
    if ((again = !again && fault != Busy && !Sandbox::isReadOnly()))
        return runOn(files, arguments, fault, prepare);
    return run;
}

// Stops the tool at random moments and calls `act` while it stands still, until `act` is done or the tool is.
template <typename Act>
void whileStopped(QProcess &tool, Act act)
{
    const QString stat = QString("/proc/%1/stat").arg(tool.processId());
    for (bool done = false; !done && !tool.waitForFinished(0); ::kill(tool.processId(), SIGCONT)) {
        QThread::usleep(QRandomGenerator::global()->bounded(200));
        ::kill(tool.processId(), SIGSTOP);
        QByteArray state; // of the process, once it has stopped or ended
        do
            state = contents(stat).split(')').last().trimmed().left(1);
        while (!state.isEmpty() && !QByteArray("TtZX").contains(state.at(0)));
        done = act();
    }
}

#endif // SUPPORT_H
