#ifndef FACTORYDATA_H
#define FACTORYDATA_H

#include "log.h"
#include "qlistofints.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>

#include <signal.h>

class QSettings;

// Where the production data lives on the camera.
#define FACTORY_DATA "/factory_data"
#define SETTINGS_FILE FACTORY_DATA "/settings.ini"

namespace FactoryData {

inline QString settingsPath() { return QStringLiteral(SETTINGS_FILE); }
inline QString eepromPath() { return QStringLiteral(FACTORY_DATA "/eeprom"); }
// Where the mount point leads, when it is a link.
QString canonicalMountPoint();

enum class Read { Done, NoFile, Failed };

// The settings file's bytes as the partition holds them, read between the write windows of other runs: the
// kernel refuses the read-only remount while a file that a window replaced is still open. Failed when they
// cannot be told: not a regular file, a failed read, fewer bytes than the file's size, or a window open for
// longer than windows last. A guess would be shown, or written back over the file, as its content.
Read readSettings(QByteArray &bytes);

// Calls `use` with settings parsed from `bytes`, which are written nowhere: QSettings reads them from an
// anonymous memory file. The camera has no scratch space to spare, and none of it is private. The parse
// runs on a stack as deep as the file could nest values, so no content overflows it. False when the bytes
// cannot be parsed: no memory, no descriptor, or a value that cannot be decoded.
bool parse(const QByteArray &bytes, const std::function<void(const QSettings &)> &use);

// The factory partition made writable for one write of the settings file, and read-only again on every way
// out of the scope: a return, an exception, a signal, a crash. Concurrent runs take turns: each window holds
// a lock on the mount point, taken before anything is read for the write and waited for only so long, so
// that a run stopped or stuck in its window holds the others up for seconds, not for ever. Every signal
// that can end or stop the process is held from the writable remount until the read-only remount has been
// tried, and then takes effect as it would have; a fault of the process's own remounts the partition
// read-only before the process dies. Remount failures are logged for `site`.
class WriteWindow
{
public:
    explicit WriteWindow(const LogSite &site);
    ~WriteWindow();
    WriteWindow(const WriteWindow &) = delete;
    WriteWindow &operator=(const WriteWindow &) = delete;

    // Whether another run's window outlasted the wait for the lock: nothing here touches the partition.
    bool isBusy() const { return m_busy; }

    // The settings file as the partition holds it now, as readSettings tells it, under the lock, and decoded
    // before the partition is made writable: Failed for a file that cannot be.
    Read read(QByteArray &bytes);

    // The first key of what read() found, but `changed`, that a write could not give back as it was: one
    // whose value Qt cannot decode, such as one of a type that only another program knows. Empty when there
    // is none.
    QString unkept(const QString &changed) const;

    // Makes the partition writable. False, and the window closed, when it could not be.
    bool open();

    // Applies `edit` to settings parsed from `base` (what read() found, or nothing) and commits the result as
    // the settings file, whole or not at all: true only when the partition holds every byte of it. QSettings
    // writes on the partition, the one place the camera lets the tool write, under a name of the tool's own
    // beside the file.
    bool write(const QByteArray &base, const std::function<void(QSettings &)> &edit);

    // Remounts read-only, if the window is open, and lets the lock and the held signals go. False when the
    // partition was left writable.
    bool close();

private:
    bool isWhole(const QByteArray &bytes, const QStringList &keys) const;
    bool commit(const QByteArray &stage, const QByteArray &bytes, const QByteArray &target);

    LogSite m_site;
    QStringList m_baseKeys;    // of what read() found
    QStringList m_undecodable; // those of them whose values Qt could not decode
    mode_t m_umask = 0;        // the run's, while the window's is in force
    sigset_t m_unheld;
    int m_mountPoint = -1; // the lock
    bool m_busy = false;
    bool m_open = false;
    bool m_closed = false;
    bool m_leftWritable = false;
};

} // namespace FactoryData

// The form in which each kind of value is handed to QSettings.
inline QVariant writtenForm(quint8 value) { return int(value); }
inline QVariant writtenForm(uint value) { return value; }
inline QVariant writtenForm(int value) { return value; }
inline QVariant writtenForm(const QString &value) { return value; }
inline QVariant writtenForm(const QListOfInts &value) { return toVariantList(value); }
inline QVariant writtenForm(const QVariantList &value) { return value; }

#endif // FACTORYDATA_H
