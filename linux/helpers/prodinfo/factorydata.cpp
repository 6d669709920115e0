#include "factorydata.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSettings>

#include <climits>
#include <new>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FactoryData {

namespace {

// A window lasts milliseconds. One that has lasted this long belongs to a run that is stopped or stuck, and
// a value waiting for it is better reported not stored than held up without end.
constexpr qint64 LockWaitMs = 5000;
constexpr useconds_t LockPollUs = 10000;

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

// Reads an open file to its end; false unless every byte of its size came, and nothing more.
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

bool readFile(const char *path, QByteArray &bytes)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool read = readAll(fd, bytes);
    ::close(fd);
    return read;
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

// Where private copies go: /dev/shm is memory, while the temporary directory of a camera may be flash.
QByteArray privateDirectory()
{
    struct stat shm;
    return ::stat("/dev/shm", &shm) == 0 && S_ISDIR(shm.st_mode) ? QByteArray("/dev/shm")
                                                                 : QFile::encodeName(QDir::tempPath());
}

// Whether `bytes` are all that QSettings meant to write, the file of `keys`. Qt reports a file written when
// the last of its buffer, or all of it, never reached the disk: what reaches it then is the start of the
// file, cut at some byte. QSettings writes one line a key and ends the file with a line's end, so the whole
// file is the one start of it that ends a line and holds every key.
bool isWhole(const QByteArray &bytes, const QStringList &keys)
{
    const PrivateCopy copy(bytes);
    return !copy.path().isEmpty() && (bytes.isEmpty() || bytes.endsWith('\n')) &&
           QSettings(copy.path(), QSettings::IniFormat).allKeys() == keys;
}

} // namespace

bool readSettings(QByteArray &bytes)
{
    const int mountPoint = openMountPoint();
    if (mountPoint < 0)
        return false;
    const bool read = lock(mountPoint, LOCK_SH) && readFile(SETTINGS_FILE, bytes);
    ::close(mountPoint); // and the lock with it
    return read;
}

PrivateCopy::PrivateCopy(const QByteArray &bytes)
{
    // The count makes the path new to this process, the random part and O_EXCL keep other processes out.
    static int made = 0;
    QByteArray path = privateDirectory() + "/prodconfig." + QByteArray::number(++made) + ".XXXXXX";
    const int fd = ::mkostemp(path.data(), O_CLOEXEC);
    if (fd < 0)
        return;
    const bool written = writeAll(fd, bytes);
    if (::close(fd) == 0 && written)
        m_path = QFile::decodeName(path);
    else
        ::unlink(path.constData());
}

PrivateCopy::~PrivateCopy()
{
    if (!m_path.isEmpty())
        ::unlink(QFile::encodeName(m_path).constData());
}

bool PrivateCopy::read(QByteArray &bytes) const
{
    return !m_path.isEmpty() && readFile(QFile::encodeName(m_path).constData(), bytes);
}

WriteWindow::WriteWindow(const LogSite &site) : m_site(site)
{
    pthread_sigmask(SIG_SETMASK, nullptr, &m_unheld);
    // Without the mount point the remount below fails and says so.
    m_mountPoint = openMountPoint();
    if (m_mountPoint >= 0 && !lock(m_mountPoint, LOCK_EX)) {
        m_closed = true; // another run's window is open: nothing here touches the partition
        return;
    }
    // Faults of the process's own are delivered whatever the mask says.
    sigset_t held;
    sigfillset(&held);
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
        sigdelset(&held, signal);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
    // Empty strings rather than null pointers: only the flags change between the two directions.
    m_open = ::mount("", FACTORY_DATA, "", MS_REMOUNT, "") == 0;
    if (!m_open) {
        m_site.logger().warning(": Failed to mount %s as writable.", FACTORY_DATA);
        close();
    }
}

WriteWindow::~WriteWindow()
{
    close();
    if (m_mountPoint >= 0)
        ::close(m_mountPoint);
}

bool WriteWindow::read(QByteArray &bytes) const { return m_open && readFile(SETTINGS_FILE, bytes); }

bool WriteWindow::write(const QByteArray &base, const std::function<void(QSettings &)> &edit)
{
    if (!m_open)
        return false;
    try {
        QByteArray bytes;
        QStringList keys;
        {
            const PrivateCopy copy(base);
            if (copy.path().isEmpty())
                return false;
            QSettings settings(copy.path(), QSettings::IniFormat);
            edit(settings);
            settings.sync();
            keys = settings.allKeys();
            if (!copy.read(bytes))
                return false;
        }
        return isWhole(bytes, keys) && commit(bytes);
    } catch (const std::bad_alloc &) {
        // A value such as @Variant(...) claiming a list of two thousand million items fails its allocation
        // when the file is decoded, before anything is changed.
        return false;
    }
}

// The bytes go to a temporary file beside the settings file, which takes its place only once every byte is
// on the disk; the directory is synced after the rename. A power cut leaves the old file or the new one.
bool WriteWindow::commit(const QByteArray &bytes)
{
    struct stat old;
    const bool replaces = ::stat(SETTINGS_FILE, &old) == 0;
    if (!replaces && errno != ENOENT)
        return false;
    char temporary[] = SETTINGS_FILE ".XXXXXX";
    const int fd = ::mkostemp(temporary, O_CLOEXEC);
    if (fd < 0)
        return false;
    // The file keeps its owner (a camera service's, say) and its mode; a new one gets what a new file of
    // this process gets.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    bool done = writeAll(fd, bytes) &&
                (!replaces || (old.st_uid == ::geteuid() && old.st_gid == ::getegid()) ||
                 ::fchown(fd, old.st_uid, old.st_gid) == 0) &&
                ::fchmod(fd, replaces ? old.st_mode & 07777 : 0666 & ~mask) == 0 && ::fdatasync(fd) == 0;
    done = ::close(fd) == 0 && done;
    done = done && ::rename(temporary, SETTINGS_FILE) == 0;
    if (!done)
        ::unlink(temporary);
    return done && ::fsync(m_mountPoint) == 0;
}

bool WriteWindow::close()
{
    if (!m_closed) {
        m_closed = true;
        if (m_open && ::mount("", FACTORY_DATA, "", MS_REMOUNT | MS_RDONLY, "") != 0) {
            m_site.logger().warning(": Failed to mount %s as read only.", FACTORY_DATA);
            m_leftWritable = true;
        }
        ::flock(m_mountPoint, LOCK_UN);
        pthread_sigmask(SIG_SETMASK, &m_unheld, nullptr);
    }
    return !m_leftWritable;
}

} // namespace FactoryData
