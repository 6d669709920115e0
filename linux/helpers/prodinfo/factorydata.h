#ifndef FACTORYDATA_H
#define FACTORYDATA_H

#include "log.h"
#include "qlistofints.h"

#include <QString>
#include <QVariant>

#include <functional>

#include <signal.h>

class QSettings;

// Where the production data lives on the camera.
#define FACTORY_DATA "/factory_data"
#define SETTINGS_FILE FACTORY_DATA "/settings.ini"

namespace FactoryData {

inline QString mountPoint() { return QStringLiteral(FACTORY_DATA); }
inline QString settingsPath() { return QStringLiteral(SETTINGS_FILE); }
inline QString eepromPath() { return QStringLiteral(FACTORY_DATA "/eeprom"); }

// The settings file's bytes as the partition holds them, read between the write windows of other runs: the
// kernel refuses the read-only remount while a file that a window replaced is still open. False when they
// cannot be told: no file, a failed read, fewer bytes than the file's size, or a window open too long. A
// guess would be written back over the file as its content.
bool readSettings(QByteArray &bytes);

// Settings bytes where QSettings can parse and write them: never on the partition, in memory where the
// system has a tmpfs for it, and under a path that no earlier copy of this process had. Qt caches every
// file it parsed for the life of the process and parses it again only when its size or time changed, so a
// reused path could answer with another operation's content. The copy goes with the object, so nothing but
// a kill in the middle of an operation leaves one behind.
class PrivateCopy
{
public:
    explicit PrivateCopy(const QByteArray &bytes);
    ~PrivateCopy();
    PrivateCopy(const PrivateCopy &) = delete;
    PrivateCopy &operator=(const PrivateCopy &) = delete;

    // Empty when the copy could not be made.
    const QString &path() const { return m_path; }
    // What the copy holds now, after QSettings wrote it.
    bool read(QByteArray &bytes) const;

private:
    QString m_path;
};

// The factory partition made writable for one write of the settings file, and read-only again on every way
// out of the scope, an exception included. Concurrent runs take turns: each window holds a lock on the
// mount point, taken before the writable remount and waited for only so long, so that a run stopped or
// stuck in its window holds the others up for seconds, not for ever. Every signal that can end or stop the
// process is held from before the writable remount until the read-only remount has been tried, and then
// takes effect as it would have: none leaves the partition writable or a temporary file on it. Remount
// failures are logged for `site`.
class WriteWindow
{
public:
    explicit WriteWindow(const LogSite &site);
    ~WriteWindow();
    WriteWindow(const WriteWindow &) = delete;
    WriteWindow &operator=(const WriteWindow &) = delete;

    // Whether the lock was taken and the writable remount succeeded.
    bool isOpen() const { return m_open; }

    // The settings file as the partition holds it now, as readSettings tells it, inside the window.
    bool read(QByteArray &bytes) const;

    // Applies `edit` to settings parsed from `base` and commits the result as the settings file, whole or not
    // at all: true only when the partition holds every byte of it. A file that Qt cannot decode is not
    // written.
    bool write(const QByteArray &base, const std::function<void(QSettings &)> &edit);

    // Remounts read-only, if the window is open, and lets the lock and the held signals go. False when the
    // partition was left writable.
    bool close();

private:
    bool commit(const QByteArray &bytes);

    LogSite m_site;
    sigset_t m_unheld;
    int m_mountPoint = -1; // the lock, and the directory synced after a rename in it
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
