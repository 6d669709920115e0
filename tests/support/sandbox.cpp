#include "sandbox.h"

#include <QDateTime>
#include <QDir>
#include <QMutex>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QThread>

#include <algorithm>
#include <cstdio>

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

const char factoryData[] = "/factory_data";
int writerHolds = 0; // WriterHold objects holding a file open

bool mountTmpfs(const char *target, const QByteArray &options)
{
    return !::mount("", target, "tmpfs", 0, options.constData());
}

QString path(const QString &name) { return QLatin1String(factoryData) + QLatin1Char('/') + name; }

bool writeFiles(const QMap<QString, QByteArray> &files)
{
    // QSettings keeps files it has read in a process-wide cache and rereads one only when its size or
    // time stamp changed; a file written here gets a time stamp no earlier file had, so it is reread.
    static qint64 written = 0;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        QFile file(path(it.key()));
        if (!file.open(QIODevice::WriteOnly) || file.write(it.value()) != it.value().size() || !file.flush())
            return false;
        file.setFileTime(QDateTime::fromSecsSinceEpoch(946684800 + ++written),
                         QFileDevice::FileModificationTime);
    }
    return true;
}

} // namespace

QString Sandbox::enter()
{
    static QString reason = [] {
        const auto failed = [](const char *what) {
            return QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromLocal8Bit(strerror(errno)));
        };
        if (geteuid() != 0)
            return QStringLiteral(
                "needs root: the factory partition is a tmpfs in a private mount namespace");
        if (unshare(CLONE_NEWNS) != 0)
            return failed("cannot enter a private mount namespace");
        // Keep every mount made from here on inside this namespace.
        if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return failed("cannot make mounts private");
        QDir().mkpath(factoryData);
        // A private /run for the stand-in's camera-model file.
        if (!mountTmpfs("/run", "size=64k,mode=0755") || !QDir().mkpath("/run/product-info"))
            return failed("cannot mount a private /run");
        return reset() ? QString() : failed("cannot mount a tmpfs at /factory_data");
    }();
    return reason;
}

bool Sandbox::reset(const QMap<QString, QByteArray> &files, Mount mount, int sizeKiB)
{
    // Drop every earlier layer, so the case starts from an empty partition.
    while (::umount2(factoryData, MNT_DETACH) == 0) {
    }
    return mountTmpfs(factoryData, "size=" + QByteArray::number(sizeKiB) + "k,mode=0755") &&
           writeFiles(files) && (mount == Mount::Writable || remount(Mount::ReadOnly));
}

bool Sandbox::rewrite(const QMap<QString, QByteArray> &files)
{
    const bool readOnly = isReadOnly();
    if (readOnly && !remount(Mount::Writable))
        return false;
    const bool written = writeFiles(files);
    return (!readOnly || remount(Mount::ReadOnly)) && written;
}

bool Sandbox::remount(Mount mount)
{
    const unsigned long flags = mount == Mount::ReadOnly ? MS_REMOUNT | MS_RDONLY : MS_REMOUNT;
    for (int tries = 100; tries > 0; --tries) {
        if (::mount("", factoryData, "", flags, "") == 0)
            return true;
        if (errno != EBUSY)
            return false;
        QThread::msleep(10);
    }
    return false;
}

void Sandbox::setCameraModel(const QByteArray &text)
{
    QFile file(QStringLiteral("/run/product-info/camera-model"));
    text.isEmpty() ? file.remove() : file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

bool Sandbox::isReadOnly()
{
    QFile mountInfo(QStringLiteral("/proc/self/mountinfo"));
    const QByteArray table = mountInfo.open(QIODevice::ReadOnly) ? mountInfo.readAll() : QByteArray();
    // The last line for the mount point is the mount on top; its options follow the mount point.
    const int at = table.lastIndexOf(" /factory_data ");
    return at >= 0 && table.mid(at + 15).split(' ').first().split(',').contains("ro");
}

QStringList Sandbox::files() { return QDir(factoryData).entryList(QDir::Files | QDir::Hidden, QDir::Name); }

QByteArray Sandbox::read(const QString &name)
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QMap<QString, QVariant> Sandbox::settings(bool *parsedOk)
{
    const QSettings settings(path(QStringLiteral("settings.ini")), QSettings::IniFormat);
    if (parsedOk)
        *parsedOk = settings.status() == QSettings::NoError;
    QMap<QString, QVariant> values;
    for (const QString &key : settings.allKeys())
        values.insert(key, settings.value(key));
    return values;
}

Sandbox::WriterHold::WriterHold() : m_fd(::open("/factory_data/.hold", O_WRONLY | O_CREAT | O_CLOEXEC, 0644))
{
    writerHolds += isHeld();
}

Sandbox::WriterHold::~WriterHold()
{
    writerHolds -= isHeld();
    ::close(m_fd);
}

bool Sandbox::refusedFromOutside(const LogRecords &records)
{
    static bool refusedBefore = false;
    const bool refused =
        writerHolds == 0 && std::any_of(records.cbegin(), records.cend(), [](const LogRecord &r) {
            return r.message == QLatin1String(": Failed to mount /factory_data as read only.");
        });
    if (refused && !refusedBefore)
        std::fprintf(stderr,
                     "A read-only remount was refused by something outside the test: running again\n");
    refusedBefore = refused && !refusedBefore;
    return refusedBefore;
}

namespace {

void setSysAdminEffective(bool on)
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    if (syscall(SYS_capget, &header, data) != 0)
        return;
    data[0].effective =
        on ? data[0].effective | 1u << CAP_SYS_ADMIN : data[0].effective & ~(1u << CAP_SYS_ADMIN);
    syscall(SYS_capset, &header, data);
}

QMutex captureMutex;
LogRecords captured;

void captureMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    // In the order of QtMsgType.
    static const char *const typeNames[] = {"debug", "warning", "critical", "fatal", "info"};
    QMutexLocker lock(&captureMutex);
    captured.append({QLatin1String(typeNames[type]), QLatin1String(context.function), message});
}

} // namespace

Sandbox::NoSysAdmin::NoSysAdmin() { setSysAdminEffective(false); }

Sandbox::NoSysAdmin::~NoSysAdmin() { setSysAdminEffective(true); }

char *toString(const LogRecord &record) { return qstrdup(record.toString().toUtf8().constData()); }

MessageCapture::MessageCapture()
{
    QMutexLocker lock(&captureMutex);
    captured.clear();
    m_previous = qInstallMessageHandler(captureMessage);
}

MessageCapture::~MessageCapture() { qInstallMessageHandler(m_previous); }

LogRecords MessageCapture::records() const
{
    QMutexLocker lock(&captureMutex);
    return captured;
}

QStringList toolCommand(const QStringList &arguments)
{
    const QString launcher = QStringLiteral(PRODCONFIG_LAUNCHER);
    return (launcher.isEmpty() ? QStringList() : launcher.split(QLatin1Char('|')))
           << QStringLiteral(PRODCONFIG_PATH) << arguments;
}

ToolRun runTool(const QStringList &arguments, const QStringList &wrapper)
{
    QStringList command = wrapper + toolCommand(arguments);
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    // Each record is framed, so messages that span lines (the print's position blocks) stay whole.
    env.insert(QStringLiteral("QT_MESSAGE_PATTERN"),
               QStringLiteral("\x1e<%{type}|%{function}|%{message}>\x1e"));
    process.setProcessEnvironment(env);
    process.start(command.takeFirst(), command);
    if (!process.waitForFinished(60000))
        return ToolRun{-1, true, {}, {}, {}}; // and the process is killed with its QProcess
    ToolRun run;
    run.crashed = process.exitStatus() != QProcess::NormalExit;
    run.exitCode = process.exitCode();
    run.stdOut = process.readAllStandardOutput();
    run.stdErr = process.readAllStandardError();
    static const QRegularExpression record(QStringLiteral("\x1e<([^|]*)\\|([^|]*)\\|(.*?)>\x1e"),
                                           QRegularExpression::DotMatchesEverythingOption);
    for (auto it = record.globalMatch(QString::fromUtf8(run.stdErr)); it.hasNext(); it.next())
        run.records.append({it.peekNext().captured(1), it.peekNext().captured(2), it.peekNext().captured(3)});
    return run;
}
