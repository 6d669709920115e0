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

namespace FactoryData {

inline QString mountPoint() { return QStringLiteral(FACTORY_DATA); }
inline QString settingsPath() { return QStringLiteral(FACTORY_DATA "/settings.ini"); }
inline QString eepromPath() { return QStringLiteral(FACTORY_DATA "/eeprom"); }

// The factory partition made writable for one write of the settings file, and read-only again on every way
// out of the scope, an exception included. The signals that end a process on the line (a test station's
// SIGTERM, Ctrl-C, a closed terminal or pipe) are held from before the writable remount until the read-only
// remount has been tried, and then take effect as they would have: none of them leaves the partition
// writable, or a lock or temporary file of Qt's on it. Remount failures are logged for `site`.
class WriteWindow
{
public:
    explicit WriteWindow(const LogSite &site);
    ~WriteWindow() { close(); }
    WriteWindow(const WriteWindow &) = delete;
    WriteWindow &operator=(const WriteWindow &) = delete;

    // Whether the writable remount succeeded.
    bool isOpen() const { return m_open; }

    // Applies `edit` to the settings file and writes it; true when the file holds the result. Qt keeps what
    // it could not write (no room left) in its per-process cache of the file, where every later reload and
    // write of the run would take it for the file's content: that cache is then set back to what the file
    // holds. A file that Qt cannot decode is not written.
    bool write(const std::function<void(QSettings &)> &edit);

    // Remounts read-only, if the window is open, and lets the held signals through. False when the partition
    // was left writable.
    bool close();

private:
    LogSite m_site;
    sigset_t m_unheld;
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
