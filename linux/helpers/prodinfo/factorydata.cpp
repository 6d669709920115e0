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
#include <sys/xattr.h>
#include <unistd.h>

namespace FactoryData {

namespace {

// A window lasts milliseconds: it writes a file of a few kilobytes and syncs it. One that has lasted this
// long belongs to a run that is stopped or stuck, and a value or a read waiting for it is better
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

// Reads a regular file whole, without waiting on whatever else may stand at `path`: a FIFO or a device.
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

// Writes every byte; a file-size limit below the size fails the write (EFBIG) rather than ending the process.
bool writeAll(int fd, const QByteArray &bytes)
{
    sigset_t limit, before;
    sigemptyset(&limit);
    sigaddset(&limit, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &limit, &before);
    int done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (put > 0)
            done += int(put);
        else if (put == 0 || errno != EINTR)
            break;
    }
    const timespec now = {0, 0};
    if (done < bytes.size() && !sigismember(&before, SIGXFSZ))
        sigtimedwait(&limit, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return done == bytes.size();
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
// overflow, too, is handled. Gives the one it had before.
stack_t useAltStack(char *stack)
{
    stack_t alt = {}, before = {};
    alt.ss_sp = stack;
    alt.ss_size = AltStackSize;
    sigaltstack(&alt, &before);
    return before;
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

// Runs `work` where the stack is deep enough for parsing `size` bytes of settings: on the calling thread when
// it is the main one and its stack may grow four times as deep (a thread costs a clone and a stack of its
// own), else on a thread of its own. False when there is no memory for it or `work` ran out of memory.
bool onDeepStack(int size, const std::function<bool()> &work)
{
    struct Job
    {
        const std::function<bool()> &work;
        bool done;
        void run()
        {
            try {
                done = work();
            } catch (const std::bad_alloc &) {
                // Qt throws when a stored @Variant(...) claims more items than memory holds.
            }
        }
    } job{work, false};
    if (size_t(size) > (SIZE_MAX - StackBase) / StackPerFileByte)
        return false;
    const size_t depth = StackBase + size_t(size) * StackPerFileByte;
    struct rlimit stack;
    if (::gettid() == ::getpid() && ::getrlimit(RLIMIT_STACK, &stack) == 0 &&
        (stack.rlim_cur == RLIM_INFINITY || depth <= stack.rlim_cur / 4)) {
        job.run();
        return job.done;
    }
    const auto onThread = [](void *argument) -> void * {
        char altStack[AltStackSize]; // above every frame the work nests below it
        const stack_t before = useAltStack(altStack);
        static_cast<Job *>(argument)->run();
        sigaltstack(&before, nullptr); // what the thread's end expects to find
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_t thread;
    bool started = pthread_attr_init(&attributes) == 0 &&
                   pthread_attr_setstacksize(&attributes, depth) == 0 &&
                   pthread_create(&thread, &attributes, onThread, &job) == 0;
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
    const QByteArray path = QFile::encodeName(canonicalMountPoint());
    QList<QByteArray> mount; // the last line for the mount point: the one on top
    if (table.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : table.readAll().split('\n')) {
            const QList<QByteArray> fields = line.split(' ');
            if (fields.size() > 4 && fields.at(4) == path)
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

// Removes a file of the tool's own unless another process holds it open: the file would stay on the partition
// without a name, and the partition writable. A write lease is granted only while no one else has the file
// open; where leases are refused for another reason, the read-only remount tells whether anyone held it.
void removeUnheld(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if ((fd < 0 && errno == ELOOP) || (fd >= 0 && (::fcntl(fd, F_SETLEASE, F_WRLCK) == 0 || errno != EAGAIN)))
        ::unlink(path.constData());
    if (fd >= 0)
        ::close(fd); // and the lease with it
}

// What a run killed inside its window left beside the settings file, and only that.
void removeLeftovers(const QByteArray &directory)
{
    DIR *dir = ::opendir(directory.constData());
    while (const dirent *entry = dir ? ::readdir(dir) : nullptr) {
        if (std::strncmp(entry->d_name, STAGE_NAME, sizeof STAGE_NAME - 1) == 0)
            removeUnheld(directory + '/' + entry->d_name);
    }
    if (dir)
        ::closedir(dir);
}

// Every extended attribute of one open file given to another.
bool copyAttributes(int from, int to)
{
    QByteArray names(int(qMax<ssize_t>(::flistxattr(from, nullptr, 0), 0)), '\0');
    const ssize_t size = ::flistxattr(from, names.data(), size_t(names.size()));
    if (size < 0)
        return errno == ENOTSUP; // a file system without attributes has none to keep
    for (const QByteArray &name : names.left(int(size)).split('\0')) {
        if (name.isEmpty())
            continue;
        QByteArray value(int(qMax<ssize_t>(::fgetxattr(from, name.constData(), nullptr, 0), 0)), '\0');
        const ssize_t length = ::fgetxattr(from, name.constData(), value.data(), size_t(value.size()));
        if (length < 0 || ::fsetxattr(to, name.constData(), value.constData(), size_t(length), 0) != 0)
            return false;
    }
    return true;
}

} // namespace

QString canonicalMountPoint()
{
    char path[PATH_MAX];
    return QFile::decodeName(::realpath(FACTORY_DATA, path) ? path : FACTORY_DATA);
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
    // Without /proc the path leads nowhere, and QSettings would take it for an empty file.
    const bool parsed = writeAll(fd, bytes) && ::futimens(fd, times) == 0 &&
                        ::access(QFile::encodeName(path).constData(), R_OK) == 0 &&
                        onDeepStack(bytes.size(), [&] {
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
    m_undecodable.clear();
    const auto decode = [this](const QSettings &settings) {
        m_baseKeys = settings.allKeys();
        for (const QString &key : qAsConst(m_baseKeys)) {
            // A value of a type that only another program knows reads as invalid, or as one whose data this
            // process cannot hold.
            const QVariant value = settings.value(key);
            if (!value.isValid() || QMetaType::sizeOf(value.userType()) == 0)
                m_undecodable << key;
        }
    };
    return read == Read::Done && !parse(bytes, decode) ? Read::Failed : read;
}

QString WriteWindow::unkept(const QString &changed) const
{
    for (const QString &key : m_undecodable) {
        if (key != changed)
            return key;
    }
    return {};
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
    // What the window makes has the modes it gives it, whatever the run's umask; close() gives it back.
    m_umask = ::umask(022);
    return true;
}

bool WriteWindow::write(const QByteArray &base, const std::function<void(QSettings &)> &edit)
{
    if (!m_open)
        return false;
    if (base.isEmpty())
        m_baseKeys.clear();
    // A settings file that is a link is written where it leads, and what is staged goes beside it there.
    char resolved[PATH_MAX];
    const QByteArray target =
        ::realpath(SETTINGS_FILE, resolved) ? QByteArray(resolved) : QByteArray(SETTINGS_FILE);
    const QByteArray directory = target.left(target.lastIndexOf('/'));
    removeLeftovers(directory);
    // A name new to this process: Qt would take a file it parsed before under the same name and of the
    // same size and time for the one it parsed.
    static int staged = 0;
    const QByteArray stage =
        directory + "/" STAGE_NAME + QByteArray::number(::getpid()) + '-' + QByteArray::number(++staged);
    // QSettings edits the file through a second name of it and writes the result under that name, as a new
    // file: the partition needs room for the result and Qt's lock file, and for no copy of the old file.
    QByteArray bytes;
    bool done = base.isEmpty() || (::link(target.constData(), stage.constData()) == 0 &&
                                   readRegularFile(stage.constData(), bytes) == Read::Done && bytes == base);
    QStringList keys;
    done = done && onDeepStack(base.size(), [&] {
               QSettings settings(QFile::decodeName(stage), QSettings::IniFormat);
               edit(settings);
               settings.sync();
               keys = settings.allKeys();
               return settings.status() == QSettings::NoError;
           });
    done = done && readRegularFile(stage.constData(), bytes) == Read::Done && isWhole(bytes, keys) &&
           commit(stage, bytes, target);
    if (!done)
        ::unlink(stage.constData());
    return done;
}

// Whether `bytes` are all that QSettings meant to write, the file of `keys`, with every key of what read()
// found. Qt reports a file written when the last of its buffer, or all of it, never reached the disk: what
// reaches it then is the start of the file, cut at some byte. QSettings writes one line a key and ends the
// file with a line's end, so the whole file is the one start of it that ends a line and holds every key. Nor
// is Qt's own read of the old file trusted: a key it did not find would be gone.
bool WriteWindow::isWhole(const QByteArray &bytes, const QStringList &keys) const
{
    QStringList parsed;
    return (bytes.isEmpty() || bytes.endsWith('\n')) &&
           parse(bytes, [&](const QSettings &settings) { parsed = settings.allKeys(); }) && parsed == keys &&
           std::all_of(m_baseKeys.cbegin(), m_baseKeys.cend(),
                       [&](const QString &key) { return keys.contains(key); });
}

// The bytes checked take the place of the settings file, or of the file it links to, in a file of the tool's
// own writing: Qt ignores a failed sync of the file it staged, and the kernel reports the failure once. The
// new file has the old one's owner, mode and extended attributes (its ACL and SELinux label among them) and
// every byte on the disk before the rename. A power cut leaves the old file or the new one, whole; the
// read-only remount that closes the window syncs the rename with the rest, and nothing is confirmed before.
bool WriteWindow::commit(const QByteArray &stage, const QByteArray &bytes, const QByteArray &target)
{
    ::unlink(stage.constData());
    struct stat old;
    const bool replaces = ::stat(target.constData(), &old) == 0;
    if (!replaces && errno != ENOENT)
        return false;
    const QByteArray written = stage + ".new", kept = stage + ".old";
    const int fd = ::open(written.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const int from = replaces ? ::open(target.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    // The file keeps its owner (a camera service's, say) and its mode; a new one is for everyone to read.
    bool done = fd >= 0 && writeAll(fd, bytes) &&
                (!replaces || (old.st_uid == ::geteuid() && old.st_gid == ::getegid()) ||
                 ::fchown(fd, old.st_uid, old.st_gid) == 0) &&
                ::fchmod(fd, replaces ? old.st_mode & 07777 : 0644) == 0 &&
                (!replaces || copyAttributes(from, fd)) && ::fsync(fd) == 0;
    done = (fd < 0 || ::close(fd) == 0) && done;
    if (from >= 0)
        ::close(from);
    // A reader holding the old file would keep it on the partition without a name, and the kernel refuses the
    // read-only remount while one is: the old file keeps a name of the tool's until no one holds it.
    done = done && (!replaces || ::link(target.constData(), kept.constData()) == 0) &&
           ::rename(written.constData(), target.constData()) == 0;
    ::unlink(written.constData());
    if (replaces)
        removeUnheld(kept);
    return done;
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
        if (m_open)
            ::umask(m_umask);
        ::flock(m_mountPoint, LOCK_UN);
        pthread_sigmask(SIG_SETMASK, &m_unheld, nullptr);
    }
    return !m_leftWritable;
}

} // namespace FactoryData
