#include "factorydata.h"

#include <QSettings>

#include <new>

#include <sys/mount.h>

namespace FactoryData {

WriteWindow::WriteWindow(const LogSite &site) : m_site(site)
{
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE})
        sigaddset(&held, signal);
    pthread_sigmask(SIG_BLOCK, &held, &m_unheld);
    // Empty strings rather than null pointers: only the flags change between the two directions.
    m_open = ::mount("", FACTORY_DATA, "", MS_REMOUNT, "") == 0;
    if (!m_open) {
        m_site.logger().warning(": Failed to mount %s as writable.", FACTORY_DATA);
        close();
    }
}

bool WriteWindow::write(const std::function<void(QSettings &)> &edit)
{
    try {
        QSettings settings(settingsPath(), QSettings::IniFormat);
        // Nothing of an earlier write is left pending (see below), so this is the file as it is.
        QVariantMap file;
        for (const QString &key : settings.allKeys())
            file.insert(key, settings.value(key));
        edit(settings);
        settings.sync();
        // The status keeps the object's first error, which may be an older one (a malformed line). A second
        // object on the file tries again whatever is still unwritten, and reports only that.
        if (QSettings(settingsPath(), QSettings::IniFormat).status() == QSettings::NoError)
            return true;
        settings.clear();
        for (auto it = file.cbegin(); it != file.cend(); ++it)
            settings.setValue(it.key(), it.value());
        return false;
    } catch (const std::bad_alloc &) {
        // A value such as @Variant(...) claiming a list of two thousand million items fails its allocation
        // when the file is decoded, before anything is changed.
        return false;
    }
}

bool WriteWindow::close()
{
    if (!m_closed) {
        m_closed = true;
        if (m_open && ::mount("", FACTORY_DATA, "", MS_REMOUNT | MS_RDONLY, "") != 0) {
            m_site.logger().warning(": Failed to mount %s as read only.", FACTORY_DATA);
            m_leftWritable = true;
        }
        pthread_sigmask(SIG_SETMASK, &m_unheld, nullptr);
    }
    return !m_leftWritable;
}

} // namespace FactoryData
