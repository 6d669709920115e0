#include "factorydata.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSettings>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace FactoryData {

namespace {

// A window lasts milliseconds: it writes a file of a few kilobytes and syncs it twice. One that has lasted
// this long belongs to a run that is stopped or stuck, and a value or a read waiting for it is better
// reported failed than held up without end.
constexpr qint64 LockWaitMs = 5000;
constexpr useconds_t LockPollUs = 10000;

// What a window stages beside the settings file begins so, and nothing else on the partition does; QSettings
// adds its lock file and its own temporary names behind it.
#define STAGE_NAME "settings.ini.prodconfig-"

// Parsing a value nests a few hundred bytes of stack for every level of lists in it, and a level takes at
// least nine bytes of the file.
constexpr size_t StackBase = 1 << 20;
constexpr size_t StackPerFileByte = 64;
constexpr size_t AltStackSize = 1 << 16;

// The mount point's directory, whose lock orders the windows and the reads of concurrent runs.
int openMountPoint() { return ::open(FACTORY_DATA, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

// Takes that lock, waiting as long as a window may last.
bool lock(int mountPoint, int operation)
{
    QElapsedTimer waited;
    waited.start();
    while (::flock(mountPoint, operation | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || waited.hasExpired(LockWaitMs))
            return false;
        ::usleep(LockPollUs);
    }
    return true;
}

// Reads an open regular file to its end; false unless every byte of its size came, and nothing more.
bool readAll(int fd, QByteArray &bytes)
{
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size >= INT_MAX)
        return false;
    const int size = int(status.st_size);
    bytes.resize(size + 1); // a byte more than the file has, to see its end
    int done = 0;
    ssize_t got;
    do {
        got = ::read(fd, bytes.data() + done, size_t(size + 1 - done));
        if (got > 0)
            done += int(got);
    } while ((got > 0 && done <= size) || (got < 0 && errno == EINTR));
    bytes.resize(done);
    return got == 0 && done == size;
}

bool writeAll(int fd, const QByteArray &bytes)
{
    for (int done = 0; done < bytes.size();) {
        const ssize_t put = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return false;
        done += int(put);
    }
    return true;
}

// A file-size limit below the file's size fails a copy in memory (EFBIG) rather than ending the process.
bool writeWithinLimit(int fd, const QByteArray &bytes)
{
    sigset_t limit, before;
    sigemptyset(&limit);
    sigaddset(&limit, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &limit, &before);
    const bool written = writeAll(fd, bytes);
    const timespec now = {0, 0};
    if (!written && !sigismember(&before, SIGXFSZ))
        sigtimedwait(&limit, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return written;
}

// The read-only remount of the open window, or 0, for a fault of the process's own.
std::atomic<unsigned long> faultRemount{0};
int descriptorLimit = 1024;

extern "C" void remountOnFault(int signal)
{
    if (const unsigned long flags = faultRemount.load()) {
        // A file this process holds open for writing on the partition would keep it writable.
        for (int fd = 3; fd < descriptorLimit; ++fd)
            ::close(fd);
        ::mount("", FACTORY_DATA, "", flags, "");
    }
    ::signal(signal, SIG_DFL);
    ::raise(signal); // delivered as the handler returns
}

// Each thread that may fault inside a window gets a stack of its own for the handler, so that a stack
// overflow, too, is handled.
void useAltStack(char *stack)
{
    stack_t alt = {};
    alt.ss_sp = stack;
    alt.ss_size = AltStackSize;
    sigaltstack(&alt, nullptr);
}

void handleFaults()
{
    static bool handled = false;
    if (handled)
        return;
    handled = true;
    alignas(16) static char mainAltStack[AltStackSize];
    useAltStack(mainAltStack);
    struct rlimit files;
    if (getrlimit(RLIMIT_NOFILE, &files) == 0)
        descriptorLimit = int(qMin<rlim_t>(files.rlim_cur, 1 << 16));
    struct sigaction action = {};
    action.sa_handler = remountOnFault;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
        sigaction(signal, &action, nullptr);
}

// Runs `work` on a thread whose stack is deep enough for parsing `size` bytes of settings; false when there
// is no memory for it or `work` ran out of memory.
bool onDeepStack(int size, const std::function<bool()> &work)
{
    struct Job
    {
        const std::function<bool()> &work;
        bool done;
    } job{work, false};
    const auto run = [](void *argument) -> void * {
        Job &job = *static_cast<Job *>(argument);
        alignas(16) static char altStack[AltStackSize]; // one such thread at a time
        useAltStack(altStack);
        try {
            job.done = job.work();
        } catch (const std::bad_alloc &) {
            // Qt throws when a stored @Variant(...) claims more items than memory holds.
        }
        return nullptr;
    };
    if (size_t(size) > (SIZE_MAX - StackBase) / StackPerFileByte)
        return false;
    pthread_attr_t attributes;
    pthread_t thread;
    bool started = pthread_attr_init(&attributes) == 0 &&
                   pthread_attr_setstacksize(&attributes, StackBase + size_t(size) * StackPerFileByte) == 0 &&
                   pthread_create(&thread, &attributes, run, &job) == 0;
    pthread_attr_destroy(&attributes);
    return started && pthread_join(thread, nullptr) == 0 && job.done;
}

// The flags to give a remount of the partition so that read-only is all it changes: Linux resets every flag
// that a remount does not name. The per-mount ones come from statvfs, the rest and whether the partition is
// a bind mount, which is remounted alone and never the file system under it, from the mount table.
unsigned long mountFlags()
{
    unsigned long flags = 0;
    struct statvfs fs;
    if (::statvfs(FACTORY_DATA, &fs) == 0) {
        const unsigned long kept[][2] = {{ST_NOSUID, MS_NOSUID},         {ST_NODEV, MS_NODEV},
                                         {ST_NOEXEC, MS_NOEXEC},         {ST_SYNCHRONOUS, MS_SYNCHRONOUS},
                                         {ST_MANDLOCK, MS_MANDLOCK},     {ST_NOATIME, MS_NOATIME},
                                         {ST_NODIRATIME, MS_NODIRATIME}, {ST_RELATIME, MS_RELATIME}};
        for (const auto &[status, flag] : kept)
            flags |= fs.f_flag & status ? flag : 0;
        if (!(fs.f_flag & (ST_NOATIME | ST_RELATIME)))
            flags |= MS_STRICTATIME;
    }
    QFile table(QStringLiteral("/proc/self/mountinfo"));
    QList<QByteArray> mount; // the last line for the mount point: the one on top
    if (table.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : table.readAll().split('\n')) {
            const QList<QByteArray> fields = line.split(' ');
            if (fields.size() > 4 && fields.at(4) == FACTORY_DATA)
                mount = fields;
        }
    }
    if (mount.size() > 4 && mount.at(3) != "/")
        flags |= MS_BIND;
    const QList<QByteArray> options = mount.isEmpty() ? QList<QByteArray>() : mount.last().split(',');
    flags |= options.contains("dirsync") ? MS_DIRSYNC : 0;
    flags |= options.contains("lazytime") ? MS_LAZYTIME : 0;
    return flags | MS_REMOUNT;
}

// What a run killed inside its window left on the partition, and only that.
void removeLeftovers()
{
    DIR *dir = ::opendir(FACTORY_DATA);
    while (const dirent *entry = dir ? ::readdir(dir) : nullptr) {
        if (std::strncmp(entry->d_name, STAGE_NAME, sizeof STAGE_NAME - 1) == 0)
            ::unlinkat(::dirfd(dir), entry->d_name, 0);
    }
    if (dir)
        ::closedir(dir);
}

// Whether `bytes` are all that QSettings meant to write, the file of `keys`. Qt reports a file written when
// the last of its buffer, or all of it, never reached the disk: what reaches it then is the start of the
// file, cut at some byte. QSettings writes one line a key and ends the file with a line's end, so the whole
// file is the one start of it that ends a line and holds every key.
bool isWhole(const QByteArray &bytes, const QStringList &keys)
{
    QStringList parsed;
    return (bytes.isEmpty() || bytes.endsWith('\n')) &&
           parse(bytes, [&](const QSettings &settings) { parsed = settings.allKeys(); }) && parsed == keys;
}

} // namespace

Read readRegularFile(const char *path, QByteArray &bytes)
{
    struct stat status;
    if (::stat(path, &status) != 0)
        return errno == ENOENT ? Read::NoFile : Read::Failed;
    const int fd = S_ISREG(status.st_mode) ? ::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC) : -1;
    if (fd < 0)
        return Read::Failed;
    const bool read = readAll(fd, bytes);
    ::close(fd);
    return read ? Read::Done : Read::Failed;
}

Read readSettings(QByteArray &bytes)
{
    const int mountPoint = openMountPoint();
    if (mountPoint < 0)
        return errno == ENOENT ? Read::NoFile : Read::Failed;
    const Read read = lock(mountPoint, LOCK_SH) ? readRegularFile(SETTINGS_FILE, bytes) : Read::Failed;
    ::close(mountPoint); // and the lock with it
    return read;
}

bool parse(const QByteArray &bytes, const std::function<void(const QSettings &)> &use)
{
    // Qt keeps every file it parsed for the life of the process and parses it again only when its size or
    // time changed, and descriptors are reused: each memory file gets a time that no earlier one had.
    static time_t made = 0;
    const int fd = ::memfd_create("settings.ini", MFD_CLOEXEC);
    if (fd < 0)
        return false;
    const timespec times[2] = {{0, UTIME_OMIT}, {++made, 0}};
    const QString path = QStringLiteral("/proc/self/fd/") + QString::number(fd);
    const bool parsed =
        writeWithinLimit(fd, bytes) && ::futimens(fd, times) == 0 && onDeepStack(bytes.size(), [&] {
            const QSettings settings(path, QSettings::IniFormat);
            if (settings.status() == QSettings::AccessError)
                return false;
            use(settings);
            return true;
        });
    ::close(fd);
    return parsed;
}

WriteWindow::WriteWindow(const LogSite &site) : m_site(site)
{
    pthread_sigmask(SIG_SETMASK, nullptr, &m_unheld);
    // Without the mount point the remount fails and says so.
    m_mountPoint = openMountPoint();
    m_busy = m_mountPoint >= 0 && !lock(m_mountPoint, LOCK_EX);
    m_closed = m_busy;
}

WriteWindow::~WriteWindow()
{
    close();
    if (m_mountPoint >= 0)
        ::close(m_mountPoint);
}

Read WriteWindow::read(QByteArray &bytes)
{
    const Read read = m_mountPoint >= 0 && !m_closed ? readRegularFile(SETTINGS_FILE, bytes) : Read::Failed;
    return read != Read::Done ||
                   parse(bytes, [this](const QSettings &settings) { m_baseKeys = settings.allKeys(); })
               ? read
               : Read::Failed;
}

bool WriteWindow::open()
{
    if (m_closed)
        return false;
    // Faults of the process's own are delivered whatever the mask says.
    sigset_t held;
    sigfillset(&held);
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
        sigdelset(&held, signal);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
    handleFaults();
    // Empty strings rather than null pointers: only read-only changes between the two directions.
    const unsigned long flags = mountFlags();
    faultRemount = flags | MS_RDONLY;
    m_open = ::mount("", FACTORY_DATA, "", flags, "") == 0;
    if (!m_open) {
        m_site.logger().warning(": Failed to mount %s as writable.", FACTORY_DATA);
        close();
        return false;
    }
    removeLeftovers();
    return true;
}

bool WriteWindow::write(const QByteArray &base, const std::function<void(QSettings &)> &edit)
{
    if (!m_open)
        return false;
    // A name new to this process: Qt would take a file it parsed before under the same name and of the
    // same size and time for the one it parsed.
    static int staged = 0;
    const QByteArray stage = FACTORY_DATA "/" STAGE_NAME + QByteArray::number(++staged);
    // QSettings edits the file through a second name of it and writes the result under that name, as a new
    // file: the partition needs room for the result and nothing more. Qt's own read is not trusted: the
    // result must hold every key of the bytes this run read and decoded.
    QByteArray bytes;
    bool done = base.isEmpty() || (::link(SETTINGS_FILE, stage.constData()) == 0 &&
                                   readRegularFile(stage.constData(), bytes) == Read::Done && bytes == base);
    QStringList keys;
    done = done && onDeepStack(base.size(), [&] {
               QSettings settings(QFile::decodeName(stage), QSettings::IniFormat);
               edit(settings);
               settings.sync();
               keys = settings.allKeys();
               return settings.status() == QSettings::NoError;
           });
    done = done &&
           std::all_of(m_baseKeys.cbegin(), m_baseKeys.cend(),
                       [&](const QString &key) { return base.isEmpty() || keys.contains(key); }) &&
           readRegularFile(stage.constData(), bytes) == Read::Done && isWhole(bytes, keys) &&
           commit(stage, bytes);
    if (!done)
        ::unlink(stage.constData());
    return done;
}

// The staged file takes the settings file's place once every byte of it is on the disk, with the old file's
// owner and mode; the directory is synced after the rename. A power cut leaves the old file or the new one.
bool WriteWindow::commit(const QByteArray &stage, const QByteArray &bytes)
{
    struct stat old;
    const bool replaces = ::stat(SETTINGS_FILE, &old) == 0;
    if (!replaces && errno != ENOENT)
        return false;
    const int fd = ::open(stage.constData(), O_RDONLY | O_CLOEXEC);
    struct stat staged;
    // The file keeps its owner (a camera service's, say) and its mode; a new one is for everyone to read,
    // whatever the umask of the run that made it.
    bool done = fd >= 0 && ::fstat(fd, &staged) == 0 && staged.st_size == bytes.size() &&
                (!replaces || (old.st_uid == staged.st_uid && old.st_gid == staged.st_gid) ||
                 ::fchown(fd, old.st_uid, old.st_gid) == 0) &&
                ::fchmod(fd, replaces ? old.st_mode & 07777 : 0644) == 0 && ::fdatasync(fd) == 0;
    done = fd >= 0 && ::close(fd) == 0 && done;
    return done && ::rename(stage.constData(), SETTINGS_FILE) == 0 && ::fsync(m_mountPoint) == 0;
}

bool WriteWindow::close()
{
    if (!m_closed) {
        m_closed = true;
        if (m_open && ::mount("", FACTORY_DATA, "", faultRemount, "") != 0) {
            m_site.logger().warning(": Failed to mount %s as read only.", FACTORY_DATA);
            m_leftWritable = true;
        }
        faultRemount = 0;
        ::flock(m_mountPoint, LOCK_UN);
        pthread_sigmask(SIG_SETMASK, &m_unheld, nullptr);
    }
    return !m_leftWritable;
}

} // namespace FactoryData
